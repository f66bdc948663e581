// Engine registries and singletons behind the C interface.
//
// A handle is the address of the registry slot that holds an engine's
// shared_ptr. Slots live in a deque that only ever grows, so a slot never
// moves and a handle stays valid until AI_system_over. Slots emptied by
// AI_system_over are never reused, so an old handle can never name a new
// engine: it simply stops being live.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_set>
#include <utility>
#include <vector>

namespace kestrel::meridian::api {

using Handle = uint64_t;

template <typename Engine>
class Registry {
  public:
    /// Creates an engine in a new slot (registered before it is initialised,
    /// so a failed engine stays in the registry until clear()), runs
    /// `init(Engine&)` and returns the slot's handle when it reports success,
    /// else 0. Only handles returned here are accepted by find().
    template <typename Init>
    Handle registerAndInit(Init&& init) {
        std::shared_ptr<Engine>& slot = slots_.emplace_back(std::make_shared<Engine>());
        if (!init(*slot)) return 0;
        const Handle handle = reinterpret_cast<Handle>(&slot);
        live_.insert(handle);
        return handle;
    }

    /// The engine behind a live handle (a copy, so it stays alive for the
    /// caller's whole call), or null for 0, a foreign or a stale handle.
    std::shared_ptr<Engine> find(Handle handle) const {
        if (handle == 0 || live_.count(handle) == 0) return nullptr;
        return *reinterpret_cast<const std::shared_ptr<Engine>*>(handle);
    }

    /// Releases every engine of this registry (AI_system_over).
    void clear() {
        for (size_t i = firstCurrent_; i < slots_.size(); ++i) slots_[i].reset();
        firstCurrent_ = slots_.size();
        live_.clear();
    }

    /// Engines registered since the last clear(), failed ones included.
    size_t size() const { return slots_.size() - firstCurrent_; }

  private:
    std::deque<std::shared_ptr<Engine>> slots_;
    size_t firstCurrent_ = 0;
    std::unordered_set<Handle> live_;
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
template <typename Result, typename Body>
Result guarded(Result failure, Body&& body) noexcept {
    try {
        return body();
    } catch (...) {
        return failure;
    }
}

}  // namespace kestrel::meridian::api
