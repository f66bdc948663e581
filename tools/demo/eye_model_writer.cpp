// Writes the "eyeball/" and "eyelash/" folders of the demo model set.
#include <filesystem>
#include <fstream>
#include <system_error>
#include <utility>

#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "demo/text_out.h"

namespace meridian::demo {

namespace {

namespace fs = std::filesystem;
using detail::TextOut;

bool writeText(const fs::path& path, const std::string& text, std::string& error) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(text.data(), static_cast<std::streamsize>(text.size()));
    out.close();
    if (!out) {
        error = "cannot write " + path.string();
        return false;
    }
    return true;
}

void appendVertices(TextOut& out, const Eigen::Matrix3Xd& vertices) {
    for (Eigen::Index v = 0; v < vertices.cols(); ++v)
        out << "v " << static_cast<float>(vertices(0, v)) << ' '
            << static_cast<float>(vertices(1, v)) << ' ' << static_cast<float>(vertices(2, v))
            << '\n';
}

/// "v" and "f a b c" records (1-based); with `uvs`, "vt" records too and
/// faces "f a/a b/b c/c" (one texture coordinate per vertex).
std::string objText(const Eigen::Matrix3Xd& vertices, const Eigen::Matrix3Xi& faces,
                    const Eigen::Matrix2Xd* uvs) {
    TextOut out(64 * static_cast<size_t>(vertices.cols() + faces.cols()));
    appendVertices(out, vertices);
    if (uvs)
        for (Eigen::Index t = 0; t < uvs->cols(); ++t)
            out << "vt " << static_cast<float>((*uvs)(0, t)) << ' '
                << static_cast<float>((*uvs)(1, t)) << '\n';
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        out << 'f';
        for (int c = 0; c < 3; ++c) {
            out << ' ' << faces(c, f) + 1;
            if (uvs) out << '/' << faces(c, f) + 1;
        }
        out << '\n';
    }
    return out.str();
}

/// ASCII PLY with exactly nine header lines; coordinates with the digits of
/// their exact double (PLY readers parse full doubles).
std::string plyText(const EyeMesh& mesh) {
    TextOut out(48 * static_cast<size_t>(mesh.vertices.cols() + mesh.faces.cols()));
    out << "ply\nformat ascii 1.0\nelement vertex " << static_cast<int>(mesh.vertices.cols())
        << "\nproperty float x\nproperty float y\nproperty float z\nelement face "
        << static_cast<int>(mesh.faces.cols())
        << "\nproperty list uchar int vertex_indices\nend_header\n";
    for (Eigen::Index v = 0; v < mesh.vertices.cols(); ++v)
        out << mesh.vertices(0, v) << ' ' << mesh.vertices(1, v) << ' ' << mesh.vertices(2, v)
            << '\n';
    for (Eigen::Index f = 0; f < mesh.faces.cols(); ++f)
        out << "3 " << mesh.faces(0, f) << ' ' << mesh.faces(1, f) << ' ' << mesh.faces(2, f)
            << '\n';
    return out.str();
}

/// A mesh in export order: export vertex e is mesh vertex order[e].
EyeMesh reordered(const EyeMesh& mesh, const std::vector<int>& order) {
    EyeMesh result;
    const Eigen::Index n = static_cast<Eigen::Index>(order.size());
    result.vertices.resize(3, n);
    result.uvs.resize(2, n);
    std::vector<int> exportOf(mesh.vertices.cols(), -1);
    for (Eigen::Index e = 0; e < n; ++e) {
        result.vertices.col(e) = mesh.vertices.col(order[e]);
        result.uvs.col(e) = mesh.uvs.col(order[e]);
        exportOf[order[e]] = static_cast<int>(e);
    }
    result.faces = mesh.faces.unaryExpr([&](int v) { return exportOf[v]; });
    return result;
}

/// Pair correspondence, base 0: export vertex -> mesh vertex.
std::string exportOrderText(const std::vector<int>& order, const char* source) {
    TextOut out(16 * order.size());
    out << "# base 0\n# element count " << static_cast<int>(order.size())
        << "\n# source: " << source << "\n# target: export order\n# end_header\n";
    for (size_t e = 0; e < order.size(); ++e) out << static_cast<int>(e) << ' ' << order[e] << '\n';
    return out.str();
}

/// Head vertex -> mesh point. Weighted form, base 1 (the first two fields;
/// triangle corners are 0-based), with the mesh face as second field.
std::string weightedLinksText(const std::vector<HeadLink>& links) {
    TextOut out(80 * links.size());
    out << "# base 1\n# element count " << static_cast<int>(links.size())
        << "\n# source: eyeball mesh\n# target: head\n"
        << "# fields: head vertex, mesh face, mesh triangle (0-based), weights\n# end_header\n";
    for (const HeadLink& link : links) {
        out << link.headVertex + 1 << ' ' << link.meshFace + 1;
        for (int c : link.corners) out << ' ' << c;
        for (double w : link.weights) out << ' ' << w;
        out << '\n';
    }
    return out.str();
}

/// Head vertex -> mesh vertex. Pair form, base 0.
std::string pairLinksText(const std::vector<HeadLink>& links) {
    TextOut out(16 * links.size());
    out << "# base 0\n# element count " << static_cast<int>(links.size())
        << "\n# source: eyelash mesh\n# target: head\n# end_header\n";
    for (const HeadLink& link : links) out << link.headVertex << ' ' << link.corners[0] << '\n';
    return out.str();
}

std::string linkWeightsText(const std::vector<HeadLink>& links) {
    TextOut out(12 * links.size());
    for (const HeadLink& link : links) out << link.weight << '\n';
    return out.str();
}

std::string indexListText(const std::vector<int>& list) {
    TextOut out(8 * list.size());
    for (int value : list) out << value << '\n';
    return out.str();
}

template <typename T>
std::vector<T> joined(const std::array<std::vector<T>, 2>& sides) {
    std::vector<T> all = sides[0];
    all.insert(all.end(), sides[1].begin(), sides[1].end());
    return all;
}

}  // namespace

bool writeDemoEyeModel(const std::string& dir, std::string& error) {
    const fs::path root(dir);
    std::error_code ec;
    for (const char* sub : {"eyeball/color_eye", "eyelash"}) {
        fs::create_directories(root / sub, ec);
        if (ec) {
            error = "cannot create " + (root / sub).string() + ": " + ec.message();
            return false;
        }
    }
    const DemoEyes& eyes = demoEyes();
    const EyeMesh eyeballExport = reordered(eyes.eyeballs, eyes.eyeballExport);
    const EyeMesh eyelashExport = reordered(eyes.eyelashes, eyes.eyelashExport);
    const std::pair<const char*, std::string> files[] = {
        {"eyeball/new_eye.ply", plyText(eyes.eyeball)},
        {"eyeball/color_eye/EyeNew.obj",
         objText(eyes.eyeball.vertices, eyes.eyeball.faces, &eyes.eyeball.uvs)},
        {"eyeball/eyeball_tri.obj", objText(eyes.eyeballs.vertices, eyes.eyeballs.faces, nullptr)},
        {"eyeball/ue4_eyeball.obj",
         objText(eyeballExport.vertices, eyeballExport.faces, &eyeballExport.uvs)},
        {"eyeball/idx_head2eyeball.corresp", weightedLinksText(joined(eyes.eyeballLinks))},
        {"eyeball/idx_head2eyeball_left.corresp", weightedLinksText(eyes.eyeballLinks[0])},
        {"eyeball/idx_head2eyeball_right.corresp", weightedLinksText(eyes.eyeballLinks[1])},
        {"eyeball/w_head2eyeball_left.corresp", linkWeightsText(eyes.eyeballLinks[0])},
        {"eyeball/w_head2eyeball_right.corresp", linkWeightsText(eyes.eyeballLinks[1])},
        {"eyeball/idx_eyeball2ue4.corresp", exportOrderText(eyes.eyeballExport, "eyeball mesh")},
        {"eyeball/idx_eyeball_left.txt", indexListText(eyes.eyeballSide[0])},
        {"eyeball/idx_eyeball_right.txt", indexListText(eyes.eyeballSide[1])},
        {"eyelash/eyelash_tri.obj",
         objText(eyes.eyelashes.vertices, eyes.eyelashes.faces, nullptr)},
        {"eyelash/eyelash_bs01.obj",
         objText(eyes.eyelashBlendshape, eyes.eyelashes.faces, nullptr)},
        {"eyelash/ue4_eyelash.obj",
         objText(eyelashExport.vertices, eyelashExport.faces, &eyelashExport.uvs)},
        {"eyelash/idx_head2eyelash.corresp", pairLinksText(joined(eyes.eyelashLinks))},
        {"eyelash/idx_head2eyelash_left.corresp", pairLinksText(eyes.eyelashLinks[0])},
        {"eyelash/idx_head2eyelash_right.corresp", pairLinksText(eyes.eyelashLinks[1])},
        {"eyelash/idx_eyelash2ue4.corresp", exportOrderText(eyes.eyelashExport, "eyelash mesh")},
        {"eyelash/idx_eyelash_left.txt", indexListText(eyes.eyelashSide[0])},
        {"eyelash/idx_eyelash_right.txt", indexListText(eyes.eyelashSide[1])},
    };
    for (const auto& [name, text] : files)
        if (!writeText(root / name, text, error)) return false;
    return true;
}

}  // namespace meridian::demo
