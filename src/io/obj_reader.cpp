// OBJ reader: the whole file is read into memory and tokenised in place;
// numbers are converted with std::from_chars, which rounds exactly like
// stream extraction of a float.
#include <cfloat>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

bool isSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Conversion of a token as `std::istringstream(token) >> float` does it: the
// longest prefix of the form [+-]digits[.digits][(e|E)[+-]digits] is
// converted, a failed extraction gives 0 and an overflow gives +-FLT_MAX. An
// exponent marker without digits fails the whole extraction.
float parseFloat(const char* begin, const char* end) {
    const char* p = begin;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
    const char* mantissa = p;
    bool anyDigit = false;
    while (p < end && isDigit(*p)) ++p, anyDigit = true;
    if (p < end && *p == '.') {
        ++p;
        while (p < end && isDigit(*p)) ++p, anyDigit = true;
    }
    if (!anyDigit) return 0.0f;
    if (p < end && (*p == 'e' || *p == 'E')) {
        const char* exponent = p + 1;
        if (exponent < end && (*exponent == '+' || *exponent == '-')) ++exponent;
        if (exponent == end || !isDigit(*exponent)) return 0.0f;
        while (exponent < end && isDigit(*exponent)) ++exponent;
        p = exponent;
    }
    float value = 0.0f;
    if (std::from_chars(mantissa, p, value).ec != std::errc()) {
        // Out of range: strtof gives the rounded subnormal or zero on
        // underflow; stream extraction turns an overflow into FLT_MAX.
        const std::string digits(mantissa, p);
        value = std::strtof(digits.c_str(), nullptr);
        if (value > FLT_MAX) value = FLT_MAX;
    }
    return negative ? -value : value;
}

Eigen::MatrixXd toMatrix(const std::vector<float>& values, Eigen::Index rows) {
    const Eigen::Index cols = static_cast<Eigen::Index>(values.size()) / rows;
    return Eigen::Map<const Eigen::MatrixXf>(values.data(), rows, cols).cast<double>();
}

}  // namespace

ObjMeshData parseObj(std::string_view text) {
    enum class Mode { none, vertex, texture, face };
    Mode mode = Mode::none;
    std::vector<float> vertices, texcoords, faces, textureFaces;
    // About 30 bytes per number group keeps reallocation rare.
    vertices.reserve(text.size() / 30);
    faces.reserve(text.size() / 30);

    const char* p = text.data();
    const char* const end = p + text.size();
    while (true) {
        while (p < end && isSpace(*p)) ++p;
        if (p == end) break;
        const char* const token = p;
        while (p < end && !isSpace(*p)) ++p;
        const size_t length = static_cast<size_t>(p - token);

        if (length == 1 && token[0] == 'v') {
            mode = Mode::vertex;
        } else if (length == 2 && token[0] == 'v' && token[1] == 't') {
            mode = Mode::texture;
        } else if (length == 1 && token[0] == 'f') {
            mode = Mode::face;
        } else if (mode == Mode::vertex) {
            vertices.push_back(parseFloat(token, p));
        } else if (mode == Mode::texture) {
            texcoords.push_back(parseFloat(token, p));
        } else if (mode == Mode::face) {
            const char* slash = token;
            while (slash < p && *slash != '/') ++slash;
            faces.push_back(parseFloat(token, slash));
            if (slash < p) textureFaces.push_back(parseFloat(slash + 1, p));
        }
    }

    ObjMeshData mesh;
    mesh.vertices = toMatrix(vertices, 3);
    mesh.texcoords = toMatrix(texcoords, 2);
    mesh.faces = toMatrix(faces, 3);
    mesh.textureFaces = toMatrix(textureFaces, 3);
    return mesh;
}

ObjMeshData readObj(const std::string& path) {
    std::string text;
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
        if (std::fseek(file, 0, SEEK_END) == 0) {
            const long size = std::ftell(file);
            if (size > 0 && std::fseek(file, 0, SEEK_SET) == 0) {
                text.resize(static_cast<size_t>(size));
                text.resize(std::fread(text.data(), 1, text.size(), file));
            }
        }
        std::fclose(file);
    }
    return parseObj(text);
}

}  // namespace kestrel::meridian
