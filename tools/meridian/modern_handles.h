// The modern C interface's handles as the tool holds them: owned pointers
// that close themselves, and failures turned into the tool's CommandError.
#pragma once

#include <memory>
#include <string>

#include "cli_common.h"
#include "meridian/meridian_api.h"

namespace meridian::cli {

template <typename Handle, void (*Close)(Handle*)>
struct HandleCloser {
    void operator()(Handle* handle) const { Close(handle); }
};

template <typename Handle, void (*Close)(Handle*)>
using OwnedHandle = std::unique_ptr<Handle, HandleCloser<Handle, Close>>;

using HeadSwapHandle = OwnedHandle<meridian_head_swap, meridian_head_swap_close>;
using TangentFramesHandle = OwnedHandle<meridian_tangent_frames, meridian_tangent_frames_close>;
using EyeballFitHandle = OwnedHandle<meridian_eyeball_fit, meridian_eyeball_fit_close>;
using EyeAlignerHandle = OwnedHandle<meridian_eye_aligner, meridian_eye_aligner_close>;

/// `handle`, or a CommandError saying what could not be loaded and why.
template <typename Handle>
Handle* requireOpened(Handle* handle, const std::string& what) {
    if (handle == nullptr) throw CommandError("cannot load " + what + ": " + meridian_open_error());
    return handle;
}

/// Nothing for MERIDIAN_OK, else a CommandError with the handle's message.
inline void requireOk(meridian_status status, const std::string& what, const char* message) {
    if (status != MERIDIAN_OK) throw CommandError(what + " failed: " + message);
}

}  // namespace meridian::cli
