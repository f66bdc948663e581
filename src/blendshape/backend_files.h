// The blendshape back-end data set: its files (read from model directory +
// "/BS/"), the five regions and the fixed 3 by 4 matrices.
#pragma once

#include <array>

#include <Eigen/Core>
#include <Eigen/LU>

#include "common/template_head.h"

namespace kestrel::meridian::blendshape {

/// A matrix file and the shape its name gives.
struct MatrixFileEntry {
    const char* name;
    int rows;
    int cols;
};

/// Sizes every back-end set is built around.
inline constexpr int kHeadVertexCount = kTemplateHeadVertexCount;
inline constexpr int kFaceVertexCount = 18518;
inline constexpr int kComponentCount = 500;

/// The 27 files, in loading order.
inline constexpr int kBackendFileCount = 27;
inline constexpr std::array<MatrixFileEntry, kBackendFileCount> kBackendFiles = {{
    {"kp_86_h_r_1_c_86.bin", 1, 86},
    {"tri_h_used_r_3_c_19394.bin", 3, 19394},
    {"tri_next_h_r_3_c_36958.bin", 3, 36958},
    {"tri_next_r_3_c_40832.bin", 3, 40832},
    {"vertex_h_used_r_1_c_9519.bin", 1, 9519},
    {"zf_all_face_V9_500_mu_r_55554_c_1.bin", 3 * kFaceVertexCount, 1},
    {"zf_all_face_V9_500_pcev_r_55554_c_500.bin", 3 * kFaceVertexCount, kComponentCount},
    {"zf_all_face_V9_500_sigma_r_500_c_1.bin", kComponentCount, 1},
    {"vertex_tavi_wh_r_3_c_20481.bin", 3, kHeadVertexCount},
    {"vertex_std_male_wh_r_3_c_20481.bin", 3, kHeadVertexCount},
    {"vertex_next_pca_m_r_3_c_20481.bin", 3, kHeadVertexCount},
    {"vertex_next_pca_f_r_3_c_20481.bin", 3, kHeadVertexCount},
    {"idx_em_r_1_c_1337.bin", 1, 1337},
    {"idx_em_need_update_r_1_c_629.bin", 1, 629},
    {"idx_em_in_face_r_1_c_629.bin", 1, 629},
    {"diff_from_face_to_esle_r_3_c_629.bin", 3, 629},
    {"idx_in_face_used_r_1_c_237.bin", 1, 237},
    {"up_r_1_c_18518.bin", 1, kFaceVertexCount},
    {"b4_mouth_h_idx_r_1_c_3450.bin", 1, 3450},
    {"b4_idx_backhead_r_1_c_366.bin", 1, 366},
    {"b4_idx_contout_r_1_c_1404.bin", 1, 1404},
    {"b4_idx_fix_face_part_r_1_c_8300.bin", 1, 8300},
    {"b4_shoulder_idx_r_1_c_1019.bin", 1, 1019},
    {"b4_weight_in_r_3_c_1404.bin", 3, 1404},
    {"ue_idx_next_2_ue_r_1_c_20864.bin", 1, 20864},
    {"vertex_left_r_1_c_10102.bin", 1, 10102},
    {"vertex_right_r_1_c_10102.bin", 1, 10102},
}};

/// Positions in kBackendFiles of the sets generation reads.
enum BackendFile : int {
    kMeanFile = 5,
    kBasisFile = 6,
    kSigmaFile = 7,
    kFaceListFile = 17,
};

/// One region's files (in its directory under "/BS/"), anchor and fit
/// parameters. All indices are face-vertex indices (0 .. 18517).
struct RegionEntry {
    const char* name;
    const char* directory;
    MatrixFileEntry all;      ///< every vertex of the region, 1 by #A
    MatrixFileEntry fixed;    ///< the border vertices, 1 by #F
    MatrixFileEntry weights;  ///< 3 by #F; row 0 is each border vertex's blend weight
    int anchor;
    float w0, w1, w2, w3;  ///< anchor weight, border weight, prior weight, anchor push
};

/// The regions in shape order (shape s + 1 comes from region s).
inline constexpr int kRegionCount = 5;
inline constexpr std::array<RegionEntry, kRegionCount> kRegions = {{
    {"gill_left",
     "mask/gill_left/",
     {"idx_all_r_1_c_2911.bin", 1, 2911},
     {"idx_fix_r_1_c_789.bin", 1, 789},
     {"weight_in3_r_3_c_789.bin", 3, 789},
     6171,
     1000000.0f,
     1000000.0f,
     1.0f,
     1.1f},
    {"gill_right",
     "mask/gill_right/",
     {"idx_all_r_1_c_2966.bin", 1, 2966},
     {"idx_fix_r_1_c_766.bin", 1, 766},
     {"weight_in3_r_3_c_766.bin", 3, 766},
     10844,
     1000000.0f,
     1000000.0f,
     1.0f,
     1.1f},
    {"nose",
     "mask/nose/",
     {"idx_all_r_1_c_2901.bin", 1, 2901},
     {"idx_fix_r_1_c_657.bin", 1, 657},
     {"weight_in3_r_3_c_657.bin", 3, 657},
     6772,
     1000000.0f,
     1000000.0f,
     1.0f,
     1.1f},
    {"ear_left",
     "mask/ear_left/",
     {"idx_all_r_1_c_2319.bin", 1, 2319},
     {"idx_fix_r_1_c_106.bin", 1, 106},
     {"weight_in3_r_3_c_106.bin", 3, 106},
     5503,
     1000000.0f,
     1000000.0f,
     10000.0f,
     1.05f},
    {"ear_right",
     "mask/ear_right/",
     {"idx_all_r_1_c_2322.bin", 1, 2322},
     {"idx_fix_r_1_c_104.bin", 1, 104},
     {"weight_in3_r_3_c_104.bin", 3, 104},
     10182,
     1000000.0f,
     1000000.0f,
     10000.0f,
     1.05f},
}};

using Transform34 = Eigen::Matrix<double, 3, 4>;

/// The five fixed 3 by 4 matrices (rotation | translation), in order.
inline std::array<Transform34, 5> fixedTransforms() {
    std::array<Transform34, 5> t;
    t[0] << 1, 0, 0, 0,  //
        0, 1, 0, 0,      //
        0, 0, 1, 0;
    t[1] << 1, 0, 0, 0,  //
        0, 0, -1, 0,     //
        0, 1, 0, 0;
    t[2] << 1.00907571653031, 0.0149065741391323, 0.0149091676629689, -0.146841361595803,  //
        0.0152271127143303, -0.0216496815193334, -1.00894881795492, -4.21687914683831,     //
        -0.0145816415863594, 1.00895360461306, -0.0218698511906453, 160.863536123816;
    t[3] << 1, 0, 0, 0,             //
        0, 0, 1, 1.63866601883562,  //
        0, 1, 0, 168.853317226249;
    t[4] << 0.872036437075342, -0.000226106713747949, -0.000719942623989601,
        0.0290997701684031,                                                            //
        0.000230515756802672, 0.872020348998619, 0.00534554239506169, 148.3198439945,  //
        0.000718543049305213, -0.00534573070454696, 0.872020082273227, 1.16053671731529;
    return t;
}

/// Which of them maps the head into the face model's frame: it swaps y and
/// z and shifts.
inline constexpr int kFaceFrameTransform = 3;

/// The face model's frame: q = rotation * p + translation, and back.
struct FaceFrame {
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    Eigen::Matrix3d inverseRotation;

    explicit FaceFrame(const Transform34& t)
        : rotation(t.leftCols<3>()), translation(t.col(3)), inverseRotation(rotation.inverse()) {}

    Eigen::Vector3d toFace(const Eigen::Vector3d& p) const { return rotation * p + translation; }
    Eigen::Vector3d toHead(const Eigen::Vector3d& q) const {
        return inverseRotation * (q - translation);
    }
};

inline FaceFrame faceFrame() {
    return FaceFrame(fixedTransforms()[kFaceFrameTransform]);
}

}  // namespace kestrel::meridian::blendshape
