// OBJ reader: the whole file is read into memory and tokenised in place in
// one pass. Numbers are converted exactly like stream extraction of a float
// (a fast path for short decimals, std::from_chars for the rest).
#include <algorithm>
#include <cfloat>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "io/digit_runs.h"
#include "io/input_limits.h"
#include "io/mesh_readers.h"
#include "io/short_numbers.h"
#include "io/token_starts.h"

namespace kestrel::meridian {

namespace {

using shortnum::exactFloat;
using shortnum::isDigit;
using shortnum::isSpace;
using shortnum::kShortFormBytes;
using shortnum::shortDecimal;
using shortnum::shortRun;

#if defined(_MSC_VER) && !defined(__clang__)
#define MERIDIAN_NOINLINE __declspec(noinline)
#else
#define MERIDIAN_NOINLINE __attribute__((noinline))
#endif

// digits * 10^scale rounded to float, when one double operation gives it
// exactly: digits and 10^|scale| are exact doubles, so one multiply or
// divide rounds the value correctly to double. Narrowing that double to
// float is then correct too, unless it sits exactly halfway between two
// floats (the true value may lie on either side): that case, and the ranges
// where float is subnormal or overflows, are left to the exact conversion.
inline bool roundedByDouble(uint64_t digits, int digitCount, int scale, bool negative,
                            float& value) {
    static constexpr double kPowersOfTen[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,
                                              1e8,  1e9,  1e10, 1e11, 1e12, 1e13, 1e14, 1e15,
                                              1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
    if (scale == 0 && digits <= (uint64_t{1} << 24)) {
        // A whole number a float holds exactly (face indices): no rounding.
        // (Converted from a signed integer: one instruction, unlike unsigned.)
        const auto whole = static_cast<float>(static_cast<int32_t>(digits));
        value = negative ? -whole : whole;
        return digitCount <= 19;
    }
    if (digitCount > 19 || digits > (uint64_t{1} << 53) || scale < -22 || scale > 22) return false;
    const auto whole = static_cast<double>(static_cast<int64_t>(digits));
    const double exact = scale < 0 ? whole / kPowersOfTen[-scale] : whole * kPowersOfTen[scale];
    if (exact == 0.0) {
        value = negative ? -0.0f : 0.0f;
        return true;
    }
    uint64_t bits;
    std::memcpy(&bits, &exact, sizeof bits);
    const bool halfway = (bits & ((uint64_t{1} << 29) - 1)) == (uint64_t{1} << 28);
    if (halfway || !(exact >= FLT_MIN && exact <= FLT_MAX)) return false;
    value = negative ? -static_cast<float>(exact) : static_cast<float>(exact);
    return true;
}

// parseFloat of a number with an exponent marker after its digits at `p`.
MERIDIAN_NOINLINE float withExponent(const char* mantissa, const char* p, const char* end,
                                     uint64_t digits, int digitCount, int scale, bool negative,
                                     const char** stop) {
    const char* exponent = p + 1;
    bool negativeExponent = false;
    if (exponent < end && (*exponent == '+' || *exponent == '-'))
        negativeExponent = *exponent++ == '-';
    if (exponent == end || !isDigit(*exponent)) return 0.0f;
    int exponentValue = 0;
    while (exponent < end && isDigit(*exponent)) {
        if (exponentValue < 10000) exponentValue = exponentValue * 10 + (*exponent - '0');
        ++exponent;
    }
    scale += negativeExponent ? -exponentValue : exponentValue;
    *stop = exponent;
    float value;
    if (roundedByDouble(digits, digitCount, scale, negative, value)) return value;
    return exactFloat(mantissa, exponent, negative);
}

// Conversion of a token as `std::istringstream(token) >> float` does it: the
// longest prefix of the form [+-]digits[.digits][(e|E)[+-]digits] is
// converted, a failed extraction gives 0 and an overflow gives +-FLT_MAX. An
// exponent marker without digits fails the whole extraction. `stop` receives
// the end of the converted prefix. Short decimals without an exponent, the
// numbers of a mesh, take the inline path.
inline float parseFloat(const char* begin, const char* end, const char** stop) {
    const char* p = begin;
    bool negative = false;
    if (p < end && (*p == '+' || *p == '-')) negative = *p++ == '-';
    const char* const mantissa = p;
    // value = digits * 10^scale
    uint64_t digits = 0;
    int digitCount = 0, scale = 0;
    p = readDigitRun(p, end, digits, digitCount);
    if (p < end && *p == '.') {
        const int before = digitCount;
        p = readDigitRun(p + 1, end, digits, digitCount);
        scale = before - digitCount;
    }
    *stop = p;
    if (digitCount == 0) return 0.0f;
    if (p < end && (*p == 'e' || *p == 'E'))
        return withExponent(mantissa, p, end, digits, digitCount, scale, negative, stop);
    float value;
    if (roundedByDouble(digits, digitCount, scale, negative, value)) return value;
    return exactFloat(mantissa, p, negative);
}

// The common face corner: "a" or "a/b..." where a and b are unsigned whole
// numbers of one to seven digits, each read with one word. Gives the number of
// values read (1: a alone, 2: a and b), or 0 for any other form, which is left
// to parseFloat (signs, decimals, exponents, long or missing numbers).
inline int shortCorner(const char* p, float& vertex, float& texture) {
    uint64_t digits = 0;
    const int run = shortRun(p, digits);
    if (run == 0 || run == 8) return 0;
    const char after = p[run];
    if (after != '/' && !isSpace(after)) return 0;
    vertex = static_cast<float>(static_cast<int32_t>(digits));
    if (after != '/') return 1;
    const char* const second = p + run + 1;
    const int secondRun = shortRun(second, digits);
    if (secondRun == 0 || secondRun == 8) return 0;
    const char secondAfter = second[secondRun];
    if (secondAfter == '.' || secondAfter == 'e' || secondAfter == 'E') return 0;
    texture = static_cast<float>(static_cast<int32_t>(digits));
    return 2;
}

// The numbers of one table as parsed, before they are widened into it.
struct TableValues {
    std::unique_ptr<float[]> data;  // uninitialised beyond `used`
    size_t capacity = 0;
    size_t used = 0;
};

// Storage a thread keeps from one read to the next, so that reading meshes
// again and again (inits, benchmarks) does not fault in fresh pages each
// time. Anything larger than this is given back after the read.
constexpr size_t kKeptScratchBytes = size_t{16} << 20;

// The thread's staging tables, emptied; bigger than kKeptScratchBytes they
// are released when the guard goes.
struct StagingTables {
    StagingTables() {
        for (TableValues& table : tables) table.used = 0;
    }
    ~StagingTables() {
        for (TableValues& table : tables)
            if (table.capacity * sizeof(float) > kKeptScratchBytes) table = TableValues{};
    }
    StagingTables(const StagingTables&) = delete;
    StagingTables& operator=(const StagingTables&) = delete;
    static thread_local TableValues tables[4];
};
thread_local TableValues StagingTables::tables[4];

// The thread's buffer for file text, likewise kept between reads.
struct TextBuffer {
    char* reserve(size_t bytes) {
        if (bytes > capacity) {
            data.reset();
            data.reset(new char[bytes]);
            capacity = bytes;
        }
        return data.get();
    }
    void release() {
        data.reset();
        capacity = 0;
    }
    std::unique_ptr<char[]> data;
    size_t capacity = 0;
};

// Where numbers of one table go. The parse loop keeps its cursors in locals
// and passes them by value, so they stay in registers: a number is stored
// without a round trip through memory for the table's end.
struct Cursor {
    TableValues* table;
    float* next;
    float* end;
};

Cursor cursorAt(TableValues* table) {
    float* data = table->data.get();
    return {table, data + table->used, data + table->capacity};
}

// Records the cursor's position in its table.
void settle(const Cursor& cursor) {
    cursor.table->used = static_cast<size_t>(cursor.next - cursor.table->data.get());
}

// The cursor of a full table after doubling its storage.
MERIDIAN_NOINLINE Cursor grown(Cursor cursor) {
    settle(cursor);
    TableValues& table = *cursor.table;
    const size_t capacity = std::max<size_t>(2 * table.capacity, 4096);
    std::unique_ptr<float[]> data(new float[capacity]);
    if (table.used) std::memcpy(data.get(), table.data.get(), table.used * sizeof(float));
    table.data = std::move(data);
    table.capacity = capacity;
    return cursorAt(&table);
}

void push(Cursor& cursor, float value) {
    if (cursor.next == cursor.end) cursor = grown(cursor);
    *cursor.next++ = value;
}

// A table of rows by (values / rows), widened from the parsed floats; a kind
// of record the file does not have gives an empty (0 by 0) matrix, so "no
// texture table" is not mistaken for a 2-row one. An incomplete last group
// is dropped.
Eigen::MatrixXd tableOf(const TableValues& values, Eigen::Index rows) {
    if (values.used == 0) return {};
    Eigen::MatrixXd table(rows, static_cast<Eigen::Index>(values.used) / rows);
    // Value 3k + r of a mode is row r of column k: column-major order.
    double* out = table.data();
    const float* in = values.data.get();
    for (Eigen::Index i = 0; i < table.size(); ++i) out[i] = in[i];
    return table;
}

// End of the token that contains p.
const char* tokenEnd(const char* p, const char* end) {
    while (p < end && !isSpace(*p)) ++p;
    return p;
}

// Whether [token, end of text) starts with exactly `keyword` as a whole token.
bool isKeyword(const char* token, const char* end, const char* keyword, size_t length) {
    return static_cast<size_t>(end - token) >= length && std::memcmp(token, keyword, length) == 0 &&
           (token + length == end || isSpace(token[length]));
}

}  // namespace

// One pass over the bytes: each token is classified and converted where it
// stands. The bound on the numbers is kept in the same pass.
ObjMeshData parseObj(std::string_view text, const std::string& source) {
    enum class Mode { none, vertex, texture, face };
    StagingTables staging;
    TableValues& vertices = staging.tables[0];
    TableValues& texcoords = staging.tables[1];
    TableValues& faces = staging.tables[2];
    TableValues& textureFaces = staging.tables[3];
    Cursor values{nullptr, nullptr, nullptr};  // the table of the current mode
    Cursor textures = cursorAt(&textureFaces);
    const auto switchTo = [&](TableValues* table) {
        if (values.table) settle(values);
        values = cursorAt(table);
    };

    // Past the bound numbers are still counted, for the message, but no
    // longer stored.
    int64_t numbers = 0;
    Mode mode = Mode::none;
    const char* const end = text.data() + text.size();
    TokenStarts tokens(text.data(), text.size());
    while (const char* p = tokens.next()) {
        const char first = *p;
        if (first == 'v' || first == 'f') {
            if (isKeyword(p, end, "v", 1)) {
                mode = Mode::vertex, switchTo(&vertices);
                continue;
            }
            if (isKeyword(p, end, "vt", 2)) {
                mode = Mode::texture, switchTo(&texcoords);
                continue;
            }
            if (isKeyword(p, end, "f", 1)) {
                mode = Mode::face, switchTo(&faces);
                continue;
            }
        }
        if (mode == Mode::none) continue;
        if (MERIDIAN_DIGIT_WORDS && end - p >= kShortFormBytes) {
            float value, texture;
            if (mode != Mode::face) {
                const char* stop;
                if (shortDecimal(p, value, stop)) {
                    if (++numbers <= kMaxObjNumbers) push(values, value);
                    continue;
                }
            } else if (const int count = shortCorner(p, value, texture)) {
                if (++numbers <= kMaxObjNumbers) push(values, value);
                if (count == 2 && ++numbers <= kMaxObjNumbers) push(textures, texture);
                continue;
            }
        }
        const char* stop = nullptr;
        const float value = parseFloat(p, end, &stop);
        if (++numbers <= kMaxObjNumbers) push(values, value);
        if (mode != Mode::face || stop == end || isSpace(*stop)) continue;
        // A face corner a/b/c: a is the vertex, b (the number after the first
        // '/') the texture entry. The slash is nearly always right after a;
        // b ends at the first blank, like the token, since no number holds
        // one.
        const char* slash = stop;
        if (*stop != '/')
            slash = static_cast<const char*>(
                std::memchr(stop, '/', static_cast<size_t>(tokenEnd(stop, end) - stop)));
        if (!slash) continue;
        const float texture = parseFloat(slash + 1, end, &stop);
        if (++numbers <= kMaxObjNumbers) push(textures, texture);
    }
    if (numbers > kMaxObjNumbers)
        throw InputRefused(source + ": " + std::to_string(numbers) +
                           " numbers, above the limit of " + std::to_string(kMaxObjNumbers));

    if (values.table) settle(values);
    settle(textures);
    ObjMeshData mesh;
    mesh.vertices = tableOf(vertices, 3);
    mesh.texcoords = tableOf(texcoords, 2);
    mesh.faces = tableOf(faces, 3);
    mesh.textureFaces = tableOf(textureFaces, 3);
    return mesh;
}

ObjMeshData parseObj(std::string_view text) {
    return parseObj(text, "OBJ text");
}

ObjMeshData readObj(const std::string& path) {
    // Uninitialised storage: the read fills it, there is no need to clear it
    // first.
    thread_local TextBuffer kept;
    struct Release {
        ~Release() {
            if (kept.capacity > kKeptScratchBytes) kept.release();
        }
    } release;
    const char* text = nullptr;
    size_t length = 0;
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
                char* buffer = kept.reserve(static_cast<size_t>(size));
                length = std::fread(buffer, 1, static_cast<size_t>(size), file);
                text = buffer;
            }
        }
        close();
    }
    return parseObj(std::string_view(text, length), path);
}

}  // namespace kestrel::meridian
