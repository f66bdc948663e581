// The whole chain from a reconstructed head to a head asset: head swap into
// the engine's vertex order, the five regional blendshapes as morph targets,
// eyeballs and eyelashes placed by the aligners, all in glTF's frame and
// units. The exporter owns its engines; nothing is shared with any other
// exporter or with the C interfaces.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "asset_quality.h"
#include "blendshape/blendshape_engine.h"
#include "engine_mesh.h"
#include "export_error.h"
#include "eye_sides.h"
#include "eyes/eyeball_aligner.h"
#include "eyes/eyeball_fit_state.h"
#include "gltf_asset.h"
#include "headswap/head_converter.h"
#include "model_to_gltf.h"

namespace meridian::exporter {

struct ExportSettings {
    std::string modelDir;
    bool blendshapes = true;  ///< morph targets from "BS/", named as the regions
    bool eyes = true;         ///< eyeball and eyelash nodes
    ModelToGltf transform;
};

/// Runs the export. Construction loads every engine the asset needs once;
/// run() may then be called for any number of heads. Exporters are
/// independent of each other.
class HeadExporter {
  public:
    /// Checks the model directory for every file the asked parts need, reads
    /// the engine-order meshes and loads the engines, as the stages "model
    /// check", "load head swap", "load blendshape data" and "load eye
    /// models". Throws ExportError naming what is missing or unusable.
    HeadExporter(const ExportSettings& settings, StageLog& log);
    ~HeadExporter();
    HeadExporter(const HeadExporter&) = delete;
    HeadExporter& operator=(const HeadExporter&) = delete;

    /// The asset of one head: 3 * 20481 planar floats in the template
    /// topology (all x, all y, all z). Stages "head swap", "blendshapes",
    /// "eyes" and "normals". Throws ExportError when a call fails.
    HeadAsset run(const std::vector<float>& head, StageLog& log) const;

    /// run() with the head's blendshapes already generated (by
    /// blendshapeEngine()->generateBatch for a chunk of heads); null
    /// generates them here.
    /// shapes: 6 x 3 x 20481 floats, as CBlendshapeEngine::generate writes
    HeadAsset run(const std::vector<float>& head, const float* shapes, StageLog& log) const;

    /// The blendshape engine, null when the settings leave blendshapes out.
    kestrel::meridian::CBlendshapeEngine* blendshapeEngine() const { return blendshapes_.get(); }

    /// The asset's QA figures: measureAsset, and the eyeball aligner's
    /// whole-mesh scale for `head` (the input run() was given).
    AssetQuality quality(const std::vector<float>& head, const HeadAsset& asset) const;

    /// Vertices of the head in engine order.
    Eigen::Index engineVertexCount() const { return head_.count; }

  private:
    /// A mesh in an engine's vertex order, as the model describes it.
    struct EngineMesh {
        Eigen::Index count = 0;
        EngineMeshLayout layout;
        std::vector<int> copyOf;     ///< copy ids, for seamless normals
        int idCount = 0;             ///< distinct copy ids (the head's only)
        Eigen::Matrix3Xi cornerIds;  ///< copy id of every face corner (the head's only)
    };
    /// An aligner's export-order mesh, split into the subject's left and right.
    struct EyeMesh {
        EngineMesh mesh;
        std::array<MeshSide, 2> sides;
        std::unique_ptr<kestrel::meridian::CKOVAEyeballAligner> aligner;
    };

    std::vector<float> swap(const float* head) const;
    EyeMesh loadEyeMesh(const char* templateFile, const char* exportFile, const char* leftFile,
                        const char* rightFile) const;
    void addEyes(const std::vector<float>& head, HeadAsset& asset) const;
    /// The head's node: positions and normals of `engineHead` (3 by #V
    /// planar floats, engine order) and one morph target per entry of
    /// `shapes` (each 3 by #V planar floats), all in glTF.
    void addHead(const std::vector<float>& engineHead,
                 const std::vector<std::vector<float>>& shapes, MeshNode& node) const;

    ExportSettings settings_;
    EngineMesh head_;
    EyeMesh eyeballs_, eyelashes_;
    kestrel::meridian::CHeadConverter headSwap_;
    std::unique_ptr<kestrel::meridian::CBlendshapeEngine> blendshapes_;
    std::unique_ptr<kestrel::meridian::EyeballFitState> eyeballFit_;
};

}  // namespace meridian::exporter
