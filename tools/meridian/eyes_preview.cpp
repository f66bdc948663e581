#include "eyes_preview.h"

#include "cli_common.h"

namespace meridian::cli {

namespace {

constexpr int kPanelHeight = 640;

const View kFront{{1, 0, 0}, {0, 0, 1}, {0, -1, 0}, "front"};
const View kSide{{0, -1, 0}, {0, 0, 1}, {-1, 0, 0}, "side"};

View labelled(View view, const char* label) {
    view.label = label;
    return view;
}

}  // namespace

void writeEyesPreview(const std::string& path, std::vector<PreviewLayer> layers,
                      kestrel::meridian::AtomicFileSet* outputs) {
    if (layers.empty()) throw CommandError("nothing to draw in " + path);
    // Smooth shading: flat shading let the head's small, steep faces at the
    // socket rims and the nose stand out as shards around the eyes.
    for (PreviewLayer& layer : layers)
        if (layer.normals.cols() != layer.vertices.cols()) layer.normals = vertexNormals(layer);
    std::vector<cv::Mat> panels;
    for (const View& view : {kFront, kSide})
        panels.push_back(drawView(view, layers, extentOf(view, layers, 0, 1, 0.0), kPanelHeight));
    if (layers.size() > 1) {
        panels.push_back(drawView(labelled(kFront, "front, eyes"), layers,
                                  extentOf(kFront, layers, 1, layers.size(), 0.15), kPanelHeight));
        // From the side the head hides the eyes: cut it open through the
        // centre of the second layer and leave out what lies far beside it.
        const Extent eye = extentOf(kSide, layers, 1, 2, 0.0);
        const Section section{-kSide.towardViewer.dot(layers[1].vertices.rowwise().mean()),
                              0.75 * (eye.right - eye.left)};
        panels.push_back(drawView(labelled(kSide, "side, cut through an eye"), layers,
                                  extentOf(kSide, layers, 1, 2, 0.4), kPanelHeight, section));
    }
    panels.push_back(colourKeyPanel(layers, kPanelHeight));
    writePanels(path, panels, outputs);
}

}  // namespace meridian::cli
