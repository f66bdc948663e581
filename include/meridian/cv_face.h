/**
 * @file
 * The landmark provider: what a "libcv_face" library exports for the frame
 * selection of the Meridian library.
 *
 * Meridian loads the provider at run time: libcv_face.so (Linux) or
 * libcv_face.dll (Windows), looked up first in the directory of the Meridian
 * library itself, then through the system loader's search path. The
 * provider exports two C functions, InitModel and GetFaceLandmark.
 *
 * The 106-point layout (x to the image's right, y down, in pixels of the
 * image given); "A" is the eye, brow and nose side on the image's left:
 *
 *    0-32  face contour from the image's left (ear level) round the chin to
 *          the right
 *   33-37  brow A upper edge, outer to inner     38-42  brow B upper edge, inner to outer
 *   43-46  brow A lower edge, outer to inner     47-50  brow B lower edge, inner to outer
 *   51-56  eye A: outer corner, upper lid (2), inner corner, lower lid (2)
 *   57, 58 eye A upper and lower lid middle      59, 60 pupil A: centre, iris top
 *   61-66  eye B: inner corner, upper lid (2), outer corner, lower lid (2)
 *   67, 68 eye B upper and lower lid middle      69, 70 pupil B: centre, iris top
 *   71-74  nose bridge, top to tip               75-79  nose base, left to right
 *   80, 81 wing A: top, outer                    82, 83 wing B: outer, top
 *   84-90  outer upper lip, left corner to right corner
 *   91-95  outer lower lip, left to right        96, 97 upper and lower lip centre
 *   98-102 inner upper lip, left corner to right corner
 *  103-105 inner lower lip, left to right
 */
#ifndef MERIDIAN_CV_FACE_H
#define MERIDIAN_CV_FACE_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Points of the landmark layout. */
#define CV_FACE_POINT_COUNT 106

/**
 * The block GetFaceLandmark fills. The caller clears it (and sets `score`
 * to 0) before the call; when no face is found the provider leaves
 * `point_count` at 0 and the points at a value outside every image.
 */
typedef struct CvFaceResult {
    int32_t face_count;  /**< faces found; the points belong to the largest */
    float score;         /**< detector confidence of that face, 0 when none */
    float box_left;      /**< left edge of its box, in image pixels */
    float box_top;       /**< top edge of the box */
    float box_right;     /**< right edge of the box */
    float box_bottom;    /**< bottom edge of the box */
    int32_t point_count; /**< CV_FACE_POINT_COUNT when points were written, else 0 */
    float points[2 * CV_FACE_POINT_COUNT]; /**< x0, y0, x1, y1, ... */
} CvFaceResult;

/**
 * Loads the landmark model from `model_dir`. Meridian passes -1 as `device`
 * (no accelerator) and 0 as `flags`. Returns -1 on failure, anything else
 * on success.
 */
typedef int (*CvFaceInitModel)(const char* model_dir, int device, int flags);

/**
 * Finds the largest face in an 8-bit image of `rows` by `cols` pixels with
 * `channels` interleaved channels (3: BGR; 1: grey; 4: BGRA), rows packed
 * without padding, and writes its landmarks to `result`. Returns the number
 * of faces found (Meridian does not use it).
 */
typedef int (*CvFaceGetFaceLandmark)(const unsigned char* image, int rows, int cols, int channels,
                                     CvFaceResult* result);

#ifdef __cplusplus
}
#endif

#endif /* MERIDIAN_CV_FACE_H */
