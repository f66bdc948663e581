// Layout of the 106 points. The predictor's 68 points (0-16 jaw, 17-26
// brows, 27-35 nose, 36-47 eyes, 48-67 lips) are taken as they are where the
// layout has the same point; the others are interpolated from them.
#include "face_layout.h"

#include <initializer_list>
#include <utility>

namespace cv_face {

namespace {

using Term = std::pair<int, double>;

void set(LayoutWeights& w, int point, std::initializer_list<Term> terms) {
    for (const Term& t : terms) w[point][t.first] += t.second;
}

LayoutWeights buildLayout() {
    LayoutWeights w{};
    // Contour: the 17 jaw points and the midpoints between them.
    for (int k = 0; k <= 16; ++k) set(w, 2 * k, {{k, 1.0}});
    for (int k = 0; k < 16; ++k) set(w, 2 * k + 1, {{k, 0.5}, {k + 1, 0.5}});
    // Upper brow edges.
    for (int k = 0; k < 10; ++k) set(w, 33 + k, {{17 + k, 1.0}});
    // Lower brow edges: between two neighbouring upper points, a fifth of the
    // way down toward the middle of the upper eyelid below.
    for (int k = 0; k < 4; ++k) {
        set(w, 43 + k, {{17 + k, 0.4}, {18 + k, 0.4}, {37, 0.1}, {38, 0.1}});
        set(w, 47 + k, {{22 + k, 0.4}, {23 + k, 0.4}, {43, 0.1}, {44, 0.1}});
    }
    // Eyes: the six lid points, the lid middles, then the pupil (centre of
    // the six) and the iris top (halfway from the centre to the upper lid).
    for (int eye = 0; eye < 2; ++eye) {
        const int first = 36 + 6 * eye;  // outer (A) or inner (B) corner
        const int base = 51 + 10 * eye;
        for (int k = 0; k < 6; ++k) set(w, base + k, {{first + k, 1.0}});
        set(w, base + 6, {{first + 1, 0.5}, {first + 2, 0.5}});
        set(w, base + 7, {{first + 4, 0.5}, {first + 5, 0.5}});
        for (int k = 0; k < 6; ++k) set(w, base + 8, {{first + k, 1.0 / 6.0}});
        for (int k = 0; k < 6; ++k) set(w, base + 9, {{first + k, 1.0 / 12.0}});
        set(w, base + 9, {{first + 1, 0.25}, {first + 2, 0.25}});
    }
    // Nose: bridge and base as they are, then the wings: the top halfway
    // between the bridge and the nostril, the outer point half the nostril's
    // distance from the base centre further out.
    for (int k = 0; k < 9; ++k) set(w, 71 + k, {{27 + k, 1.0}});
    set(w, 80, {{29, 0.5}, {31, 1.0}, {33, -0.5}});
    set(w, 81, {{31, 1.5}, {33, -0.7}, {30, 0.2}});
    set(w, 82, {{35, 1.5}, {33, -0.7}, {30, 0.2}});
    set(w, 83, {{29, 0.5}, {35, 1.0}, {33, -0.5}});
    // Lips, every run from the image's left to its right.
    for (int k = 0; k < 7; ++k) set(w, 84 + k, {{48 + k, 1.0}});   // 48..54
    for (int k = 0; k < 5; ++k) set(w, 91 + k, {{59 - k, 1.0}});   // 59..55
    set(w, 96, {{51, 0.5}, {62, 0.5}});                            // upper lip centre
    set(w, 97, {{57, 0.5}, {66, 0.5}});                            // lower lip centre
    for (int k = 0; k < 5; ++k) set(w, 98 + k, {{60 + k, 1.0}});   // 60..64
    for (int k = 0; k < 3; ++k) set(w, 103 + k, {{67 - k, 1.0}});  // 67..65
    return w;
}

}  // namespace

const LayoutWeights& layoutWeights() {
    static const LayoutWeights weights = buildLayout();
    return weights;
}

}  // namespace cv_face
