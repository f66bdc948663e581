// Strict OBJ reading in one pass over text held in memory.
#include <cstring>
#include <string>

#include "io/digit_runs.h"
#include "io/input_error.h"
#include "io/short_numbers.h"
#include "io/strict_mesh.h"
#include "io/text_scan.h"

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
        while (line != end) {
            ++line_;
            const char* next = nullptr;
            if (MERIDIAN_DIGIT_WORDS && end - line >= shortnum::kShortFormBytes)
                next = readCommonLine(line, end);
            line = next ? next : readAnyLine(line, end);
        }
        if (facesWithTexture_ != 0 && facesWithTexture_ != mesh_.faceCount())
            throw InputError(InputFault::malformed, path_,
                             "some faces have texture coordinates and some do not");
        if (facesWithTexture_ == 0) mesh_.textureFaces.clear();
        return std::move(mesh_);
    }

  private:
    // Blanks within a line: every separator but '\n'.
    static const char* skipBlanks(const char* p, const char* end) {
        while (p != end && scan::isBlank(*p)) ++p;
        return p;
    }

    // The start of the next line when only blanks are left before the line's
    // end (or the text's), otherwise null.
    static const char* lineEndAfter(const char* p, const char* end) {
        p = skipBlanks(p, end);
        if (p == end) return end;
        return *p == '\n' ? p + 1 : nullptr;
    }

    // `count` short decimals, each ended by a blank or the line's end.
    static const char* shortDecimals(const char* p, const char* end, float* values, int count) {
        for (int k = 0; k < count; ++k) {
            p = skipBlanks(p, end);
            if (end - p < shortnum::kShortFormBytes || !shortnum::shortDecimal(p, values[k], p) ||
                !shortnum::isSpace(*p))
                return nullptr;
        }
        return p;
    }

    // A normal index of a corner: checked for form only.
    static bool shortNormal(const char*& p) {
        int32_t normal;
        return shortnum::shortIndex(p, normal, p) && normal != 0;
    }

    // A line at `line` of the common forms: "v x y z", "vt u v [w]" with
    // short decimals, a triangle of short positive indices in range (v,
    // v/t, v//n or v/t/n, the same at every corner), a comment, a normal, an
    // empty line. Returns the next line's start, or null (nothing stored)
    // for any other line. At least kShortFormBytes are readable at `line`.
    const char* readCommonLine(const char* line, const char* end) {
        const char first = line[0];
        if (first == 'v' && line[1] == ' ') {
            float xyz[3];
            const char* p = shortDecimals(line + 2, end, xyz, 3);
            if (!p || !(p = lineEndAfter(p, end))) return nullptr;
            mesh_.vertices.insert(mesh_.vertices.end(), xyz, xyz + 3);
            return p;
        }
        if (first == 'f' && line[1] == ' ') return readCommonFace(line + 2, end);
        if (first == 'v' && line[1] == 't' && line[2] == ' ') {
            float uvw[3];
            const char* p = shortDecimals(line + 3, end, uvw, 2);
            if (!p) return nullptr;
            const char* next = lineEndAfter(p, end);
            if (!next) {  // a w, or anything else
                p = shortDecimals(p, end, uvw + 2, 1);
                if (!p || !(next = lineEndAfter(p, end))) return nullptr;
            }
            mesh_.texcoords.insert(mesh_.texcoords.end(), uvw, uvw + 2);
            return next;
        }
        if (first == '#' || (first == 'v' && line[1] == 'n' && line[2] == ' ')) {
            const void* newline = std::memchr(line, '\n', static_cast<size_t>(end - line));
            return newline ? static_cast<const char*>(newline) + 1 : end;
        }
        if (first == '\n') return line + 1;
        return nullptr;
    }

    const char* readCommonFace(const char* p, const char* end) {
        int32_t vertex[3], texture[3];
        int withTexture = 0;
        for (int corner = 0; corner < 3; ++corner) {
            p = skipBlanks(p, end);
            if (end - p < shortnum::kShortFormBytes || !shortnum::shortIndex(p, vertex[corner], p))
                return nullptr;
            if (*p == '/') {
                ++p;
                if (*p == '/') {
                    if (!shortNormal(++p)) return nullptr;
                } else {
                    if (!shortnum::shortIndex(p, texture[corner], p)) return nullptr;
                    ++withTexture;
                    if (*p == '/' && !shortNormal(++p)) return nullptr;
                }
            }
            if (!shortnum::isSpace(*p)) return nullptr;
        }
        const char* next = lineEndAfter(p, end);
        if (!next || (withTexture != 0 && withTexture != 3)) return nullptr;
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
        if (!inRange) return nullptr;
        storeFace(vertex, texture, withTexture == 3);
        return next;
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
        mesh_.faces.insert(mesh_.faces.end(), vertex, vertex + 3);
        if (withTexture) {
            // Texture faces stay aligned with faces: pad the faces read
            // without them, and refuse the mix at the end.
            mesh_.textureFaces.resize(mesh_.faces.size() - 3, 0);
            mesh_.textureFaces.insert(mesh_.textureFaces.end(), texture, texture + 3);
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
