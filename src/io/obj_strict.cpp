// Strict OBJ reading in one pass over text held in memory.
#include <cstring>
#include <string>

#include "io/digit_runs.h"
#include "io/input_error.h"
#include "io/short_numbers.h"
#include "io/strict_mesh.h"
#include "io/text_scan.h"
#include "io/token_starts.h"

namespace kestrel::meridian {

namespace {

#if defined(_MSC_VER) && !defined(__clang__)
#define MERIDIAN_STRICT_NOINLINE __declspec(noinline)
#else
#define MERIDIAN_STRICT_NOINLINE __attribute__((noinline))
#endif

using scan::NumberStatus;

class ObjParser {
  public:
    ObjParser(std::string_view text, const std::string& path) : text_(text), path_(path) {
        // A head's records take 15 to 40 bytes each: room for a file of only
        // vertex or only face lines, so that no table is copied while it
        // grows. Reserving touches no memory.
        mesh_.vertices.reserve(text.size() / 8);
        mesh_.texcoords.reserve(text.size() / 16);
        mesh_.faces.reserve(text.size() / 8);
    }

    StrictMesh parse() {
        const char* const end = text_.data() + text_.size();
        const char* line = text_.data();
        // One pass over the bytes: a line of the common forms is read and
        // checked where it stands; any other line, well formed or not, is
        // read again by the general path, which gives every refusal its
        // message. Nothing is stored until a line has passed its checks.
        // The masks of a 64-byte window serve every line that ends inside
        // it; a new window starts at the first line that does not.
        const char* window = line;
        BlockMasks windowMasks{0, 0};
        while (line != end) {
            ++line_;
            const char* next = nullptr;
            if (MERIDIAN_DIGIT_WORDS) {
                auto offset = static_cast<size_t>(line - window);
                if ((offset >= 64 || (windowMasks.newlines >> offset) == 0) &&
                    end - line >= kCommonLineBytes) {
                    window = line;
                    windowMasks = blockMasks(line);
                    offset = 0;
                }
                if (offset < 64 && (windowMasks.newlines >> offset) != 0)
                    next = readCommonLine(
                        line, {windowMasks.blanks >> offset, windowMasks.newlines >> offset});
            }
            line = next ? next : readAnyLine(line, end);
        }
        if (facesWithTexture_ != 0 && facesWithTexture_ != mesh_.faceCount())
            throw InputError(InputFault::malformed, path_,
                             "some faces have texture coordinates and some do not");
        if (facesWithTexture_ == 0) mesh_.textureFaces.clear();
        return std::move(mesh_);
    }

  private:
    // Bytes that must be readable at a line's start for readCommonLine: its
    // 64-byte window, and the short form of a token starting in its last byte.
    static constexpr ptrdiff_t kCommonLineBytes = 64 + shortnum::kShortFormBytes;

    // The number of bits set in `bits`, counted up to four (a record of more
    // numbers than that is not of a common form).
    static int bitsUpToFour(uint64_t bits) {
        const uint64_t second = bits & (bits - 1);
        const uint64_t third = second & (second - 1);
        const uint64_t fourth = third & (third - 1);
        return (bits != 0) + (second != 0) + (third != 0) + (fourth != 0);
    }

    // The next token start of `starts` (cleared from it), as a pointer.
    static const char* takeStart(const char* line, uint64_t& starts) {
        const char* token = line + lowestSetBit(starts);
        starts &= starts - 1;
        return token;
    }

    // A short decimal that is the whole token at p.
    static bool shortDecimalToken(const char* p, float& value) {
        const char* stop;
        return shortnum::shortDecimal(p, value, stop) && shortnum::isSpace(*stop);
    }

    // A normal index of a corner: checked for form only.
    static bool shortNormal(const char*& p) {
        int32_t normal;
        return shortnum::shortIndex(p, normal, p) && normal != 0;
    }

    // A line at `line` of the common forms: "v x y z", "vt u v [w]" with
    // short decimals, a triangle of short positive indices in range (v, v/t,
    // v//n or v/t/n, the same form at every corner), a comment, a normal, an
    // empty line. Returns the next line's start, or null (nothing stored)
    // for any other line. `masks` are those of the bytes from `line` on (bit
    // 0: line[0]) and hold the line's end; they come from a window with
    // kCommonLineBytes readable at its start. The tokens are found from the
    // masks, so that each is converted without waiting for the end of the
    // one before.
    const char* readCommonLine(const char* line, BlockMasks masks) {
        const int length = lowestSetBit(masks.newlines);
        const char* const next = line + length + 1;
        // A token starts at a non-blank after a blank or the line's start.
        uint64_t starts = ~masks.blanks & ((masks.blanks << 1) | 1) & ((uint64_t{1} << length) - 1);
        if (length == 0) return next;
        if (!(starts & 1)) return nullptr;  // a blank first
        starts &= starts - 1;               // the keyword
        const int count = bitsUpToFour(starts);
        const char first = line[0];
        const bool keywordOfOne = (masks.blanks >> 1) & 1;
        if (first == 'v' && keywordOfOne) {
            float xyz[3];
            if (count != 3) return nullptr;
            for (float& c : xyz)
                if (!shortDecimalToken(takeStart(line, starts), c)) return nullptr;
            for (float c : xyz) mesh_.vertices.push_back(c);
            return next;
        }
        if (first == 'f' && keywordOfOne) {
            if (count != 3 || !readCommonFace(line, starts)) return nullptr;
            return next;
        }
        const bool keywordOfTwo = !keywordOfOne && ((masks.blanks >> 2) & 1);
        if (first == 'v' && line[1] == 't' && keywordOfTwo) {
            float uvw[3];
            if (count != 2 && count != 3) return nullptr;
            for (int k = 0; k < count; ++k)
                if (!shortDecimalToken(takeStart(line, starts), uvw[k])) return nullptr;
            mesh_.texcoords.push_back(uvw[0]);
            mesh_.texcoords.push_back(uvw[1]);
            return next;
        }
        if (first == '#' || (first == 'v' && line[1] == 'n' && keywordOfTwo)) return next;
        return nullptr;
    }

    // The three corners whose starts are in `starts`: stored when every one
    // is of the same short form and in range, otherwise false.
    bool readCommonFace(const char* line, uint64_t starts) {
        int32_t vertex[3], texture[3];
        int withTexture = 0;
        for (int corner = 0; corner < 3; ++corner) {
            const char* p = takeStart(line, starts);
            if (!shortnum::shortIndex(p, vertex[corner], p)) return false;
            if (*p == '/') {
                ++p;
                if (*p == '/') {
                    if (!shortNormal(++p)) return false;
                } else {
                    if (!shortnum::shortIndex(p, texture[corner], p)) return false;
                    ++withTexture;
                    if (*p == '/' && !shortNormal(++p)) return false;
                }
            }
            if (!shortnum::isSpace(*p)) return false;
        }
        if (withTexture != 0 && withTexture != 3) return false;
        const int64_t vertexCount = mesh_.vertexCount();
        const int64_t texcoordCount = mesh_.texcoordCount();
        bool inRange = true;
        for (int c = 0; c < 3; ++c) {
            inRange &= vertex[c] >= 1 && vertex[c] <= vertexCount;
            --vertex[c];
            if (withTexture) {
                inRange &= texture[c] >= 1 && texture[c] <= texcoordCount;
                --texture[c];
            }
        }
        if (!inRange) return false;
        storeFace(vertex, texture, withTexture == 3);
        return true;
    }

    // The line at `line` by the general path; returns the next line's start.
    const char* readAnyLine(const char* line, const char* end) {
        const void* newline = std::memchr(line, '\n', static_cast<size_t>(end - line));
        const char* lineEnd = newline ? static_cast<const char*>(newline) : end;
        std::string_view text(line, static_cast<size_t>(lineEnd - line));
        // CR LF reads like LF.
        if (newline && !text.empty() && text.back() == '\r') text.remove_suffix(1);
        readLine(text);
        return newline ? lineEnd + 1 : end;
    }

    void readLine(std::string_view line) {
        scan::TokenReader tokens(line);
        std::string_view keyword;
        if (!tokens.next(keyword) || keyword[0] == '#') return;
        if (keyword == "v")
            readVertex(tokens);
        else if (keyword == "vt")
            readTexcoord(tokens);
        else if (keyword == "f")
            readFace(tokens);
        else if (!ignored(keyword))
            fail(InputFault::malformed, "unknown record " + scan::quoted(keyword));
    }

    void storeFace(const int32_t* vertex, const int32_t* texture, bool withTexture) {
        for (int c = 0; c < 3; ++c) mesh_.faces.push_back(vertex[c]);
        if (withTexture) {
            // Texture faces stay aligned with faces: pad the faces read
            // without them, and refuse the mix at the end.
            mesh_.textureFaces.resize(mesh_.faces.size() - 3, 0);
            for (int c = 0; c < 3; ++c) mesh_.textureFaces.push_back(texture[c]);
            ++facesWithTexture_;
        }
    }

    static bool ignored(std::string_view keyword) {
        return keyword == "vn" || keyword == "o" || keyword == "g" || keyword == "s" ||
               keyword == "usemtl" || keyword == "mtllib";
    }

    [[noreturn]] void fail(InputFault fault, const std::string& detail) const {
        throw InputError(fault, path_, "line " + std::to_string(line_) + ": " + detail);
    }

    void readVertex(scan::TokenReader& tokens) {
        const int64_t vertex = mesh_.vertexCount();
        std::string_view token;
        int count = 0;
        float xyz[3];
        while (tokens.next(token)) {
            if (count < 3) {
                if (scan::parseFloat(token, text_, xyz[count]) != NumberStatus::ok)
                    fail(InputFault::nonFinite, "vertex " + std::to_string(vertex) +
                                                    " has a non-finite coordinate " +
                                                    scan::quoted(token));
            } else {
                double extra;  // w, or a colour
                if (scan::parseDouble(token, extra) != NumberStatus::ok)
                    fail(InputFault::malformed, "vertex " + std::to_string(vertex) + ": " +
                                                    scan::quoted(token) + " is not a number");
            }
            ++count;
        }
        if (count != 3 && count != 4 && count != 6 && count != 7)
            fail(InputFault::malformed, "vertex " + std::to_string(vertex) + " has " +
                                            std::to_string(count) +
                                            " numbers (x y z, with an optional w or colour)");
        for (float c : xyz) mesh_.vertices.push_back(c);
    }

    void readTexcoord(scan::TokenReader& tokens) {
        std::string_view token;
        int count = 0;
        float uv[2] = {0, 0};
        while (tokens.next(token)) {
            float value;
            if (scan::parseFloat(token, text_, value) != NumberStatus::ok)
                fail(InputFault::nonFinite, "texture coordinate " +
                                                std::to_string(mesh_.texcoordCount()) + ": " +
                                                scan::quoted(token) + " is not a finite number");
            if (count < 2) uv[count] = value;
            ++count;
        }
        if (count != 2 && count != 3)
            fail(InputFault::malformed, "texture coordinate with " + std::to_string(count) +
                                            " numbers (u v, with an optional w)");
        mesh_.texcoords.push_back(uv[0]);
        mesh_.texcoords.push_back(uv[1]);
    }

    // An OBJ index: 1-based, or negative counting back from the latest
    // element; returned 0-based. Inline for the indices every face has; the
    // refusal is out of line.
    int32_t resolveIndex(std::string_view token, int64_t available, const char* what,
                         const char* plural) const {
        int64_t index = 0;
        const bool parsed = scan::parseInt64(token, index) == NumberStatus::ok;
        const int64_t zeroBased = index > 0 ? index - 1 : available + index;
        if (!parsed || index == 0 || zeroBased < 0 || zeroBased >= available)
            failIndex(parsed, token, index, available, what, plural);
        return static_cast<int32_t>(zeroBased);
    }

    [[noreturn]] MERIDIAN_STRICT_NOINLINE void failIndex(bool parsed, std::string_view token,
                                                         int64_t index, int64_t available,
                                                         const char* what,
                                                         const char* plural) const {
        if (!parsed)
            fail(InputFault::malformed,
                 std::string(what) + " index " + scan::quoted(token) + " is not an integer");
        fail(InputFault::indexOutOfRange, std::string(what) + " index " + std::to_string(index) +
                                              " names none of the " + std::to_string(available) +
                                              " " + plural + " read so far");
    }

    // Position of the first '/' in a face corner (a few characters: a loop,
    // not a library call), or npos.
    static size_t slashIn(std::string_view corner) {
        for (size_t i = 0; i < corner.size(); ++i)
            if (corner[i] == '/') return i;
        return std::string_view::npos;
    }

    void readFace(scan::TokenReader& tokens) {
        std::string_view corner;
        int corners = 0;
        int withTexture = 0;
        int32_t vertex[3], texture[3];
        // Counted once per face, not per corner (each is a division by the
        // record's width).
        const int64_t vertexCount = mesh_.vertexCount();
        const int64_t texcoordCount = mesh_.texcoordCount();
        while (tokens.next(corner)) {
            if (++corners > 3) continue;  // counted for the message below
            // v, v/t, v//n or v/t/n
            const size_t slash = slashIn(corner);
            const std::string_view v = corner.substr(0, slash);
            vertex[corners - 1] = resolveIndex(v, vertexCount, "vertex", "vertices");
            if (slash == std::string_view::npos) continue;
            std::string_view rest = corner.substr(slash + 1);
            const size_t slash2 = slashIn(rest);
            const std::string_view t = rest.substr(0, slash2);
            if (slash2 != std::string_view::npos &&
                slashIn(rest.substr(slash2 + 1)) != std::string_view::npos)
                fail(InputFault::malformed,
                     "face corner " + scan::quoted(corner) + " is not v, v/t, v//n or v/t/n");
            if (slash2 == std::string_view::npos && t.empty())
                fail(InputFault::malformed,
                     "face corner " + scan::quoted(corner) + " is not v, v/t, v//n or v/t/n");
            if (!t.empty()) {
                texture[corners - 1] =
                    resolveIndex(t, texcoordCount, "texture coordinate", "texture coordinates");
                ++withTexture;
            }
            // The normal index is checked for form only: normals are not read.
            if (slash2 != std::string_view::npos) {
                int64_t normal;
                if (scan::parseInt64(rest.substr(slash2 + 1), normal) != NumberStatus::ok ||
                    normal == 0)
                    fail(InputFault::malformed,
                         "face corner " + scan::quoted(corner) + " has no valid normal index");
            }
        }
        if (corners != 3)
            fail(InputFault::malformed,
                 "a face of " + std::to_string(corners) + " corners; only triangles are read");
        if (withTexture != 0 && withTexture != 3)
            fail(InputFault::malformed, "a face with texture coordinates at some corners only");
        storeFace(vertex, texture, withTexture == 3);
    }

    std::string_view text_;
    const std::string& path_;
    StrictMesh mesh_;
    int64_t line_ = 0;
    int64_t facesWithTexture_ = 0;
};

}  // namespace

StrictMesh parseStrictObj(std::string_view text, const std::string& path) {
    return ObjParser(text, path).parse();
}

}  // namespace kestrel::meridian
