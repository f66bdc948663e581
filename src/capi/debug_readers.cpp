// The debug head readers, without a handle: their failures are reported
// like a failed open, per thread.
#include <fstream>

#include "capi/handle_support.h"
#include "common/template_head.h"
#include "io/mesh_readers.h"
#include "io/planar.h"

using namespace kestrel::meridian;
using namespace kestrel::meridian::capi;

namespace {

constexpr int kHeadPlyHeaderLines = 7;

/// The table the legacy debug reader of `kind` copies out (R by C, read
/// row after row), or an error.
Error readTable(const char* path, meridian_head_file kind, Eigen::MatrixXd& table) {
    if (kind == MERIDIAN_HEAD_PLY) {
        if (!std::ifstream(path))
            return {ErrorCode::cannotOpenMesh, path, "cannot open " + std::string(path)};
        table = readPly(path, kHeadPlyHeaderLines).vertices;
        return {};
    }
    table = readObj(path).vertices;
    if (table.rows() != 3 && table.rows() != kTemplateHeadVertexCount)
        return {ErrorCode::badContent, path,
                std::string(path) + ": " + std::to_string(table.rows()) +
                    " rows; a head has 3 or 20481"};
    return {};
}

}  // namespace

extern "C" MERIDIAN_MODERN_API meridian_status meridian_debug_read_head(
    const char* path, meridian_head_file kind, float* out, size_t out_count, size_t* vertex_count) {
    Error& failure = openError();
    failure = guarded([&]() -> Error {
        if (Error error = checkPath(path, "the path")) return error;
        if (kind != MERIDIAN_HEAD_PLY && kind != MERIDIAN_HEAD_OBJ)
            return {ErrorCode::invalidArgument, "", "the file kind is neither PLY nor OBJ"};
        if (out == nullptr && vertex_count == nullptr)
            return {ErrorCode::invalidArgument, "",
                    "nothing to write: out and vertex_count are NULL"};
        Eigen::MatrixXd table;
        if (Error error = readTable(path, kind, table)) return error;
        const auto floats = static_cast<size_t>(table.size());
        if (vertex_count) *vertex_count = floats / 3;
        if (out == nullptr) return {};
        if (Error error = checkOutput(out, out_count, floats, "the output")) return error;
        // readTable has checked an OBJ table's shape; a PLY's is 3 by N.
        matrixToPlanar(table, out);
        return {};
    });
    return statusOf(failure);
}
