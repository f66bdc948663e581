// libcv_face: the landmark provider built on dlib's frontal face detector
// (HOG features with a linear classifier) and its 68-point shape predictor.
//
// The detector runs on a copy scaled to a working size and the box is
// mapped back: dlib's detector misses more faces when it upsamples, and big
// frames would make it slow. The shape predictor then runs on the image at
// its own size, and the 68 points are turned into the 106-point layout.
#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>
#include <vector>

#include <dlib/image_processing.h>
#include <dlib/image_processing/frontal_face_detector.h>
#include <dlib/image_transforms.h>

#include "face_layout.h"
#include "meridian/cv_face.h"

#if defined(_WIN32)
#define CV_FACE_API __declspec(dllexport)
#else
#define CV_FACE_API __attribute__((visibility("default")))
#endif

namespace {

constexpr const char* kPredictorFile = "shape_predictor_68_face_landmarks.dat";
constexpr const char* kSystemModelDir = "/usr/share/dlib";
// Longest side of the image the detector sees. The detector's window is 80
// pixels; at this size the faces of a webcam or phone frame are well above
// it and one detection stays near 0.1 s.
constexpr int kWorkingSide = 640;

struct Model {
    dlib::frontal_face_detector detector = dlib::get_frontal_face_detector();
    dlib::shape_predictor predictor;
    bool loaded = false;
};

Model& model() {
    static Model instance;
    return instance;
}

bool isReadable(const std::string& path) {
    return std::ifstream(path, std::ios::binary).good();
}

std::string joinPath(const std::string& dir, const char* file) {
    if (dir.empty()) return file;
    const char last = dir.back();
    return (last == '/' || last == '\\') ? dir + file : dir + "/" + file;
}

dlib::array2d<unsigned char> toGrey(const unsigned char* image, int rows, int cols, int channels) {
    dlib::array2d<unsigned char> grey(rows, cols);
    for (int r = 0; r < rows; ++r) {
        const unsigned char* p = image + static_cast<size_t>(r) * cols * channels;
        for (int c = 0; c < cols; ++c, p += channels) {
            if (channels < 3) {
                grey[r][c] = p[0];
            } else {  // BGR(A), ITU-R BT.601 weights in 1/1024
                grey[r][c] =
                    static_cast<unsigned char>((117 * p[0] + 601 * p[1] + 306 * p[2] + 512) >> 10);
            }
        }
    }
    return grey;
}

void clearResult(CvFaceResult* result) {
    result->face_count = 0;
    result->score = 0.0f;
    result->box_left = result->box_top = result->box_right = result->box_bottom = 0.0f;
    result->point_count = 0;
    std::fill(std::begin(result->points), std::end(result->points), -1.0f);
}

}  // namespace

extern "C" {

/// Loads the shape predictor "shape_predictor_68_face_landmarks.dat" from
/// `model_dir`, or from /usr/share/dlib when `model_dir` does not have it
/// (Debian's libdlib-data). -1 when neither has a readable model.
CV_FACE_API int InitModel(const char* model_dir, int /*device*/, int /*flags*/) {
    try {
        Model& m = model();
        for (const std::string& dir :
             {std::string(model_dir ? model_dir : ""), std::string(kSystemModelDir)}) {
            const std::string path = joinPath(dir, kPredictorFile);
            if (dir.empty() || !isReadable(path)) continue;
            dlib::deserialize(path) >> m.predictor;
            m.loaded = true;
            return 0;
        }
    } catch (...) {
    }
    return -1;
}

CV_FACE_API int GetFaceLandmark(const unsigned char* image, int rows, int cols, int channels,
                                CvFaceResult* result) {
    if (result == nullptr) return 0;
    clearResult(result);
    Model& m = model();
    if (!m.loaded || image == nullptr || rows <= 0 || cols <= 0 || channels <= 0) return 0;
    try {
        const dlib::array2d<unsigned char> grey = toGrey(image, rows, cols, channels);
        const double scale = std::min(1.0, double(kWorkingSide) / std::max(rows, cols));
        std::vector<dlib::rect_detection> found;
        if (scale < 1.0) {
            dlib::array2d<unsigned char> working(static_cast<long>(std::lround(rows * scale)),
                                                 static_cast<long>(std::lround(cols * scale)));
            dlib::resize_image(grey, working);
            m.detector(working, found, 0.0);
        } else {
            m.detector(grey, found, 0.0);
        }
        if (found.empty()) return 0;
        const auto largest = std::max_element(
            found.begin(), found.end(),
            [](const auto& a, const auto& b) { return a.rect.area() < b.rect.area(); });
        const dlib::rectangle box(std::lround(largest->rect.left() / scale),
                                  std::lround(largest->rect.top() / scale),
                                  std::lround(largest->rect.right() / scale),
                                  std::lround(largest->rect.bottom() / scale));
        const dlib::full_object_detection shape = m.predictor(grey, box);
        if (shape.num_parts() != cv_face::kSourcePointCount) return 0;

        const cv_face::LayoutWeights& weights = cv_face::layoutWeights();
        for (int i = 0; i < CV_FACE_POINT_COUNT; ++i) {
            double x = 0.0, y = 0.0;
            for (int k = 0; k < cv_face::kSourcePointCount; ++k) {
                if (weights[i][k] == 0.0) continue;
                x += weights[i][k] * shape.part(k).x();
                y += weights[i][k] * shape.part(k).y();
            }
            result->points[2 * i] = static_cast<float>(x);
            result->points[2 * i + 1] = static_cast<float>(y);
        }
        result->face_count = static_cast<int32_t>(found.size());
        result->score = static_cast<float>(largest->detection_confidence);
        result->box_left = static_cast<float>(box.left());
        result->box_top = static_cast<float>(box.top());
        result->box_right = static_cast<float>(box.right());
        result->box_bottom = static_cast<float>(box.bottom());
        result->point_count = CV_FACE_POINT_COUNT;
        return result->face_count;
    } catch (...) {
        clearResult(result);
        return 0;
    }
}

/// The layout as weights: `out` receives 106 rows of 68 doubles, layout
/// point i = sum over k of out[68 i + k] * predictor point k. For tools that
/// map 3-D faces of the 68 points into the layout.
CV_FACE_API void CvFaceLayoutWeights(double* out) {
    const cv_face::LayoutWeights& weights = cv_face::layoutWeights();
    for (int i = 0; i < CV_FACE_POINT_COUNT; ++i)
        for (int k = 0; k < cv_face::kSourcePointCount; ++k) out[68 * i + k] = weights[i][k];
}

}  // extern "C"
