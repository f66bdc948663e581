// OBJ reader: the whole file is read into memory and tokenised in place,
// twice: once to size the tables, once to fill them. Numbers are converted
// exactly like stream extraction of a float (a fast path for short
// decimals, std::from_chars for the rest).
#include <cfloat>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "io/input_limits.h"
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

enum class Mode { none, vertex, texture, face };

// Walks the tokens of an OBJ text: "v", "vt" and "f" switch the mode, every
// other token after the first keyword is data of the current mode and goes
// to `data(mode, begin, end)`.
template <typename Data>
void forEachDataToken(std::string_view text, Data&& data) {
    Mode mode = Mode::none;
    const char* p = text.data();
    const char* const end = p + text.size();
    while (true) {
        while (p < end && isSpace(*p)) ++p;
        if (p == end) return;
        const char* const token = p;
        while (p < end && !isSpace(*p)) ++p;
        const size_t length = static_cast<size_t>(p - token);
        if (length == 1 && token[0] == 'v')
            mode = Mode::vertex;
        else if (length == 2 && token[0] == 'v' && token[1] == 't')
            mode = Mode::texture;
        else if (length == 1 && token[0] == 'f')
            mode = Mode::face;
        else if (mode != Mode::none)
            data(mode, token, p);
    }
}

// Numbers of each table: v, vt, f corners and the texture entries of
// corners written a/b.
struct TableSizes {
    int64_t vertex = 0, texture = 0, face = 0, textureFace = 0;
    int64_t total() const { return vertex + texture + face + textureFace; }
};

// A table of `count` numbers, `rows` per column; a kind of record the file
// does not have gives an empty (0 by 0) matrix, so "no texture table" is not
// mistaken for a 2-row one. An incomplete last group is dropped.
Eigen::MatrixXd tableFor(int64_t count, Eigen::Index rows) {
    if (count == 0) return {};
    return Eigen::MatrixXd(rows, static_cast<Eigen::Index>(count) / rows);
}

// Appends to a table's storage, ignoring what lies past its whole columns.
struct TableFill {
    explicit TableFill(Eigen::MatrixXd& table) : next(table.data()), end(next + table.size()) {}
    void push(float value) {
        if (next != end) *next++ = value;
    }
    double* next;
    double* end;
};

}  // namespace

ObjMeshData parseObj(std::string_view text, const std::string& source) {
    // First pass: count, so that every table is allocated once at its final
    // size and a text with too many numbers is refused before allocating.
    TableSizes sizes;
    forEachDataToken(text, [&](Mode mode, const char* token, const char* end) {
        if (mode == Mode::vertex) ++sizes.vertex;
        if (mode == Mode::texture) ++sizes.texture;
        if (mode != Mode::face) return;
        ++sizes.face;
        if (std::memchr(token, '/', static_cast<size_t>(end - token))) ++sizes.textureFace;
    });
    if (sizes.total() > kMaxObjNumbers)
        throw InputRefused(source + ": " + std::to_string(sizes.total()) +
                           " numbers, above the limit of " + std::to_string(kMaxObjNumbers));

    ObjMeshData mesh;
    mesh.vertices = tableFor(sizes.vertex, 3);
    mesh.texcoords = tableFor(sizes.texture, 2);
    mesh.faces = tableFor(sizes.face, 3);
    mesh.textureFaces = tableFor(sizes.textureFace, 3);
    // Token 3k + r of a mode is row r of column k: column-major order.
    TableFill vertices(mesh.vertices), texcoords(mesh.texcoords), faces(mesh.faces),
        textureFaces(mesh.textureFaces);
    const char* stop = nullptr;
    forEachDataToken(text, [&](Mode mode, const char* token, const char* end) {
        const float value = parseFloat(token, end, &stop);
        if (mode == Mode::vertex) return vertices.push(value);
        if (mode == Mode::texture) return texcoords.push(value);
        // A face corner a/b/c: a is the vertex, b (the number after the
        // first '/') the texture entry.
        faces.push(value);
        if (const void* slash = std::memchr(stop, '/', static_cast<size_t>(end - stop)))
            textureFaces.push(parseFloat(static_cast<const char*>(slash) + 1, end, &stop));
    });
    return mesh;
}

ObjMeshData parseObj(std::string_view text) {
    return parseObj(text, "OBJ text");
}

ObjMeshData readObj(const std::string& path) {
    std::string text;
    if (std::FILE* file = std::fopen(path.c_str(), "rb")) {
        const auto close = [file] { std::fclose(file); };
        if (std::fseek(file, 0, SEEK_END) == 0) {
            const long size = std::ftell(file);
            if (size > kMaxObjFileBytes) {
                close();
                throw InputRefused(path + ": " + std::to_string(size) +
                                   " bytes, above the limit of " +
                                   std::to_string(kMaxObjFileBytes) + " for an OBJ");
            }
            if (size > 0 && std::fseek(file, 0, SEEK_SET) == 0) {
                text.resize(static_cast<size_t>(size));
                text.resize(std::fread(text.data(), 1, text.size(), file));
            }
        }
        close();
    }
    return parseObj(text, path);
}

}  // namespace kestrel::meridian
