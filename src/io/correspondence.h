// Correspondence (".corresp"), vertex-weight and index-list files, and the
// mappings they define between mesh topologies.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <Eigen/Core>

#include "common/error.h"

namespace kestrel::meridian {

/// One ".corresp" file in memory. Entry k maps target vertex targets[k] either
/// to a single source vertex (pair form) or to a barycentric blend of a source
/// triangle (weighted form). All indices are 0-based after loading.
struct Correspondence {
    std::vector<int32_t> targets;         ///< #N target indices (first field of each line)
    std::vector<int32_t> pairSources;     ///< #N source vertices (pair form), else empty
    std::vector<int32_t> weightedSecond;  ///< #N second fields (weighted form), else empty
    std::vector<int32_t> triangles;       ///< #3N triangle corners a,b,c of entry k at 3k..3k+2
    std::vector<double> weights;          ///< #3N barycentric weights, laid out like triangles
    std::vector<double> vertexWeights;    ///< filled only by loadWeightFile

    /// Number of entries (= columns produced by applyCorrespondence).
    size_t size() const { return targets.size(); }
    /// True for the pair form: each entry copies one source vertex.
    bool isPairForm() const { return pairSources.size() == targets.size(); }
};

/// Reads a correspondence file. Returns false, with `error` set
/// (cannotOpenCorrespondence), only when the file cannot be opened; then
/// `record` is left as it was. A malformed header or body is not an error: fields `sscanf`
/// could not convert stay 0, and so do entries past the end of the body. An
/// element count above 2^24 or above the file's size in bytes throws
/// InputRefused (a corrupt file must not claim gigabytes).
bool loadCorrespondence(Correspondence& record, const std::string& path, Error& error);

/// Reads whitespace-separated doubles into record.vertexWeights until the
/// first token that is not a number. Returns false, silently, when the file
/// cannot be opened.
bool loadWeightFile(Correspondence& record, const std::string& path);

/// Reads whitespace-separated integers until the first token that is not one.
/// Returns false, with `error` set (cannotOpenIndexList), when the file
/// cannot be opened. The list is replaced only on success.
bool loadIndexList(std::vector<int32_t>& list, const std::string& path, Error& error);

/// Resamples a vertex set: column k of the result is source column
/// pairSources[k] (pair form) or w0*source(a) + w1*source(b) + w2*source(c)
/// (weighted form). `source` is 3 by #M; the result is 3 by record.size().
/// Indices are not checked; see firstSourceOutOfRange.
Eigen::Matrix3Xd applyCorrespondence(const Correspondence& record,
                                     const Eigen::Ref<const Eigen::Matrix3Xd>& source);

/// Gathers columns: column k of the result is source column list[k].
/// `source` is 3 by #M; the result is 3 by list.size(). Indices are not checked.
Eigen::Matrix3Xd applyIndexList(const std::vector<int32_t>& list,
                                const Eigen::Ref<const Eigen::Matrix3Xd>& source);

/// A source index that lies outside 0..sourceCount-1.
struct BadSourceIndex {
    size_t entry;   ///< 0-based entry (body line) number
    int32_t index;  ///< the offending source vertex index
};

/// Finds the first entry whose source vertex (pair form) or any triangle
/// corner (weighted form) is outside 0..sourceCount-1. Returns false when
/// every entry is in range.
bool firstSourceOutOfRange(const Correspondence& record, int64_t sourceCount, BadSourceIndex& bad);

}  // namespace kestrel::meridian
