#include "io/correspondence.h"

#include <cstdio>
#include <fstream>
#include "io/input_limits.h"
#include "io/text_lines.h"

namespace kestrel::meridian {

namespace {

// Exactly two header lines between the count line and "# end_header" mark
// the pair form; any other number the weighted form.
constexpr int kPairFormExtraHeaderLines = 2;

void parsePairBody(std::istream& in, int count, Correspondence& record) {
    record.targets.assign(count, 0);
    record.pairSources.assign(count, 0);
    std::string line;
    for (int k = 0; k < count; ++k) {
        line.clear();
        getTextLine(in, line);
        std::sscanf(line.c_str(), "%d %d", &record.targets[k], &record.pairSources[k]);
    }
}

void parseWeightedBody(std::istream& in, int count, Correspondence& record) {
    record.targets.assign(count, 0);
    record.weightedSecond.assign(count, 0);
    record.triangles.assign(3 * static_cast<size_t>(count), 0);
    record.weights.assign(3 * static_cast<size_t>(count), 0.0);
    std::string line;
    for (int k = 0; k < count; ++k) {
        line.clear();
        getTextLine(in, line);
        int32_t* tri = &record.triangles[3 * static_cast<size_t>(k)];
        double* w = &record.weights[3 * static_cast<size_t>(k)];
        std::sscanf(line.c_str(), "%d %d %d %d %d %lf %lf %lf", &record.targets[k],
                    &record.weightedSecond[k], &tri[0], &tri[1], &tri[2], &w[0], &w[1], &w[2]);
    }
}

}  // namespace

bool loadCorrespondence(Correspondence& record, const std::string& path, Error& error) {
    std::ifstream in(path);
    if (!in) {
        error = {ErrorCode::cannotOpenCorrespondence, path, "cannot open " + path};
        return false;
    }
    // Measured before reading: a stream that has met its end cannot tell.
    const int64_t bytes = streamBytes(in);
    std::string line;
    int base = 0;
    int count = 0;
    if (getTextLine(in, line)) std::sscanf(line.c_str(), "# base %d", &base);
    line.clear();
    if (getTextLine(in, line)) std::sscanf(line.c_str(), "# element count %d", &count);
    if (count < 0) count = 0;
    // Missing body lines read as zeros, so the count sizes the record: refuse
    // one that the file cannot back before allocating for it.
    checkDeclaredCount(path, "element count", count, bytes);

    int extraHeaderLines = 0;
    while (getTextLine(in, line) && line != "# end_header") ++extraHeaderLines;

    Correspondence loaded;
    loaded.vertexWeights = std::move(record.vertexWeights);
    if (extraHeaderLines == kPairFormExtraHeaderLines)
        parsePairBody(in, count, loaded);
    else
        parseWeightedBody(in, count, loaded);

    // The base applies to the first two fields only; triangle corners are
    // always 0-based.
    if (base == 1) {
        for (int32_t& t : loaded.targets) --t;
        for (int32_t& s : loaded.pairSources) --s;
        for (int32_t& s : loaded.weightedSecond) --s;
    }
    record = std::move(loaded);
    return true;
}

bool loadWeightFile(Correspondence& record, const std::string& path) {
    std::ifstream in(path);
    if (!in) return false;
    std::vector<double> weights;
    double value = 0.0;
    while (in >> value) weights.push_back(value);
    record.vertexWeights = std::move(weights);
    return true;
}

bool loadIndexList(std::vector<int32_t>& list, const std::string& path, Error& error) {
    std::ifstream in(path);
    if (!in) {
        error = {ErrorCode::cannotOpenIndexList, path, "cannot open " + path};
        return false;
    }
    std::vector<int32_t> read;
    int32_t value = 0;
    while (in >> value) read.push_back(value);
    list = std::move(read);
    return true;
}

Eigen::Matrix3Xd applyCorrespondence(const Correspondence& record,
                                     const Eigen::Ref<const Eigen::Matrix3Xd>& source) {
    const Eigen::Index count = static_cast<Eigen::Index>(record.size());
    Eigen::Matrix3Xd result(3, count);
    if (record.isPairForm()) {
        for (Eigen::Index k = 0; k < count; ++k) result.col(k) = source.col(record.pairSources[k]);
        return result;
    }
    for (Eigen::Index k = 0; k < count; ++k) {
        const int32_t* tri = &record.triangles[3 * k];
        const double* w = &record.weights[3 * k];
        result.col(k) =
            w[0] * source.col(tri[0]) + w[1] * source.col(tri[1]) + w[2] * source.col(tri[2]);
    }
    return result;
}

Eigen::Matrix3Xd applyIndexList(const std::vector<int32_t>& list,
                                const Eigen::Ref<const Eigen::Matrix3Xd>& source) {
    const Eigen::Index count = static_cast<Eigen::Index>(list.size());
    Eigen::Matrix3Xd result(3, count);
    for (Eigen::Index k = 0; k < count; ++k) result.col(k) = source.col(list[k]);
    return result;
}

bool firstSourceOutOfRange(const Correspondence& record, int64_t sourceCount, BadSourceIndex& bad) {
    const auto outside = [&](int32_t index) { return index < 0 || index >= sourceCount; };
    const size_t count = record.size();
    for (size_t k = 0; k < count; ++k) {
        if (record.isPairForm()) {
            if (outside(record.pairSources[k])) {
                bad = {k, record.pairSources[k]};
                return true;
            }
            continue;
        }
        for (size_t c = 0; c < 3; ++c) {
            if (outside(record.triangles[3 * k + c])) {
                bad = {k, record.triangles[3 * k + c]};
                return true;
            }
        }
    }
    return false;
}

}  // namespace kestrel::meridian
