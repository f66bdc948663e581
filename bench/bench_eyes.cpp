// The eye exports on the demo model set, each beside a literal version of
// the same computation: the whole head widened and carried over in fresh
// matrices at every step, as the data flow describes it.
#include <vector>

#include <benchmark/benchmark.h>
#include <Eigen/Geometry>

#include "bench_data.h"
#include "eyes/eye_geometry.h"
#include "eyes/eye_tables.h"
#include "eyes/eyeball_aligner.h"
#include "eyes/eyeball_fit_state.h"
#include "eyes/eyelash_aligner.h"
#include "io/planar.h"
#include "meridian/meridian.h"

namespace {

namespace km = kestrel::meridian;

/// Where the benchmarks' loads put their errors (the demo model loads).
km::Error loadError;
using meridian::bench::demoModelDir;
using meridian::bench::sampleHeadPlanar;

constexpr Eigen::Index kHead = 20481;

void BM_AI_add_eyeball(benchmark::State& state) {
    if (AI_system_init_eyeball(demoModelDir().c_str()) != 1) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float>& head = sampleHeadPlanar();
    double angles[2][3], positions[2][3], scale;
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_add_eyeball(head.data(), 0, angles[0], angles[1], positions[0],
                                                positions[1], &scale));
        benchmark::ClobberMemory();
    }
    AI_system_over();
}
BENCHMARK(BM_AI_add_eyeball)->Unit(benchmark::kMicrosecond);

// Literal: the whole head aligned, then each eye fitted on it.
void BM_AddEyeballLiteral(benchmark::State& state) {
    km::EyeballFitState fit;
    if (!fit.load(demoModelDir(), loadError)) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float>& planar = sampleHeadPlanar();
    for (auto _ : state) {
        const Eigen::Matrix3Xd head = km::planarToVertices(planar.data(), kHead);
        const Eigen::Matrix3Xd landmarks = km::applyIndexList(fit.landmarks(), head);
        const km::RigidMotion alignment = km::fitRigid(landmarks, fit.landmarkTemplate(0));
        const Eigen::Matrix3Xd aligned =
            (alignment.rotation * head).colwise() + alignment.translation;
        km::EyePose poses[2];
        for (int eye = 0; eye < 2; ++eye) {
            const km::EyeFitRecord& record = fit.record(eye);
            const km::Sphere socket = km::fitSphere(aligned, record.ring);
            const double scale = socket.radius / record.refRadius;
            const Eigen::Vector3d offset = socket.centre - scale * record.refCentre;
            const Eigen::Matrix3Xd gaze = km::applyIndexList(record.gaze, aligned);
            const Eigen::Matrix3d turn = km::rotationBetween(
                record.refPoint, km::normalisedDirection(gaze.rowwise().mean() - socket.centre));
            Eigen::Vector3d degrees = turn.eulerAngles(2, 1, 0) * 180.0 / 3.14;
            degrees[1] += 25.0;
            const Eigen::Vector3d radians = degrees * 3.14 / 180.0;
            const Eigen::Matrix3d rotation = km::rotationZYX(radians[0], radians[1], radians[2]);
            km::EyeballFitState::storePose(
                poses[eye], alignment.rotation.transpose() * rotation,
                alignment.rotation.transpose() * (offset - alignment.translation), scale);
        }
        benchmark::DoNotOptimize(km::EyeballFitState::reportPoses(poses[0], poses[1]));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_AddEyeballLiteral)->Unit(benchmark::kMicrosecond);

template <typename Aligner>
void runAlignerExport(benchmark::State& state, meridian_handle (*init)(const char*)) {
    const meridian_handle handle = init(demoModelDir().c_str());
    Aligner aligner;
    if (handle == 0 || !aligner.init(demoModelDir(), loadError)) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float>& head = sampleHeadPlanar();
    std::vector<float> out(3 * static_cast<size_t>(aligner.exportVertexCount()));
    for (auto _ : state) {
        benchmark::DoNotOptimize(AI_add_eyeball_kova(handle, head.data(), out.data(), 0));
        benchmark::ClobberMemory();
    }
    AI_system_over();
}

void BM_AI_add_eyeball_kova(benchmark::State& state) {
    runAlignerExport<km::CKOVAEyeballAligner>(state, AI_system_init_eyeball_kova);
}
BENCHMARK(BM_AI_add_eyeball_kova)->Unit(benchmark::kMicrosecond);

void BM_AI_add_eyelash_kova(benchmark::State& state) {
    runAlignerExport<km::CKOVAEyelashAligner>(state, AI_system_init_eyelash_kova);
}
BENCHMARK(BM_AI_add_eyelash_kova)->Unit(benchmark::kMicrosecond);

// One similarity fit of a side in the literal style, applied to a list.
void fitSideLiteral(const km::Correspondence& headToSide, const Eigen::Matrix3Xd& onHead,
                    const std::vector<int32_t>& vertices, Eigen::Matrix3Xd& mesh) {
    const Eigen::Matrix3Xd target = km::applyIndexList(headToSide.targets, onHead);
    const Eigen::Matrix3Xd source = km::applyCorrespondence(headToSide, mesh);
    const km::SimilarityTransform fit =
        km::fitSimilarity(source, target, headToSide.vertexWeights, true, false);
    for (int32_t v : vertices) mesh.col(v) = fit(mesh.col(v));
}

void placeWholeLiteral(const km::CKOVAEyeballAligner& aligner, const Eigen::Matrix3Xd& onHead,
                       Eigen::Matrix3Xd& mesh) {
    const Eigen::Matrix3Xd target = km::applyIndexList(aligner.headToMesh().targets, onHead);
    const Eigen::Matrix3Xd source = km::applyCorrespondence(aligner.headToMesh(), mesh);
    const km::SimilarityTransform fit = km::fitSimilarity(source, target, {}, false, true);
    for (Eigen::Index v = 0; v < mesh.cols(); ++v) mesh.col(v) = fit(mesh.col(v));
}

// Literal: the whole template head carried onto the head topology per call.
void BM_EyeballAlignerLiteral(benchmark::State& state) {
    km::CKOVAEyeballAligner aligner;
    if (!aligner.init(demoModelDir(), loadError)) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const std::vector<float>& planar = sampleHeadPlanar();
    std::vector<float> out(3 * static_cast<size_t>(aligner.exportVertexCount()));
    for (auto _ : state) {
        const Eigen::Matrix3Xd head = km::planarToVertices(planar.data(), kHead);
        const Eigen::Matrix3Xd onHead = km::applyCorrespondence(aligner.templateToHead(), head);
        Eigen::Matrix3Xd mesh = aligner.mesh().vertices;
        placeWholeLiteral(aligner, onHead, mesh);
        fitSideLiteral(aligner.headToMeshLeft(), onHead, aligner.leftVertices(), mesh);
        fitSideLiteral(aligner.headToMeshRight(), onHead, aligner.rightVertices(), mesh);
        km::matrixToPlanar(km::applyCorrespondence(aligner.meshToExport(), mesh), out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_EyeballAlignerLiteral)->Unit(benchmark::kMicrosecond);

void BM_EyelashAlignerLiteral(benchmark::State& state) {
    km::CKOVAEyelashAligner aligner;
    if (!aligner.init(demoModelDir(), loadError)) {
        state.SkipWithError("demo model did not load");
        return;
    }
    const Eigen::Matrix3Xd mappedDelta =
        km::applyCorrespondence(aligner.headToMesh(), aligner.blendDelta());
    const Eigen::Map<const Eigen::VectorXd> d(mappedDelta.data(), mappedDelta.size());
    const std::vector<float>& planar = sampleHeadPlanar();
    std::vector<float> out(3 * static_cast<size_t>(aligner.exportVertexCount()));
    for (auto _ : state) {
        const Eigen::Matrix3Xd head = km::planarToVertices(planar.data(), kHead);
        const Eigen::Matrix3Xd onHead = km::applyCorrespondence(aligner.templateToHead(), head);
        Eigen::Matrix3Xd lash = aligner.mesh().vertices;
        placeWholeLiteral(aligner, onHead, lash);
        for (int pass = 0; pass < km::CKOVAEyelashAligner::kPassCount; ++pass) {
            fitSideLiteral(aligner.headToMeshLeft(), onHead, aligner.leftVertices(), lash);
            fitSideLiteral(aligner.headToMeshRight(), onHead, aligner.rightVertices(), lash);
            const Eigen::Matrix3Xd offset =
                km::applyIndexList(aligner.headToMesh().targets, onHead) -
                km::applyCorrespondence(aligner.headToMesh(), lash);
            const double w =
                Eigen::Map<const Eigen::VectorXd>(offset.data(), offset.size()).dot(d) / d.dot(d);
            lash += w * aligner.blendDelta();
        }
        km::matrixToPlanar(km::applyCorrespondence(aligner.meshToExport(), lash), out.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_EyelashAlignerLiteral)->Unit(benchmark::kMicrosecond);

}  // namespace
