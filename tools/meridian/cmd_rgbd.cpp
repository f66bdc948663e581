// `meridian rgbd-select`: the frame selection over a capture on disk, with
// every frame's outcome and a contact sheet of the four chosen frames.
// `meridian rgbd-demo`: writes the demo capture.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "cli_common.h"
#include "commands.h"
#include "demo/rgbd/demo_capture.h"
#include "image_file.h"
#include "modern_handles.h"
#include "rgbd/capture_files.h"
#include "rgbd/dynamic_library.h"
#include "rgbd/frame_selection.h"

namespace meridian::cli {

namespace {

namespace fs = std::filesystem;
using kestrel::meridian::CaptureFramePaths;
using kestrel::meridian::LandmarkModel;

struct SelectOptions {
    std::string landmarks;
    std::string capture;
    std::string contactSheet;
};

const char* codeMeaning(int code) {
    switch (code) {
        case 5:
            return "stored: frontal";
        case 4:
            return "stored: yaw -25";
        case 3:
            return "stored: yaw +25";
        case 2:
            return "stored: up";
        case -1:
            return "no face";
        case -2:
            return "eyes closed";
        case -3:
            return "no bucket";
        case -4:
            return "face too small";
        default:
            return "?";
    }
}

std::string progressBar(size_t done, size_t total) {
    constexpr size_t kWidth = 20;
    const size_t filled = total ? done * kWidth / total : kWidth;
    return "[" + std::string(filled, '#') + std::string(kWidth - filled, '.') + "]";
}

// The provider the library itself loads: libcv_face next to libmeridian_api.
std::string providerBesideTheLibrary() {
    const std::string beside = kestrel::meridian::DynamicLibrary::directoryOf(
        reinterpret_cast<const void*>(&meridian_version));
    const std::string provider = beside + kestrel::meridian::DynamicLibrary::fileName("libcv_face");
    return fs::exists(provider) ? provider : "";
}

std::unique_ptr<LandmarkModel> loadModelLikeTheLibrary(const std::string& modelDir) {
    std::string error;
    auto model = LandmarkModel::load(modelDir, providerBesideTheLibrary(), error);
    if (!model) throw CommandError(error);
    return model;
}

using FrameSelectionHandle = OwnedHandle<meridian_frame_selection, meridian_frame_selection_close>;

struct Chosen {
    const char* role;
    int id;
    float yaw = 0.0f, pitch = 0.0f;
};

void writeContactSheet(const std::string& path, const std::vector<CaptureFramePaths>& frames,
                       const std::vector<Chosen>& chosen, const LandmarkModel& model) {
    constexpr int kTile = 400;
    cv::Mat sheet(2 * kTile, 2 * kTile, CV_8UC3, cv::Scalar(32, 32, 32));
    for (size_t t = 0; t < chosen.size(); ++t) {
        const Chosen& c = chosen[t];
        kestrel::meridian::ColorImage image =
            kestrel::meridian::readColorImage(frames[size_t(c.id)].color);
        if (image.empty()) continue;
        cv::Mat drawn = cv::Mat(image.rows, image.cols, CV_8UC3, image.bgr.data()).clone();
        const auto analysis =
            kestrel::meridian::analyseFrame(model, image.bgr.data(), image.rows, image.cols);
        const double radius = std::max(1.0, image.cols / 320.0);
        if (analysis.found)
            for (int j = 0; j < kestrel::meridian::kKeptPointCount; ++j)
                cv::circle(
                    drawn,
                    cv::Point2f(analysis.landmarks(0, j) + 1.0f, analysis.landmarks(1, j) + 2.0f),
                    int(radius), cv::Scalar(0, 255, 0), cv::FILLED, cv::LINE_AA);
        const double scale = std::min(double(kTile) / drawn.cols, double(kTile) / drawn.rows);
        cv::resize(drawn, drawn, cv::Size(), scale, scale, cv::INTER_AREA);
        const cv::Rect tile(int(t % 2) * kTile, int(t / 2) * kTile, drawn.cols, drawn.rows);
        drawn.copyTo(sheet(tile));
        char label[128];
        std::snprintf(label, sizeof label, "%s: id %d (%s)  yaw %.1f  pitch %.1f", c.role, c.id,
                      fs::path(frames[size_t(c.id)].color).filename().string().c_str(), c.yaw,
                      c.pitch);
        const cv::Point at(tile.x + 8, tile.y + 20);
        cv::putText(sheet, label, at, cv::FONT_HERSHEY_SIMPLEX, 0.5, cv::Scalar(0, 0, 0), 3,
                    cv::LINE_AA);
        cv::putText(sheet, label, at, cv::FONT_HERSHEY_SIMPLEX, 0.5, cv::Scalar(255, 255, 255), 1,
                    cv::LINE_AA);
    }
    writeImageFile(path, sheet);
}

void runSelect(const SelectOptions& options) {
    if (!fs::is_directory(options.capture))
        throw CommandError("capture directory not found: " + options.capture);
    if (!options.contactSheet.empty()) requireWritable(options.contactSheet);
    const std::vector<CaptureFramePaths> frames = kestrel::meridian::listCapture(options.capture);
    if (frames.empty()) throw CommandError("no frames in " + options.capture + "/jpg");
    const auto model = loadModelLikeTheLibrary(options.landmarks);
    const std::string provider = providerBesideTheLibrary();
    const FrameSelectionHandle selection(
        requireOpened(meridian_frame_selection_open(options.landmarks.c_str(),
                                                    provider.empty() ? nullptr : provider.c_str()),
                      "the landmark model of " + options.landmarks));

    std::vector<float> yaws(frames.size(), 0.0f), pitches(frames.size(), 0.0f);
    for (size_t k = 0; k < frames.size(); ++k) {
        const std::string name = fs::path(frames[k].color).filename().string();
        std::printf("%s %3zu/%zu  id %3zu  %-8s ", progressBar(k + 1, frames.size()).c_str(), k + 1,
                    frames.size(), k, name.c_str());
        const kestrel::meridian::ColorImage color =
            kestrel::meridian::readColorImage(frames[k].color);
        const kestrel::meridian::DepthImage depth =
            kestrel::meridian::readDepthExr(frames[k].depth);
        if (color.empty() || depth.empty()) {
            std::printf("skipped: cannot read %s\n",
                        (color.empty() ? frames[k].color : frames[k].depth).c_str());
            continue;
        }
        meridian_frame_intake intake{};
        requireOk(meridian_frame_selection_add(selection.get(), int32_t(k), color.bgr.data(),
                                               size_t(color.cols), size_t(color.rows),
                                               color.bgr.size(), &intake),
                  "frame " + std::to_string(k),
                  meridian_frame_selection_last_error(selection.get()));
        const int code = intake.result;
        const float yaw = intake.yaw, pitch = intake.pitch;
        yaws[k] = yaw;
        pitches[k] = pitch;
        if (code == -1 || code == -2 || code == -4)
            std::printf("code %2d  %-16s\n", code, codeMeaning(code));
        else
            std::printf("code %2d  %-16s yaw %7.2f  pitch %7.2f\n", code, codeMeaning(code), yaw,
                        pitch);
        std::fflush(stdout);
    }
    int32_t ids[4] = {0, 0, 0, 0};
    const meridian_status chose = meridian_frame_selection_choose(selection.get(), ids, 4);
    if (chose == MERIDIAN_INCOMPLETE) {
        // The first empty bucket, named as the final codes name it.
        const std::string said = meridian_frame_selection_last_error(selection.get());
        static const struct {
            const char* bucket;
            const char* name;
            int code;
        } kEmpty[] = {{"front", "frontal", -5},
                      {"yaw -25", "yaw -25", -4},
                      {"yaw +25", "yaw +25", -3},
                      {"up", "up", -2}};
        for (const auto& empty : kEmpty)
            if (said == std::string("no frame in the ") + empty.bucket + " bucket")
                throw CommandError(std::string("no ") + empty.name +
                                   " frame was stored, so no four frames can be chosen "
                                   "(final code " +
                                   std::to_string(empty.code) + ")");
    }
    requireOk(chose, "the choice", meridian_frame_selection_last_error(selection.get()));
    std::vector<Chosen> chosen = {
        {"front", ids[0]}, {"yaw -25", ids[1]}, {"yaw +25", ids[2]}, {"up", ids[3]}};
    std::printf("final: 1\n");
    for (Chosen& c : chosen) {
        c.yaw = yaws[size_t(c.id)];
        c.pitch = pitches[size_t(c.id)];
        std::printf("%-8s id %3d  %s\n", c.role, c.id, frames[size_t(c.id)].color.c_str());
    }
    if (!options.contactSheet.empty()) {
        writeContactSheet(options.contactSheet, frames, chosen, *model);
        std::printf("wrote contact sheet to %s\n", options.contactSheet.c_str());
    }
}

}  // namespace

void addRgbdCommands(CLI::App& app) {
    auto options = std::make_shared<SelectOptions>();
    CLI::App* select = app.add_subcommand(
        "rgbd-select", "Choose the frontal, turned and up frames of an RGBD capture");
    select
        ->add_option("--landmarks", options->landmarks,
                     "Landmark model directory given to the provider (its model, or empty to "
                     "use the system's)")
        ->required();
    select->add_option("--capture", options->capture, "Capture directory with jpg/ and exr/")
        ->required();
    select->add_option(
        "--contact-sheet", options->contactSheet,
        outputHelp("Also write a PNG of the four chosen frames with landmarks and angles"));
    select->callback([options] { runSelect(*options); });

    auto dir = std::make_shared<std::string>();
    CLI::App* demo = app.add_subcommand(
        "rgbd-demo", "Write the demo RGBD capture (a portrait turned left, right and up)");
    demo->add_option("--out", *dir, "Capture directory to write (created if missing)")->required();
    demo->callback([dir] {
        const auto start = std::chrono::steady_clock::now();
        std::string error;
        if (!demo::writeDemoCapture(*dir, error)) throw CommandError(error);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        std::cout << "demo capture (" << demo::demoCaptureFrames().size() << " frames) written to "
                  << *dir << " in " << took.count() << " s\n";
    });
}

}  // namespace meridian::cli
