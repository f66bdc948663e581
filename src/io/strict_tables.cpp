#include "io/strict_tables.h"

#include <climits>

#include "io/input_error.h"
#include "io/text_scan.h"
#include "io/whole_file.h"

namespace kestrel::meridian {

namespace {

using scan::NumberStatus;

[[noreturn]] void failAt(InputFault fault, const std::string& path, int64_t line,
                         const std::string& detail) {
    throw InputError(fault, path, "line " + std::to_string(line) + ": " + detail);
}

// "# <label> <integer>" with nothing after the integer.
bool headerNumber(std::string_view line, std::string_view label, int64_t& value) {
    const std::string prefix = "# " + std::string(label) + " ";
    if (line.substr(0, prefix.size()) != prefix) return false;
    scan::TokenReader tokens(line.substr(prefix.size()));
    std::string_view token;
    return tokens.next(token) && scan::parseInt64(token, value) == NumberStatus::ok &&
           tokens.atEnd();
}

int32_t indexField(std::string_view token, const std::string& path, int64_t line) {
    int64_t value = 0;
    if (scan::parseInt64(token, value) != NumberStatus::ok || value < INT32_MIN ||
        value > INT32_MAX)
        failAt(InputFault::malformed, path, line, scan::quoted(token) + " is not an index");
    return static_cast<int32_t>(value);
}

}  // namespace

Correspondence readStrictCorrespondence(const std::string& path) {
    const WholeFile file = readFileBytes(path);
    const std::string_view text = file.view();
    scan::LineReader lines(text);
    std::string_view line;
    int64_t base = -1, count = -1;
    if (!lines.next(line) || !headerNumber(line, "base", base) || (base != 0 && base != 1))
        failAt(InputFault::malformed, path, 1, "expected \"# base 0\" or \"# base 1\"");
    if (!lines.next(line) || !headerNumber(line, "element count", count) || count < 0)
        failAt(InputFault::malformed, path, 2, "expected \"# element count <N>\"");
    int extraLines = 0;
    for (;;) {
        if (!lines.next(line))
            throw InputError(InputFault::truncated, path,
                             "the header has no \"# end_header\" line");
        if (line == "# end_header") break;
        if (line.substr(0, 1) != "#")
            failAt(InputFault::malformed, path, lines.lineNumber(),
                   "header line without '#' before \"# end_header\"");
        ++extraLines;
    }
    // Every body line takes at least its line end: refuse a count the file
    // cannot hold before sizing anything from it.
    const int64_t bodyBytes = static_cast<int64_t>(text.size() - lines.consumed(text));
    if (count > bodyBytes)
        throw InputError(InputFault::truncated, path,
                         "the header declares " + std::to_string(count) +
                             " entries, the body has only " + std::to_string(bodyBytes) + " bytes");

    const bool pairs = extraLines == 2;
    const size_t n = static_cast<size_t>(count);
    Correspondence record;
    record.targets.resize(n);
    (pairs ? record.pairSources : record.weightedSecond).resize(n);
    if (!pairs) {
        record.triangles.resize(3 * n);
        record.weights.resize(3 * n);
    }
    const int fields = pairs ? 2 : 8;
    for (size_t k = 0; k < n; ++k) {
        if (!lines.next(line))
            throw InputError(InputFault::truncated, path,
                             "the header declares " + std::to_string(count) +
                                 " entries, the body ends after " + std::to_string(k));
        const int64_t at = lines.lineNumber();
        scan::TokenReader tokens(line);
        std::string_view token[8];
        int found = 0;
        while (found < 8 && tokens.next(token[found])) ++found;
        if (found != fields || !tokens.atEnd())
            failAt(InputFault::malformed, path, at,
                   "entry " + std::to_string(k) + " does not have " + std::to_string(fields) +
                       " fields");
        const int32_t shift = static_cast<int32_t>(base);
        record.targets[k] = indexField(token[0], path, at) - shift;
        if (pairs) {
            record.pairSources[k] = indexField(token[1], path, at) - shift;
            continue;
        }
        record.weightedSecond[k] = indexField(token[1], path, at) - shift;
        for (int c = 0; c < 3; ++c) {
            record.triangles[3 * k + c] = indexField(token[2 + c], path, at);
            if (scan::parseDouble(token[5 + c], record.weights[3 * k + c]) != NumberStatus::ok)
                failAt(InputFault::nonFinite, path, at,
                       "entry " + std::to_string(k) + " has a non-finite weight " +
                           scan::quoted(token[5 + c]));
        }
    }
    while (lines.next(line))
        if (!scan::TokenReader(line).atEnd())
            failAt(InputFault::malformed, path, lines.lineNumber(),
                   "more body lines than the header's " + std::to_string(count));
    return record;
}

std::vector<int32_t> readStrictIndexList(const std::string& path) {
    const WholeFile file = readFileBytes(path);
    const std::string_view text = file.view();
    scan::LineReader lines(text);
    std::vector<int32_t> list;
    std::string_view line, token;
    while (lines.next(line)) {
        scan::TokenReader tokens(line);
        while (tokens.next(token)) list.push_back(indexField(token, path, lines.lineNumber()));
    }
    return list;
}

std::vector<double> readStrictWeights(const std::string& path) {
    const WholeFile file = readFileBytes(path);
    const std::string_view text = file.view();
    scan::LineReader lines(text);
    std::vector<double> weights;
    std::string_view line, token;
    while (lines.next(line)) {
        scan::TokenReader tokens(line);
        while (tokens.next(token)) {
            double value;
            if (scan::parseDouble(token, value) != NumberStatus::ok)
                failAt(InputFault::nonFinite, path, lines.lineNumber(),
                       "weight " + std::to_string(weights.size()) +
                           " is not a finite number: " + scan::quoted(token));
            weights.push_back(value);
        }
    }
    return weights;
}

}  // namespace kestrel::meridian
