#include "io/input_error.h"

namespace kestrel::meridian {

const char* inputFaultName(InputFault fault) {
    switch (fault) {
        case InputFault::missingFile:
            return "missing file";
        case InputFault::unreadable:
            return "unreadable file";
        case InputFault::unknownFormat:
            return "unknown format";
        case InputFault::wrongCount:
            return "wrong count";
        case InputFault::nonFinite:
            return "non-finite value";
        case InputFault::truncated:
            return "truncated file";
        case InputFault::malformed:
            return "malformed record";
        case InputFault::indexOutOfRange:
            return "index out of range";
        case InputFault::writeFailed:
            return "write failed";
        case InputFault::notRegularTarget:
            return "not a regular file";
    }
    return "fault";
}

}  // namespace kestrel::meridian
