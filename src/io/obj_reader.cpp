// OBJ reader: the whole file is read into memory and tokenised in place;
// numbers are converted exactly like stream extraction of a float (a fast
// path for short decimals, std::from_chars for the rest).
#include <cfloat>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "io/mesh_readers.h"

namespace kestrel::meridian {

namespace {

// ' ' and '\t' '\n' '\v' '\f' '\r' (9..13).
bool isSpace(char c) {
    return c == ' ' || static_cast<unsigned char>(c - '\t') < 5;
}

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Conversion of a token as `std::istringstream(token) >> float` does it: the
// longest prefix of the form [+-]digits[.digits][(e|E)[+-]digits] is
// converted, a failed extraction gives 0 and an overflow gives +-FLT_MAX. An
// exponent marker without digits fails the whole extraction. `stop` receives
// the end of the converted prefix.
float parseFloat(const char* begin, const char* end, const char** stop) {
    const char* p = begin;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
    const char* mantissa = p;
    // Digits gathered for the fast path: value = digits * 10^scale.
    uint64_t digits = 0;
    int digitCount = 0, scale = 0, exponentValue = 0;
    while (p < end && isDigit(*p))
        digits = digits * 10 + static_cast<unsigned>(*p++ - '0'), ++digitCount;
    if (p < end && *p == '.') {
        ++p;
        while (p < end && isDigit(*p))
            digits = digits * 10 + static_cast<unsigned>(*p++ - '0'), ++digitCount, --scale;
    }
    *stop = p;
    if (digitCount == 0) return 0.0f;
    if (p < end && (*p == 'e' || *p == 'E')) {
        const char* exponent = p + 1;
        bool negativeExponent = false;
        if (exponent < end && (*exponent == '+' || *exponent == '-'))
            negativeExponent = *exponent++ == '-';
        if (exponent == end || !isDigit(*exponent)) return 0.0f;
        while (exponent < end && isDigit(*exponent)) {
            if (exponentValue < 10000) exponentValue = exponentValue * 10 + (*exponent - '0');
            ++exponent;
        }
        scale += negativeExponent ? -exponentValue : exponentValue;
        p = exponent;
        *stop = p;
    }
    // Fast path: digits and 10^|scale| are exact doubles, so one multiply or
    // divide rounds the value correctly to double. Narrowing that double to
    // float is then correct too, unless it sits exactly halfway between two
    // floats (the true value may lie on either side): that case, and the
    // ranges where float is subnormal or overflows, take the exact path.
    static constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (digitCount <= 19 && digits <= (uint64_t{1} << 53) && scale >= -22 && scale <= 22) {
        const double exact = scale < 0 ? static_cast<double>(digits) / kPowersOfTen[-scale]
                                       : static_cast<double>(digits) * kPowersOfTen[scale];
        if (exact == 0.0) return negative ? -0.0f : 0.0f;
        uint64_t bits;
        std::memcpy(&bits, &exact, sizeof bits);
        const bool halfway = (bits & ((uint64_t{1} << 29) - 1)) == (uint64_t{1} << 28);
        if (!halfway && exact >= FLT_MIN && exact <= FLT_MAX) {
            const float value = static_cast<float>(exact);
            return negative ? -value : value;
        }
    }
    float value = 0.0f;
    if (std::from_chars(mantissa, p, value).ec != std::errc()) {
        // Out of range: strtof gives the rounded subnormal or zero on
        // underflow; stream extraction turns an overflow into FLT_MAX.
        const std::string text(mantissa, p);
        value = std::strtof(text.c_str(), nullptr);
        if (value > FLT_MAX) value = FLT_MAX;
    }
    return negative ? -value : value;
}

// A kind of record the file does not have gives an empty (0 by 0) matrix,
// so "no texture table" is not mistaken for a 2-row one.
Eigen::MatrixXd toMatrix(const std::vector<float>& values, Eigen::Index rows) {
    if (values.empty()) return {};
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
    texcoords.reserve(text.size() / 60);
    faces.reserve(text.size() / 10);
    textureFaces.reserve(text.size() / 10);

    const char* p = text.data();
    const char* const end = p + text.size();
    const char* stop = nullptr;
    while (true) {
        while (p < end && isSpace(*p)) ++p;
        if (p == end) break;
        const char* const token = p;
        // Numbers never start with 'v' or 'f', so other tokens skip the
        // keyword test and are scanned only once, by the conversion.
        if (*token == 'v' || *token == 'f' || mode == Mode::none) {
            while (p < end && !isSpace(*p)) ++p;
            const size_t length = static_cast<size_t>(p - token);
            if (length == 1 && token[0] == 'v') {
                mode = Mode::vertex;
                continue;
            }
            if (length == 2 && token[0] == 'v' && token[1] == 't') {
                mode = Mode::texture;
                continue;
            }
            if (length == 1 && token[0] == 'f') {
                mode = Mode::face;
                continue;
            }
            if (mode == Mode::none) continue;
            p = token;
        }
        const float value = parseFloat(p, end, &stop);
        p = stop;
        if (mode == Mode::face) {
            while (p < end && !isSpace(*p) && *p != '/') ++p;
            faces.push_back(value);
            if (p < end && *p == '/') {
                textureFaces.push_back(parseFloat(p + 1, end, &stop));
                p = stop;
            }
        } else {
            (mode == Mode::vertex ? vertices : texcoords).push_back(value);
        }
        while (p < end && !isSpace(*p)) ++p;
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
