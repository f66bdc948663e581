// Fixed data of the plain eyeball fit: the head vertices it reads and the
// landmark templates the head is aligned to.
#pragma once

#include <array>

#include "common/template_head.h"

namespace kestrel::meridian::eyes {

/// Vertices of every head the fit takes.
inline constexpr int kHeadVertexCount = kTemplateHeadVertexCount;

/// Head vertices of the 25 alignment landmarks, in template column order.
inline constexpr int kLandmarkCount = 25;
inline constexpr std::array<int, kLandmarkCount> kLandmarkVertices = {
    2123,  2388,  2438,  2593,  4880,  4930,  5085,  9409,  9764,  9814,  9899,  10072, 10233,
    14490, 14829, 14879, 14929, 15125, 15286, 17468, 17654, 17786, 20024, 20211, 20344};

/// The three landmark templates: kLandmarkTemplates[t][k] is landmark k of
/// template t (x, y, z). Single-precision constants, widened when used.
inline constexpr int kTemplateCount = 3;
inline constexpr float kLandmarkTemplates[kTemplateCount][kLandmarkCount][3] = {
    {{0.57252634f, -13.516866f, -12.330728f}, {3.979389f, -16.326807f, -13.299717f},
     {14.155131f, -13.632505f, -6.7178583f},  {10.945894f, -14.152374f, -4.391266f},
     {-5.652877f, -17.104717f, -13.446833f},  {-12.86193f, -13.77093f, -8.273027f},
     {-12.840505f, -15.958786f, -4.2232f},    {13.531357f, -13.737151f, -5.7831664f},
     {14.952958f, -13.996063f, -6.1847415f},  {10.164987f, -13.117199f, -10.511619f},
     {9.709068f, -16.987999f, -2.6919792f},   {1.7222863f, -17.106707f, -1.154899f},
     {13.522634f, -15.33147f, -3.967351f},    {-10.079194f, -13.940482f, -5.5278416f},
     {-1.045643f, -16.899437f, -13.272438f},  {-0.99214584f, -16.048483f, -13.111025f},
     {-12.452218f, -13.958476f, -9.875372f},  {-0.18302518f, -17.161942f, -1.2724129f},
     {-11.53597f, -16.024324f, -4.067053f},   {6.975185f, -13.309541f, -11.911189f},
     {12.522186f, -14.404172f, -11.209198f},  {8.221905f, -16.328133f, -2.1810238f},
     {-1.5594602f, -13.984941f, -12.655889f}, {-12.568966f, -13.833239f, -6.643855f},
     {-7.8353844f, -15.320745f, -3.4606087f}},
    {{-0.04670003f, -12.43219f, -11.690866f}, {2.3135f, -15.138184f, -13.103266f},
     {9.3524f, -13.609985f, -6.944866f},      {7.672201f, -13.699982f, -4.234166f},
     {-4.7479f, -16.072235f, -13.453166f},    {-9.314f, -13.536895f, -7.765766f},
     {-9.604601f, -15.118423f, -3.840066f},   {9.0871f, -13.621567f, -6.115066f},
     {10.1007f, -13.676392f, -6.515966f},     {7.1519f, -12.180496f, -9.991467f},
     {6.9529f, -15.348985f, -2.168566f},      {1.4699f, -14.75499f, -0.67646605f},
     {9.3865f, -14.67099f, -3.961066f},       {-7.5809f, -13.506989f, -5.516566f},
     {-1.233199f, -15.770187f, -13.198166f},  {-1.233199f, -14.714478f, -12.875967f},
     {-9.1917f, -13.252792f, -9.0925665f},    {-0.53840005f, -14.757477f, -0.68966603f},
     {-8.8887005f, -14.850174f, -3.430466f},  {5.0694f, -12.253494f, -11.339166f},
     {8.3729f, -12.775177f, -11.030067f},     {5.8731f, -14.591095f, -2.1551661f},
     {-1.7769f, -12.851089f, -11.956466f},    {-9.1377f, -13.586288f, -6.512566f},
     {-6.1691f, -13.86377f, -3.362966f}},
    {{0.32725397f, -13.87239f, -13.566848f},  {3.8746269f, -16.618057f, -15.431914f},
     {14.947098f, -13.717651f, -7.3041162f},  {11.603128f, -14.841675f, -4.8591743f},
     {-6.671743f, -16.516624f, -15.952014f},  {-14.308589f, -13.557678f, -8.505149f},
     {-13.877731f, -15.351738f, -4.056927f},  {14.343239f, -13.889314f, -6.308396f},
     {15.790054f, -14.127892f, -6.703911f},   {10.61867f, -12.707108f, -11.969617f},
     {10.397222f, -16.457756f, -2.649647f},   {2.0312319f, -16.566978f, -0.91364706f},
     {14.365631f, -15.26355f, -4.206564f},    {-10.945977f, -13.645326f, -5.997487f},
     {-1.533524f, -17.31102f, -15.283819f},   {-1.389235f, -16.531311f, -14.964053f},
     {-14.065732f, -13.732124f, -10.450064f}, {-0.25481805f, -16.810654f, -0.97011805f},
     {-12.687713f, -15.670311f, -3.80782f},   {7.149563f, -13.243301f, -13.479443f},
     {13.039715f, -14.080467f, -12.87693f},   {8.688656f, -15.933708f, -2.587917f},
     {-1.936025f, -14.319862f, -13.981504f},  {-13.74044f, -13.684036f, -6.7862372f},
     {-8.566639f, -14.992401f, -4.026532f}},
};

/// Socket rings: 45 head vertices on the lid surface around each eye. Ring A
/// belongs to the second eye, ring B to the first.
inline constexpr int kRingSize = 45;
inline constexpr std::array<int, kRingSize> kRingA = {
    1228, 1229, 1230, 1233, 1234, 1235, 1236, 1237, 1240, 1241, 1242, 1243, 1244, 1245, 1246,
    1247, 1248, 1249, 1250, 1352, 1353, 2010, 2014, 7183, 7187, 7191, 7195, 7199, 7203, 7210,
    7216, 7219, 7221, 7223, 7226, 7229, 7258, 7408, 7412, 7635, 8927, 8975, 8977, 8981, 8986};
inline constexpr std::array<int, kRingSize> kRingB = {
    3773,  3774,  3775,  3778,  3779,  3780,  3781,  3782,  3785,  3786,  3787,  3788,
    3789,  3790,  3791,  3792,  3793,  3794,  3795,  3897,  3898,  4555,  4559,  12341,
    12345, 12349, 12353, 12357, 12361, 12365, 12368, 12374, 12377, 12379, 12382, 12385,
    12387, 12416, 12552, 12558, 12773, 14031, 14077, 14081, 14085};

/// Gaze vertices: the front of each socket.
inline constexpr int kGazeFirstEye = 12322;
inline constexpr int kGazeSecondEye = 7166;

/// Template eyeball: vertex 480 is the front of the pupil.
inline constexpr int kEyeballFrontVertex = 480;

/// Template-eyeball vertices on the eyeball sphere: 0..95, 608, 610..769.
/// Vertex 609 is not on the list.
inline constexpr int kEyeballSphereVertexCount = 257;
inline constexpr int kEyeballMinVertexCount = 770;
inline std::array<int, kEyeballSphereVertexCount> eyeballSphereVertices() {
    std::array<int, kEyeballSphereVertexCount> ids{};
    int n = 0;
    for (int v = 0; v <= 95; ++v) ids[n++] = v;
    ids[n++] = 608;
    for (int v = 610; v <= 769; ++v) ids[n++] = v;
    return ids;
}

/// Offset added to the second Euler angle of every eye, in degrees.
inline constexpr double kSecondAngleOffsetDegrees = 25.0;

}  // namespace kestrel::meridian::eyes
