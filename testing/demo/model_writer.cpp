// Writes the demo model directory.
#include <filesystem>
#include <system_error>

#include "demo/blendshape_demo.h"
#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "demo/head_topology.h"
#include "demo/model_files.h"
#include "demo/text_out.h"

namespace meridian::demo {

namespace {

namespace fs = std::filesystem;
using namespace detail;

/// Weighted correspondence, base 1: each head vertex as a blend of a
/// template triangle. The second field is the template face of the blend.
std::string templateToHeadText(const DemoTopology& t) {
    const int count = static_cast<int>(t.blendFace.size());
    TextOut out(64 * static_cast<size_t>(count));
    out << "# base 1\n# element count " << count << '\n'
        << "# source: template, " << kTemplateVertexCount << " vertices\n"
        << "# target: head, " << count << " vertices\n"
        << "# fields: head vertex, template face, template triangle (0-based), weights\n"
        << "# end_header\n";
    for (int k = 0; k < count; ++k) {
        out << k + 1 << ' ' << t.blendFace[k] + 1;
        for (int c = 0; c < 3; ++c) out << ' ' << t.blendCorners(c, k);
        for (int c = 0; c < 3; ++c) out << ' ' << t.blendWeights(c, k);
        out << '\n';
    }
    return out.str();
}

Eigen::Matrix3Xd gatherColumns(const Eigen::Matrix3Xd& source, const std::vector<int>& ids) {
    Eigen::Matrix3Xd result(3, static_cast<Eigen::Index>(ids.size()));
    for (size_t k = 0; k < ids.size(); ++k)
        result.col(static_cast<Eigen::Index>(k)) = source.col(ids[k]);
    return result;
}

}  // namespace

bool writeDemoModel(const std::string& dir, std::string& error, const DemoModelOptions& options) {
    const fs::path root(dir);
    std::error_code ec;
    fs::create_directories(root / "TBN", ec);
    if (ec) {
        error = "cannot create " + (root / "TBN").string() + ": " + ec.message();
        return false;
    }
    const DemoHead& head = demoHead();
    const DemoTopology& t = demoTopology();
    const Eigen::Matrix3Xd sample = sampleHead();
    const Eigen::Matrix3Xd engineVertices =
        gatherColumns(templateToHead(head.vertices), t.engineToHead);
    const Eigen::Matrix3Xd splitVertices = gatherColumns(head.vertices, t.splitTemplateToTemplate);
    const std::string headLabel = "head, " + std::to_string(kHeadVertexCount) + " vertices";
    const std::string engineLabel =
        "engine, " + std::to_string(t.engineToHead.size()) + " vertices";

    const std::pair<fs::path, std::string> files[] = {
        {"idx_tavi2head.corresp", templateToHeadText(t)},
        {"idx_head2ue4.corresp", pairCorrespondenceText(t.engineToHead, headLabel, engineLabel)},
        {"ue4_head.obj", objText(engineVertices, t.engineFaces, &t.engineUvs)},
        {"sample_head.obj", objText(sample, head.faces, &head.uvs, &head.uvFaces)},
        {"sample_head.ply", plyText(sample)},
        {"TBN/std_20481_with_UV_F_TF.obj",
         objText(head.vertices, head.faces, &head.uvs, &head.uvFaces)},
        {"TBN/head_split_uv.obj",
         objText(splitVertices, t.splitTemplateFaces, &t.splitTemplateUvs)},
        {"TBN/idx_tavi2head.txt", indexListText(t.splitTemplateToTemplate)},
        {"TBN/idx_head2tavi.txt", indexListText(t.templateToSplitTemplate)},
    };
    for (const auto& [name, text] : files)
        if (!writeTextFile(root / name, text, error)) return false;
    if (!writeDemoEyeModel(dir, error)) return false;
    return !options.blendshapes || writeBlendshapeDemoData(dir, error);
}

}  // namespace meridian::demo
