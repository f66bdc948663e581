// Failures of the head export, and the stage log that times it.
#pragma once

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace meridian::exporter {

/// Which optional part of the asset a failure belongs to, so a caller can
/// say how to leave it out.
enum class AssetPart { kHead, kBlendshapes, kEyes };

/// A failure the export reports to its user: a missing or unusable model
/// file (named), an engine that would not load, an unexpected result.
struct ExportError : std::runtime_error {
    ExportError(const std::string& message, AssetPart part = AssetPart::kHead)
        : std::runtime_error(message), part(part) {}
    AssetPart part;
};

/// The time one stage took.
struct StageTime {
    std::string name;
    double seconds = 0.0;
};

/// Announces each stage as it starts and keeps how long it took.
class StageLog {
  public:
    explicit StageLog(std::function<void(const std::string&)> announce = {})
        : announce_(std::move(announce)) {}

    /// Runs `work` as the stage `name`.
    template <typename Work>
    void run(const std::string& name, Work&& work) {
        if (announce_) announce_(name);
        const auto start = std::chrono::steady_clock::now();
        work();
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        times_.push_back({name, took.count()});
    }

    const std::vector<StageTime>& times() const { return times_; }

  private:
    std::function<void(const std::string&)> announce_;
    std::vector<StageTime> times_;
};

}  // namespace meridian::exporter
