// What every handle of the modern C interface shares: its last error, the
// per-thread error of a failed open, the guard that keeps exceptions inside
// the library, and the strict checks of caller arrays.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>

#include "common/error.h"
#include "io/input_error.h"
#include "io/model_check.h"
#include "meridian/meridian_api.h"

namespace kestrel::meridian::capi {

/// The status a C caller sees for an error (the numbers are the same).
inline meridian_status statusOf(const Error& error) {
    return static_cast<meridian_status>(error.code);
}

/// The last error of one handle; "" after a success.
class LastError {
  public:
    meridian_status set(Error error) {
        error_ = std::move(error);
        return statusOf(error_);
    }
    const char* message() const { return error_.message.c_str(); }

  private:
    Error error_;
};

/// The error of the calling thread's last open.
Error& openError();

/// The Error of a refused input (a strict reader's, the model check's or
/// the atomic writer's).
Error errorOf(const InputError& refused);

/// Runs `body` (returning an Error) and turns anything it throws into an
/// Error: nothing thrown inside the library crosses the C interface.
template <typename Body>
Error guarded(Body&& body) noexcept {
    try {
        return body();
    } catch (const InputError& refused) {
        return errorOf(refused);
    } catch (const std::bad_alloc&) {
        return {ErrorCode::internal, "", "out of memory"};
    } catch (const std::length_error& refused) {
        // A reader's input limits (a count the file cannot back).
        return {ErrorCode::tooLarge, "", refused.what()};
    } catch (const std::exception& e) {
        return {ErrorCode::internal, "", e.what()};
    } catch (...) {
        return {ErrorCode::internal, "", "unexpected failure"};
    }
}

/// Opens a handle: `load(Handle&, Error&)` fills a new handle and returns
/// whether it loaded. Returns the handle, or null with the thread's open
/// error set.
template <typename Handle, typename Load>
Handle* openHandle(Load&& load) noexcept {
    Error& failure = openError();
    std::unique_ptr<Handle> handle;
    failure = guarded([&]() -> Error {
        handle = std::make_unique<Handle>();
        Error error;
        if (!load(*handle, error) && !error)
            error = {ErrorCode::internal, "", "the engine did not load"};
        return error;
    });
    return failure ? nullptr : handle.release();
}

/// A path argument: not null.
Error checkPath(const char* path, const char* what);

/// A model directory argument: not null, and every file `tasks` need there
/// passes the strict model check (the first fault as the error).
Error checkModelDirectory(const char* modelDir, std::initializer_list<ModelTask> tasks);

/// A template head: not null, exactly 3 * 20481 floats, all finite.
Error checkHead(const float* head, size_t count);

/// K heads one after another (head k at k * 3 * 20481): K at least 1 and
/// small enough that K * `outputFloatsPerHead` floats can be counted, not
/// null, exactly K template heads long, every head as checkHead wants it
/// (a message names the head).
Error checkHeadBatch(const float* heads, size_t count, size_t batchSize,
                     size_t outputFloatsPerHead);

/// An output array: not null and exactly `expected` elements long.
Error checkOutput(const void* out, size_t count, size_t expected, const char* what);

/// Runs a call of a handle: null handle -> notLoaded; else `body()` guarded,
/// its error kept as the handle's last error.
template <typename Handle, typename Body>
meridian_status runCall(Handle* handle, Body&& body) noexcept {
    if (handle == nullptr) return MERIDIAN_NOT_LOADED;
    return handle->lastError.set(guarded(body));
}

/// The last error of a handle, "" for null.
template <typename Handle>
const char* lastErrorOf(const Handle* handle) noexcept {
    return handle == nullptr ? "" : handle->lastError.message();
}

}  // namespace kestrel::meridian::capi
