// Writes the "eyeball/" and "eyelash/" folders of the demo model set.
#include <filesystem>
#include <system_error>
#include <utility>

#include "demo/demo_model.h"
#include "demo/eye_model.h"
#include "demo/model_files.h"
#include "demo/text_out.h"

namespace meridian::demo {

namespace {

namespace fs = std::filesystem;
using namespace detail;

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

/// Head vertex -> lash vertex. Pair form, base 0.
std::string lashLinksText(const std::vector<HeadLink>& links) {
    std::vector<int> heads, lash;
    for (const HeadLink& link : links) {
        heads.push_back(link.headVertex);
        lash.push_back(link.corners[0]);
    }
    return pairCorrespondenceText(lash, "eyelash mesh", "head", &heads);
}

std::string linkWeightsText(const std::vector<HeadLink>& links) {
    TextOut out(12 * links.size());
    for (const HeadLink& link : links) out << link.weight << '\n';
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
        {"eyeball/new_eye.ply", plyText(eyes.eyeball.vertices, &eyes.eyeball.faces)},
        {"eyeball/color_eye/EyeNew.obj",
         objText(eyes.eyeball.vertices, eyes.eyeball.faces, &eyes.eyeball.uvs)},
        {"eyeball/eyeball_tri.obj", objText(eyes.eyeballs.vertices, eyes.eyeballs.faces)},
        {"eyeball/ue4_eyeball.obj",
         objText(eyeballExport.vertices, eyeballExport.faces, &eyeballExport.uvs)},
        {"eyeball/idx_head2eyeball.corresp", weightedLinksText(joined(eyes.eyeballLinks))},
        {"eyeball/idx_head2eyeball_left.corresp", weightedLinksText(eyes.eyeballLinks[0])},
        {"eyeball/idx_head2eyeball_right.corresp", weightedLinksText(eyes.eyeballLinks[1])},
        {"eyeball/w_head2eyeball_left.corresp", linkWeightsText(eyes.eyeballLinks[0])},
        {"eyeball/w_head2eyeball_right.corresp", linkWeightsText(eyes.eyeballLinks[1])},
        {"eyeball/idx_eyeball2ue4.corresp",
         pairCorrespondenceText(eyes.eyeballExport, "eyeball mesh", "export order")},
        {"eyeball/idx_eyeball_left.txt", indexListText(eyes.eyeballSide[0])},
        {"eyeball/idx_eyeball_right.txt", indexListText(eyes.eyeballSide[1])},
        {"eyelash/eyelash_tri.obj", objText(eyes.eyelashes.vertices, eyes.eyelashes.faces)},
        {"eyelash/eyelash_bs01.obj", objText(eyes.eyelashBlendshape, eyes.eyelashes.faces)},
        {"eyelash/ue4_eyelash.obj",
         objText(eyelashExport.vertices, eyelashExport.faces, &eyelashExport.uvs)},
        {"eyelash/idx_head2eyelash.corresp", lashLinksText(joined(eyes.eyelashLinks))},
        {"eyelash/idx_head2eyelash_left.corresp", lashLinksText(eyes.eyelashLinks[0])},
        {"eyelash/idx_head2eyelash_right.corresp", lashLinksText(eyes.eyelashLinks[1])},
        {"eyelash/idx_eyelash2ue4.corresp",
         pairCorrespondenceText(eyes.eyelashExport, "eyelash mesh", "export order")},
        {"eyelash/idx_eyelash_left.txt", indexListText(eyes.eyelashSide[0])},
        {"eyelash/idx_eyelash_right.txt", indexListText(eyes.eyelashSide[1])},
    };
    for (const auto& [name, text] : files)
        if (!writeTextFile(root / name, text, error)) return false;
    return true;
}

}  // namespace meridian::demo
