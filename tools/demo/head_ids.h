// Head vertex ids that the engines hard-code, and the positions the demo head
// gives them. The demo head is numbered so that every id here names the
// vertex the engines expect.
#pragma once

#include <array>

namespace meridian::demo {

/// Landmark vertices the head is rigidly aligned by, in table order.
inline constexpr int kLandmarkCount = 25;
inline constexpr std::array<int, kLandmarkCount> kLandmarkIds = {
    2123,  2388,  2438,  2593,  4880,  4930,  5085,  9409,  9764,  9814,  9899,  10072, 10233,
    14490, 14829, 14879, 14929, 15125, 15286, 17468, 17654, 17786, 20024, 20211, 20344};

/// Position of landmark k in the reference landmark frame (template 0). The
/// demo head carries its landmark vertices exactly here (as floats).
inline constexpr float kLandmarkPositions[kLandmarkCount][3] = {
    {0.57252634f, -13.516866f, -12.330728f}, {3.979389f, -16.326807f, -13.299717f},
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
    {-7.8353844f, -15.320745f, -3.4606087f}};

/// Socket rings: 45 vertices on the lid surface around each eye. Ring A
/// belongs to the second eye (+x side), ring B to the first eye (-x side).
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

/// Gaze vertices: the front centre of each socket.
inline constexpr int kGazeFirstEye = 12322;  // -x side, ring B
inline constexpr int kGazeSecondEye = 7166;  // +x side, ring A

/// The blendshape face: an ordered subset of head vertices. Regions address
/// it by list position, and five anchor positions must hold these places
/// (subject's left is +x).
inline constexpr int kFaceVertexCount = 18518;
inline constexpr int kFaceAnchorCheekLeft = 6171;
inline constexpr int kFaceAnchorCheekRight = 10844;
inline constexpr int kFaceAnchorNoseTip = 6772;
inline constexpr int kFaceAnchorEarLeft = 5503;
inline constexpr int kFaceAnchorEarRight = 10182;

}  // namespace meridian::demo
