// Writes the demo model directory.
#include <filesystem>
#include <fstream>
#include <system_error>

#include "demo/blendshape_demo.h"
#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "demo/head_topology.h"
#include "demo/text_out.h"

namespace meridian::demo {

namespace {

namespace fs = std::filesystem;
using detail::TextOut;

// Binary mode: "\n" line ends on every platform.
bool writeFile(const fs::path& path, const std::string& text, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    if (!out) {
        error = "cannot open " + path.string() + " for writing";
        return false;
    }
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    if (!out) {
        error = "cannot write " + path.string();
        return false;
    }
    return true;
}

void appendVertexLines(TextOut& out, const Eigen::Matrix3Xd& vertices) {
    for (Eigen::Index j = 0; j < vertices.cols(); ++j)
        out << "v " << static_cast<float>(vertices(0, j)) << ' '
            << static_cast<float>(vertices(1, j)) << ' ' << static_cast<float>(vertices(2, j))
            << '\n';
}

/// OBJ with "v", "vt" and "f a/b" records (1-based). No comments: the
/// readers take every token after a keyword as data.
std::string objText(const Eigen::Matrix3Xd& vertices, const Eigen::Matrix2Xd& uvs,
                    const Eigen::Matrix3Xi& faces, const Eigen::Matrix3Xi& uvFaces) {
    TextOut out(64 * static_cast<size_t>(vertices.cols() + uvs.cols() + faces.cols()));
    appendVertexLines(out, vertices);
    for (Eigen::Index t = 0; t < uvs.cols(); ++t)
        out << "vt " << static_cast<float>(uvs(0, t)) << ' ' << static_cast<float>(uvs(1, t))
            << '\n';
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        out << 'f';
        for (int c = 0; c < 3; ++c) out << ' ' << faces(c, f) + 1 << '/' << uvFaces(c, f) + 1;
        out << '\n';
    }
    return out.str();
}

/// PLY readers parse full doubles, so each float value is written with the
/// digits of its exact double.
std::string plyText(const Eigen::Matrix3Xd& vertices) {
    TextOut out(40 * static_cast<size_t>(vertices.cols()));
    out << "ply\nformat ascii 1.0\nelement vertex " << static_cast<int>(vertices.cols())
        << "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
    for (Eigen::Index j = 0; j < vertices.cols(); ++j)
        out << vertices(0, j) << ' ' << vertices(1, j) << ' ' << vertices(2, j) << '\n';
    return out.str();
}

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

/// Pair correspondence, base 0: the head vertex each engine vertex copies.
std::string headToEngineText(const DemoTopology& t) {
    const int count = static_cast<int>(t.engineToHead.size());
    TextOut out(16 * static_cast<size_t>(count));
    out << "# base 0\n# element count " << count << '\n'
        << "# source: head, " << kHeadVertexCount << " vertices\n"
        << "# target: engine, " << count << " vertices\n"
        << "# end_header\n";
    for (int e = 0; e < count; ++e) out << e << ' ' << t.engineToHead[e] << '\n';
    return out.str();
}

std::string indexListText(const std::vector<int>& list) {
    TextOut out(8 * list.size());
    for (int value : list) out << value << '\n';
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

    const std::pair<fs::path, std::string> files[] = {
        {"idx_tavi2head.corresp", templateToHeadText(t)},
        {"idx_head2ue4.corresp", headToEngineText(t)},
        {"ue4_head.obj", objText(engineVertices, t.engineUvs, t.engineFaces, t.engineFaces)},
        {"sample_head.obj", objText(sample, head.uvs, head.faces, head.uvFaces)},
        {"sample_head.ply", plyText(sample)},
        {"TBN/std_20481_with_UV_F_TF.obj",
         objText(head.vertices, head.uvs, head.faces, head.uvFaces)},
        {"TBN/head_split_uv.obj",
         objText(splitVertices, t.splitTemplateUvs, t.splitTemplateFaces, t.splitTemplateFaces)},
        {"TBN/idx_tavi2head.txt", indexListText(t.splitTemplateToTemplate)},
        {"TBN/idx_head2tavi.txt", indexListText(t.templateToSplitTemplate)},
    };
    for (const auto& [name, text] : files)
        if (!writeFile(root / name, text, error)) return false;
    if (!writeDemoEyeModel(dir, error)) return false;
    return !options.blendshapes || writeBlendshapeDemoData(dir, error);
}

}  // namespace meridian::demo
