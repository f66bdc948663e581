// The head-asset builder handle. Builds without tinygltf have no builder:
// their open call says so.
#include "capi/handle_support.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

#if defined(MERIDIAN_WITH_ASSET)

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "asset/head_export.h"
#include "blendshape/parallel_tasks.h"

namespace ex = meridian::exporter;

struct meridian_asset_builder {
    std::unique_ptr<ex::HeadExporter> exporter;
    std::vector<std::string> glbs;  ///< the .glb of each head of the last build
    LastError lastError;
};

namespace {

void fillReport(const ex::AssetQuality& quality, meridian_asset_report& report) {
    report.eye_scale = quality.eyeScale;
    report.eye_scale_clamped = quality.eyeScaleClamped ? 1 : 0;
    std::copy(quality.regionMaxDisplacement.begin(), quality.regionMaxDisplacement.end(),
              report.region_max_displacement);
    for (int a = 0; a < 3; ++a) {
        report.bounds_min[a] = quality.boundsMin[a];
        report.bounds_max[a] = quality.boundsMax[a];
    }
    report.non_finite_positions = quality.nonFinitePositions;
    report.non_finite_normals = quality.nonFiniteNormals;
}

/// `bytes` to `path` through a temporary file in the same folder, renamed
/// over `path` once written and flushed.
Error writeAtomically(const std::string& bytes, const std::string& path) {
    namespace fs = std::filesystem;
    const fs::path target(path);
    const fs::path temporary =
        target.parent_path() / ("." + target.filename().string() + ".partial");
    {
        std::ofstream out(temporary, std::ios::binary);
        if (!out) return {ErrorCode::writeFailed, path, "cannot write " + temporary.string()};
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        if (!out.flush()) {
            out.close();
            std::error_code ignored;
            fs::remove(temporary, ignored);
            return {ErrorCode::writeFailed, path, "cannot write " + temporary.string()};
        }
    }
    std::error_code renamed;
    fs::rename(temporary, target, renamed);
    if (renamed) {
        std::error_code ignored;
        fs::remove(temporary, ignored);
        return {ErrorCode::writeFailed, path, "cannot write " + path + ": " + renamed.message()};
    }
    return {};
}

ex::StageLog stageLog(meridian_stage_callback onStage, void* user) {
    if (onStage == nullptr) return ex::StageLog();
    return ex::StageLog(
        [onStage, user](const std::string& stage) { onStage(stage.c_str(), user); });
}

/// The .glb of one head, its figures when `report` is not null, and what
/// it holds when `summary` is not null; `log` hears each stage start.
/// shapes: the head's blendshapes as generateBatch wrote them, or null
Error buildOne(const ex::HeadExporter& exporter, const float* head, const float* shapes,
               ex::StageLog& log, std::string& glbBytes, meridian_asset_report* report,
               meridian_asset_summary* summary = nullptr) {
    const std::vector<float> input(head, head + CBlendshapeEngine::kHeadFloats);
    ex::HeadAsset asset;
    try {
        asset = exporter.run(input, shapes, log);
    } catch (const ex::ExportError& e) {
        return {ErrorCode::internal, "", e.what()};
    }
    glbBytes = ex::glbBytes(ex::buildGltfModel(asset));
    if (glbBytes.empty()) return {ErrorCode::internal, "", "the asset could not be encoded"};
    if (report) fillReport(exporter.quality(input, asset), *report);
    if (summary) {
        summary->head_vertices = static_cast<uint64_t>(exporter.engineVertexCount());
        summary->morph_targets = asset.head.targets.size();
        summary->eye_meshes = asset.parts.size();
    }
    return {};
}

}  // namespace

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_set_thread_count(meridian_asset_builder* builder, unsigned threads) {
    return runCall(builder, [&]() -> Error {
        if (CBlendshapeEngine* engine = builder->exporter->blendshapeEngine())
            engine->setThreadCount(threads == 0
                                       ? blendshape::defaultThreadCount(blendshape::kRegionCount)
                                       : static_cast<int>(std::min<unsigned>(threads, INT_MAX)));
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_build(meridian_asset_builder* builder, const float* head, size_t head_count,
                             meridian_asset_report* report) {
    return meridian_asset_builder_build_staged(builder, head, head_count, report, nullptr, nullptr,
                                               nullptr);
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build_batch(
    meridian_asset_builder* builder, const float* heads, size_t heads_count, size_t batch_size,
    meridian_asset_report* reports, size_t reports_count) {
    return runCall(builder, [&]() -> Error {
        constexpr size_t headFloats = CBlendshapeEngine::kHeadFloats;
        constexpr size_t shapeFloats = CBlendshapeEngine::kShapeFloats;
        if (Error error = checkHeadBatch(heads, heads_count, batch_size, shapeFloats)) return error;
        if (reports != nullptr && reports_count != batch_size)
            return {ErrorCode::invalidArgument, "",
                    "the reports have room for " + std::to_string(reports_count) +
                        " heads; the batch has " + std::to_string(batch_size)};
        // One pass over the basis rows serves every head of the batch.
        std::vector<float> shapes;
        if (const CBlendshapeEngine* engine = builder->exporter->blendshapeEngine()) {
            shapes.resize(batch_size * shapeFloats);
            engine->generateBatch(heads, static_cast<int>(batch_size), shapes.data());
        }
        std::vector<std::string> glbs(batch_size);
        ex::StageLog log;
        for (size_t k = 0; k < batch_size; ++k)
            if (Error error = buildOne(*builder->exporter, heads + k * headFloats,
                                       shapes.empty() ? nullptr : shapes.data() + k * shapeFloats,
                                       log, glbs[k], reports ? reports + k : nullptr)) {
                error.message = "head " + std::to_string(k) + ": " + error.message;
                return error;
            }
        builder->glbs = std::move(glbs);
        return {};
    });
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_asset_builder_asset_count(const meridian_asset_builder* builder) {
    return builder == nullptr ? 0 : builder->glbs.size();
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_asset_builder_glb_size_at(const meridian_asset_builder* builder, size_t index) {
    return builder == nullptr || index >= builder->glbs.size() ? 0 : builder->glbs[index].size();
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_asset_builder_glb_size(const meridian_asset_builder* builder) {
    return meridian_asset_builder_glb_size_at(builder, 0);
}

namespace {

/// Copies asset `index`; before the first build, asset 0 is empty.
Error copyGlb(const meridian_asset_builder& builder, size_t index, uint8_t* out, size_t out_count) {
    static const std::string none;
    if (index >= builder.glbs.size() && !(index == 0 && builder.glbs.empty()))
        return {ErrorCode::invalidArgument, "",
                "asset " + std::to_string(index) + " of " + std::to_string(builder.glbs.size()) +
                    " built"};
    const std::string& glb = builder.glbs.empty() ? none : builder.glbs[index];
    if (Error error = checkOutput(out, out_count, glb.size(), "the output")) return error;
    std::copy(glb.begin(), glb.end(), out);
    return {};
}

}  // namespace

extern "C" MERIDIAN_MODERN_API meridian_status meridian_asset_builder_copy_glb_at(
    meridian_asset_builder* builder, size_t index, uint8_t* out, size_t out_count) {
    return runCall(builder, [&] { return copyGlb(*builder, index, out, out_count); });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_copy_glb(meridian_asset_builder* builder, uint8_t* out, size_t out_count) {
    return runCall(builder, [&] { return copyGlb(*builder, 0, out, out_count); });
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_write_glb(meridian_asset_builder* builder, const char* path) {
    return runCall(builder, [&]() -> Error {
        if (Error error = checkPath(path, "the path")) return error;
        if (builder->glbs.empty()) return {ErrorCode::incomplete, "", "no asset built yet"};
        return writeAtomically(builder->glbs[0], path);
    });
}

#else

struct meridian_asset_builder {
    LastError lastError;
};

extern "C" MERIDIAN_MODERN_API meridian_asset_builder* meridian_asset_builder_open(const char*, int,
                                                                                   int, double) {
    openError() = {ErrorCode::unavailable, "", "this build has no asset builder (no tinygltf)"};
    return nullptr;
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build(
    meridian_asset_builder*, const float*, size_t, meridian_asset_report*) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_set_thread_count(meridian_asset_builder*, unsigned) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build_batch(
    meridian_asset_builder*, const float*, size_t, size_t, meridian_asset_report*, size_t) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_asset_builder_asset_count(const meridian_asset_builder*) {
    return 0;
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_asset_builder_glb_size_at(const meridian_asset_builder*, size_t) {
    return 0;
}

extern "C" MERIDIAN_MODERN_API size_t
meridian_asset_builder_glb_size(const meridian_asset_builder*) {
    return 0;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_copy_glb_at(meridian_asset_builder*, size_t, uint8_t*, size_t) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_copy_glb(meridian_asset_builder*, uint8_t*, size_t) {
    return MERIDIAN_NOT_LOADED;
}

extern "C" MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_write_glb(meridian_asset_builder*, const char*) {
    return MERIDIAN_NOT_LOADED;
}

#endif

extern "C" MERIDIAN_MODERN_API void meridian_asset_builder_close(meridian_asset_builder* builder) {
    delete builder;
}

extern "C" MERIDIAN_MODERN_API const char* meridian_asset_builder_last_error(
    const meridian_asset_builder* builder) {
    return lastErrorOf(builder);
}

// Builder calls that tell a caller (the tool) each stage as it starts, and
// what the asset holds; the plain calls are these without a listener.
#if defined(MERIDIAN_WITH_ASSET)

extern "C" MERIDIAN_MODERN_API meridian_asset_builder* meridian_asset_builder_open_staged(
    const char* model_dir, int with_blendshapes, int with_eyes, double metres_per_unit,
    meridian_stage_callback on_stage, void* user) {
    return openHandle<meridian_asset_builder>([&](meridian_asset_builder& builder, Error& error) {
        error = checkPath(model_dir, "the model directory");
        if (error) return false;
        if (!(metres_per_unit >= 0) || !std::isfinite(metres_per_unit)) {
            error = {ErrorCode::invalidArgument, "", "metres per unit must be finite and >= 0"};
            return false;
        }
        // Every file the asked parts read, strictly, before any engine loads.
        checkModel(model_dir, {ModelTask::headSwap, ModelTask::engineHeadMesh});
        if (with_blendshapes) checkModel(model_dir, ModelTask::blendshapes);
        if (with_eyes)
            checkModel(model_dir,
                       {ModelTask::eyeballFit, ModelTask::eyeballAligner, ModelTask::eyelashAligner,
                        ModelTask::eyeballExportMesh, ModelTask::eyelashExportMesh});
        ex::ExportSettings settings;
        settings.modelDir = model_dir;
        settings.blendshapes = with_blendshapes != 0;
        settings.eyes = with_eyes != 0;
        if (metres_per_unit > 0) settings.transform.metresPerUnit = metres_per_unit;
        ex::StageLog log = stageLog(on_stage, user);
        try {
            builder.exporter = std::make_unique<ex::HeadExporter>(settings, log);
        } catch (const ex::ExportError& e) {
            error = {ErrorCode::cannotOpen, model_dir, e.what()};
            return false;
        }
        return true;
    });
}

extern "C" MERIDIAN_MODERN_API meridian_asset_builder* meridian_asset_builder_open(
    const char* model_dir, int with_blendshapes, int with_eyes, double metres_per_unit) {
    return meridian_asset_builder_open_staged(model_dir, with_blendshapes, with_eyes,
                                              metres_per_unit, nullptr, nullptr);
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build_staged(
    meridian_asset_builder* builder, const float* head, size_t head_count,
    meridian_asset_report* report, meridian_stage_callback on_stage, void* user,
    meridian_asset_summary* summary) {
    return runCall(builder, [&]() -> Error {
        if (Error error = checkHead(head, head_count)) return error;
        ex::StageLog log = stageLog(on_stage, user);
        std::vector<std::string> glbs(1);
        if (Error error =
                buildOne(*builder->exporter, head, nullptr, log, glbs[0], report, summary))
            return error;
        builder->glbs = std::move(glbs);
        return {};
    });
}

#else

extern "C" MERIDIAN_MODERN_API meridian_asset_builder* meridian_asset_builder_open_staged(
    const char* model_dir, int with_blendshapes, int with_eyes, double metres_per_unit,
    meridian_stage_callback, void*) {
    return meridian_asset_builder_open(model_dir, with_blendshapes, with_eyes, metres_per_unit);
}

extern "C" MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build_staged(
    meridian_asset_builder*, const float*, size_t, meridian_asset_report*, meridian_stage_callback,
    void*, meridian_asset_summary*) {
    return MERIDIAN_NOT_LOADED;
}

#endif
