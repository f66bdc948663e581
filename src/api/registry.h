// Engine registries and singletons behind the C interface.
//
// A handle is a number the library gives out once per process: a serial
// shared by all registries, never reused. A run call finds its engine only
// through the live handles of its own registry, so 0, a handle of another
// kind and a handle from before AI_system_over are all rejected, however
// many engines were created since. AI_system_over releases every engine and
// the registry keeps nothing per engine it ever held: memory stays bounded
// over any number of init / AI_system_over cycles.
#pragma once

#include <atomic>
#include <cstdint>
#include <iostream>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "io/input_limits.h"

namespace kestrel::meridian::api {

using Handle = uint64_t;

/// The next handle of the process. Small numbers are never handles, so an
/// init's status code passed by mistake names no engine. Atomic: inits of
/// different kinds may run at the same time.
inline Handle nextHandle() {
    static std::atomic<Handle> next{0x10000};
    return next++;
}

template <typename Engine>
class Registry {
  public:
    /// Creates an engine (registered before it is initialised, so a failed
    /// engine stays in the registry until clear()), runs `init(Engine&)` and
    /// returns a new handle when it reports success, else 0. Only handles
    /// returned here are accepted by find().
    template <typename Init>
    Handle registerAndInit(Init&& init) {
        std::shared_ptr<Engine>& engine = engines_.emplace_back(std::make_shared<Engine>());
        if (!init(*engine)) return 0;
        const Handle handle = nextHandle();
        live_.emplace(handle, engine);
        return handle;
    }

    /// The engine behind a live handle (a copy, so it stays alive for the
    /// caller's whole call), or null for 0, a foreign or a stale handle.
    std::shared_ptr<Engine> find(Handle handle) const {
        const auto found = live_.find(handle);
        return found == live_.end() ? nullptr : found->second;
    }

    /// Releases every engine of this registry (AI_system_over). What stays
    /// allocated is sized by the most engines that ever lived at once.
    void clear() {
        live_.clear();
        engines_.clear();
    }

    /// Engines registered since the last clear(), failed ones included.
    size_t size() const { return engines_.size(); }

  private:
    std::vector<std::shared_ptr<Engine>> engines_;
    std::unordered_map<Handle, std::shared_ptr<Engine>> live_;
};

/// One process-wide engine of a kind. A second init replaces the current
/// engine; the replaced one is kept allocated (not used again) until reset(),
/// which releases them all.
template <typename State>
class Singleton {
  public:
    State* get() const { return current_.get(); }

    State& replace(std::unique_ptr<State> state) {
        if (current_) replaced_.push_back(std::move(current_));
        current_ = std::move(state);
        return *current_;
    }

    void reset() {
        current_.reset();
        replaced_.clear();
    }

  private:
    std::unique_ptr<State> current_;
    std::vector<std::unique_ptr<State>> replaced_;
};

/// Runs `body` and turns any escaping exception into `failure`: nothing
/// thrown inside the library crosses the C interface.
/// A data file refused by a reader's limits is reported by its message, as
/// an init reports any bad file.
template <typename Result, typename Body>
Result guarded(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (const InputRefused& refused) {
        std::cout << refused.what() << std::endl;
        return failure;
    } catch (...) {
        return failure;
    }
}

}  // namespace kestrel::meridian::api
