#include "obj_text.h"

#include <cstdio>
#include <string_view>

#include "cli_common.h"
#include "io/whole_file.h"

namespace meridian::cli {

std::string vertexObjText(const Eigen::Matrix3Xd& vertices) {
    std::string text;
    char line[128];
    for (Eigen::Index k = 0; k < vertices.cols(); ++k) {
        std::snprintf(line, sizeof line, "v %.9g %.9g %.9g\n", vertices(0, k), vertices(1, k),
                      vertices(2, k));
        text += line;
    }
    return text;
}

std::string objWithVertexLines(const std::string& templatePath, const Eigen::Matrix3Xd& vertices) {
    const std::string in = kestrel::meridian::readWholeFile(templatePath);
    std::string out;
    out.reserve(in.size() + in.size() / 4);
    Eigen::Index next = 0;
    char buffer[1100];  // three "%f" of any double
    size_t start = 0;
    while (start < in.size()) {
        size_t end = in.find('\n', start);
        const bool lastLine = end == std::string::npos;
        if (lastLine) end = in.size();
        const std::string_view line(in.data() + start, end - start);
        if (line.size() >= 2 && line[0] == 'v' && line[1] == ' ' && next < vertices.cols()) {
            const auto v = vertices.col(next++);
            std::snprintf(buffer, sizeof buffer, "v %f %f %f", v.x(), v.y(), v.z());
            out += buffer;
        } else {
            out.append(line);
        }
        if (!lastLine) out += '\n';
        start = end + 1;
    }
    return out;
}

}  // namespace meridian::cli
