#include "demo/model_files.h"

#include "demo/text_out.h"
#include "io/atomic_file.h"
#include "io/input_error.h"

namespace meridian::demo::detail {

bool writeTextFile(const std::filesystem::path& path, const std::string& text, std::string& error) {
    // Atomic like every file a tool writes: a failed run keeps an earlier
    // model file as it was and leaves no partial one.
    try {
        kestrel::meridian::writeFileAtomically(path.string(), text);
    } catch (const kestrel::meridian::InputError& e) {
        error = e.what();
        return false;
    }
    return true;
}

std::string objText(const Eigen::Matrix3Xd& vertices, const Eigen::Matrix3Xi& faces,
                    const Eigen::Matrix2Xd* uvs, const Eigen::Matrix3Xi* uvFaces) {
    const Eigen::Index uvCount = uvs ? uvs->cols() : 0;
    TextOut out(64 * static_cast<size_t>(vertices.cols() + uvCount + faces.cols()));
    for (Eigen::Index v = 0; v < vertices.cols(); ++v)
        out << "v " << static_cast<float>(vertices(0, v)) << ' '
            << static_cast<float>(vertices(1, v)) << ' ' << static_cast<float>(vertices(2, v))
            << '\n';
    for (Eigen::Index t = 0; t < uvCount; ++t)
        out << "vt " << static_cast<float>((*uvs)(0, t)) << ' ' << static_cast<float>((*uvs)(1, t))
            << '\n';
    for (Eigen::Index f = 0; f < faces.cols(); ++f) {
        out << 'f';
        for (int c = 0; c < 3; ++c) {
            out << ' ' << faces(c, f) + 1;
            if (uvs) out << '/' << (uvFaces ? (*uvFaces)(c, f) : faces(c, f)) + 1;
        }
        out << '\n';
    }
    return out.str();
}

std::string plyText(const Eigen::Matrix3Xd& vertices, const Eigen::Matrix3Xi* faces) {
    const Eigen::Index faceCount = faces ? faces->cols() : 0;
    TextOut out(48 * static_cast<size_t>(vertices.cols() + faceCount));
    out << "ply\nformat ascii 1.0\nelement vertex " << static_cast<int>(vertices.cols())
        << "\nproperty float x\nproperty float y\nproperty float z\n";
    if (faces)
        out << "element face " << static_cast<int>(faceCount)
            << "\nproperty list uchar int vertex_indices\n";
    out << "end_header\n";
    for (Eigen::Index v = 0; v < vertices.cols(); ++v)
        out << vertices(0, v) << ' ' << vertices(1, v) << ' ' << vertices(2, v) << '\n';
    for (Eigen::Index f = 0; f < faceCount; ++f)
        out << "3 " << (*faces)(0, f) << ' ' << (*faces)(1, f) << ' ' << (*faces)(2, f) << '\n';
    return out.str();
}

std::string pairCorrespondenceText(const std::vector<int>& sources, std::string_view sourceLabel,
                                   std::string_view targetLabel, const std::vector<int>* targets) {
    const int count = static_cast<int>(sources.size());
    TextOut out(16 * sources.size() + 128);
    out << "# base 0\n# element count " << count << "\n# source: " << sourceLabel
        << "\n# target: " << targetLabel << "\n# end_header\n";
    for (int k = 0; k < count; ++k)
        out << (targets ? (*targets)[k] : k) << ' ' << sources[k] << '\n';
    return out.str();
}

std::string indexListText(const std::vector<int>& list) {
    TextOut out(8 * list.size());
    for (int value : list) out << value << '\n';
    return out.str();
}

}  // namespace meridian::demo::detail
