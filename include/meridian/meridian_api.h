/**
 * @file
 * Meridian's modern C interface (libmeridian_api).
 *
 * One opaque handle per engine. A handle is opened from a model directory
 * (or model files), owns its engine and nothing else, runs on arrays the
 * caller owns and sizes, and is closed by the caller. Handles share no
 * state: any number of them, of one kind or of several, live side by side,
 * and closing one leaves the others as they were.
 *
 * Errors: every run call returns a meridian_status; MERIDIAN_OK is 0. On
 * failure the handle keeps a one-line message, readable with the handle's
 * *_last_error function until its next call. An open call that fails
 * returns NULL; meridian_open_status() and meridian_open_error() then tell
 * why, for the calling thread. Nothing is ever printed and the process is
 * never ended; no C++ exception leaves the library.
 *
 * Array layout ("planar"): a float array holding N vertices is a 3 by N
 * matrix stored row after row, coordinate r (0 = x, 1 = y, 2 = z) of vertex
 * j at index r * N + j. Every array parameter comes with its length in
 * elements (floats, not bytes), which must equal the length the call names
 * exactly; the count queries give the numbers to size outputs with.
 *
 * Template head: run calls take a head of 20481 vertices in the template
 * topology, 3 * 20481 = 61443 floats (meridian_template_vertex_count()).
 * Every coordinate must be finite.
 *
 * Threads: a handle is used by one thread at a time; different handles may
 * be used from different threads at once. The blendshape handle may spread
 * one run over several threads of its own and waits for them before it
 * returns (meridian_blendshapes_set_thread_count).
 *
 * This interface is separate from the legacy one in meridian.h: other
 * names, another library, and the two never share an engine.
 */
#ifndef MERIDIAN_MERIDIAN_API_H
#define MERIDIAN_MERIDIAN_API_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#if defined(MERIDIAN_BUILDING_MODERN_API)
#define MERIDIAN_MODERN_API __declspec(dllexport)
#else
#define MERIDIAN_MODERN_API __declspec(dllimport)
#endif
#else
#define MERIDIAN_MODERN_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------
 * Status codes, library facts and failed opens
 * ------------------------------------------------------------------------ */

/** What a call met. The numbers never change. */
typedef enum meridian_status {
    MERIDIAN_OK = 0,                         /**< success */
    MERIDIAN_INVALID_ARGUMENT = 1,           /**< NULL, a wrong length, a non-finite value */
    MERIDIAN_CANNOT_OPEN = 2,                /**< a data file could not be opened */
    MERIDIAN_CANNOT_OPEN_CORRESPONDENCE = 3, /**< a ".corresp" file could not be opened */
    MERIDIAN_CANNOT_OPEN_INDEX_LIST = 4,     /**< an index list could not be opened */
    MERIDIAN_CANNOT_OPEN_MESH = 5,           /**< a mesh (OBJ or PLY) could not be opened */
    MERIDIAN_TOO_SHORT = 6,                  /**< a data file is shorter than its shape */
    MERIDIAN_TOO_LARGE = 7,                  /**< a data file or a count in it is too large */
    MERIDIAN_BAD_CONTENT = 8,                /**< a data file's content is wrong */
    MERIDIAN_INDEX_OUT_OF_RANGE = 9,         /**< an index names nothing that exists */
    MERIDIAN_NOT_LOADED = 10,                /**< the handle has no model (NULL handle) */
    MERIDIAN_WRITE_FAILED = 11,              /**< an output file could not be written */
    MERIDIAN_INTERNAL = 12,                  /**< an unexpected failure (e.g. out of memory) */
    MERIDIAN_INCOMPLETE = 13,                /**< the result needs data not given yet */
    MERIDIAN_UNAVAILABLE = 14                /**< this build has no such engine */
} meridian_status;

/**
 * The library's version, "major.minor.patch". Never NULL.
 * @return the version string, e.g. "0.1.0"
 */
MERIDIAN_MODERN_API const char* meridian_version(void);

/**
 * Vertices of the template head every run call takes: 20481.
 * @return 20481
 */
MERIDIAN_MODERN_API size_t meridian_template_vertex_count(void);

/**
 * Why the calling thread's last failed open failed (MERIDIAN_OK when its
 * last open succeeded or it never opened anything).
 * @return the status of the calling thread's last open
 */
MERIDIAN_MODERN_API meridian_status meridian_open_status(void);

/**
 * The message of the calling thread's last failed open ("" when none).
 * Valid until the thread's next open call.
 * @return the message, never NULL
 */
MERIDIAN_MODERN_API const char* meridian_open_error(void);

/* ------------------------------------------------------------------------
 * Debug head readers: a mesh file's vertices as the legacy debug readers
 * read them (a PLY with exactly 7 header lines; an OBJ's vertex table)
 * ------------------------------------------------------------------------ */

/** The debug readers' file kinds. */
typedef enum meridian_head_file {
    MERIDIAN_HEAD_PLY = 0, /**< ASCII PLY, exactly 7 header lines */
    MERIDIAN_HEAD_OBJ = 1  /**< OBJ */
} meridian_head_file;

/**
 * Reads a head mesh file's vertices. Call it once with `out` NULL to learn
 * the vertex count N (`*vertex_count`), then with room for them.
 * @param out           NULL, or receives 3 x N floats, coordinate r of vertex j at r*N + j
 * @param out_count     3 * N (ignored when `out` is NULL)
 * @param vertex_count  receives N (may be NULL when `out` is not)
 * Failures go to meridian_open_status() and meridian_open_error() (there is
 * no handle): MERIDIAN_CANNOT_OPEN_MESH, MERIDIAN_BAD_CONTENT, ...
 * @param path  the mesh file
 * @param kind  the file's kind (PLY or OBJ)
 * @return MERIDIAN_OK, or the failure's status
 */
MERIDIAN_MODERN_API meridian_status meridian_debug_read_head(const char* path,
                                                             meridian_head_file kind, float* out,
                                                             size_t out_count,
                                                             size_t* vertex_count);

/* ------------------------------------------------------------------------
 * Strict input: the head reader and the model check
 * ------------------------------------------------------------------------ */

/**
 * Reads a head in the template topology from an OBJ or PLY file, strictly:
 * OBJ `v` lines (with or without colours), `vt`, and triangles written `v`,
 * `v/t`, `v//n` or `v/t/n` (negative indices too); `vn`, `o`, `g`, `s`,
 * `usemtl` and `mtllib` are ignored. PLY with a parsed header, ascii or
 * binary of either byte order, comments and extra vertex properties. The
 * file is refused, with a message naming it and the place, when it has
 * another vertex count than 20481, a non-finite coordinate, a body shorter
 * than its header says, a malformed record, an index out of range, or a
 * polygon of more than three corners.
 * @param path       the head file: PLY when it starts with "ply", else OBJ
 * @param out        receives 3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param out_count  3 * 20481
 * Failures go to meridian_open_status() and meridian_open_error() (there is
 * no handle): MERIDIAN_CANNOT_OPEN_MESH, MERIDIAN_BAD_CONTENT,
 * MERIDIAN_TOO_SHORT, MERIDIAN_INDEX_OUT_OF_RANGE, MERIDIAN_INVALID_ARGUMENT.
 * @return MERIDIAN_OK, or the failure's status
 */
MERIDIAN_MODERN_API meridian_status meridian_read_head(const char* path, float* out,
                                                       size_t out_count);

/** The parts of a model directory meridian_check_model() checks (bit flags). */
typedef enum meridian_model_part {
    MERIDIAN_MODEL_HEAD_SWAP = 1,      /**< the two correspondences of the head swap */
    MERIDIAN_MODEL_ENGINE_HEAD = 2,    /**< "ue4_head.obj", one vertex per engine-order entry */
    MERIDIAN_MODEL_TANGENT_FRAMES = 4, /**< "TBN/std_20481_with_UV_F_TF.obj" with UVs */
    MERIDIAN_MODEL_EYEBALL_FIT = 8,    /**< "eyeball/new_eye.ply" */
    MERIDIAN_MODEL_EYE_ALIGNERS = 16,  /**< both aligners' meshes, correspondences and lists */
    MERIDIAN_MODEL_EYE_EXPORT = 32,    /**< the export-order eyeball and eyelash meshes */
    MERIDIAN_MODEL_BLENDSHAPES = 64,   /**< the 27 sets and 15 region files under "BS/" */
    /** everything an asset with eyes and blendshapes reads */
    MERIDIAN_MODEL_ASSET = 1 | 2 | 8 | 16 | 32 | 64
} meridian_model_part;

/**
 * Checks, strictly and before any engine loads, every file of `model_dir`
 * that the `parts` (meridian_model_part flags, or-ed) need: each exists and
 * is a regular file; correspondence counts match their bodies and their
 * indices lie in range of the meshes they index; weights are finite; matrix
 * files have their exact byte size; meshes are well formed, with the
 * counts the other files expect. The open calls run the same check for
 * their own parts.
 * Failures go to meridian_open_status() and meridian_open_error(), which
 * name the first file at fault and the fault.
 * @return MERIDIAN_OK, or the failure's status
 * @param model_dir  the model directory
 * @param parts      the parts to check: meridian_model_part flags, or-ed
 */
MERIDIAN_MODERN_API meridian_status meridian_check_model(const char* model_dir, uint32_t parts);

/* ------------------------------------------------------------------------
 * Head swap: a face in the template topology onto the head, in the game
 * engine's vertex order
 * ------------------------------------------------------------------------ */

/** An open head swap. */
typedef struct meridian_head_swap meridian_head_swap;

/**
 * Opens a head swap from `model_dir`: "idx_tavi2head.corresp" and
 * "idx_head2ue4.corresp" (a separator is inserted after the directory when
 * it lacks one). NULL on failure (see meridian_open_error).
 * @param model_dir  the model directory
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_head_swap* meridian_head_swap_open(const char* model_dir);

/**
 * Closes a head swap; NULL is ignored.
 * @param swap  the handle to close; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_head_swap_close(meridian_head_swap* swap);

/**
 * Vertices of each output (M, the entries of "idx_head2ue4.corresp"); 0 for NULL.
 * @param swap  the handle, or NULL
 * @return M; 0 for NULL
 */
MERIDIAN_MODERN_API size_t meridian_head_swap_output_vertex_count(const meridian_head_swap* swap);

/**
 * Carries one face onto the head.
 * @param face        3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param face_count  3 * 20481
 * @param head        receives 3 x M floats, coordinate r of vertex j at r*M + j
 * @param head_count  3 * M (M from meridian_head_swap_output_vertex_count)
 * @param swap  the handle
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_head_swap_run(meridian_head_swap* swap,
                                                           const float* face, size_t face_count,
                                                           float* head, size_t head_count);

/**
 * The message of the handle's last failed call ("" after a success).
 * @param swap  the handle, or NULL
 * @return the message ("" after a success), never NULL
 */
MERIDIAN_MODERN_API const char* meridian_head_swap_last_error(const meridian_head_swap* swap);

/* ------------------------------------------------------------------------
 * Tangent frames: per-vertex tangent, bitangent and normal of a head
 * ------------------------------------------------------------------------ */

/** An open tangent-frame engine, fixed or general. */
typedef struct meridian_tangent_frames meridian_tangent_frames;

/**
 * Opens the fixed engine: its template is model_dir + "/TBN/std_20481_with_UV_F_TF.obj"
 * (appended as is), whose vertices are the 20481 head vertices. NULL on failure.
 * @param model_dir  the model directory
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_tangent_frames* meridian_tangent_frames_open(const char* model_dir);

/**
 * Opens a general engine: a template OBJ with its own vertex numbering (T
 * vertices), linked to the head by two index lists.
 * @param template_obj   path of the template OBJ, used as given
 * @param tavi_to_head   T ints: entry i is the head vertex (0..20480) of template vertex i
 * @param tavi_count     T, the template's vertex count
 * @param head_to_tavi   M ints: entry j is the template vertex whose frame is output j
 * @param output_count   M
 * NULL on failure.
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_tangent_frames* meridian_tangent_frames_open_general(
    const char* template_obj, const int32_t* tavi_to_head, size_t tavi_count,
    const int32_t* head_to_tavi, size_t output_count);

/**
 * The same with both index lists read from text files (whitespace-separated
 * integers up to the first token that is not one). NULL on failure.
 * @param template_obj       path of the template OBJ, used as given
 * @param tavi_to_head_file  text file of the tavi_to_head entries
 * @param head_to_tavi_file  text file of the head_to_tavi entries
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_tangent_frames* meridian_tangent_frames_open_general_files(
    const char* template_obj, const char* tavi_to_head_file, const char* head_to_tavi_file);

/**
 * Closes an engine; NULL is ignored.
 * @param frames  the handle to close; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_tangent_frames_close(meridian_tangent_frames* frames);

/**
 * Vertices of each output (M): 20481 for the fixed engine; 0 for NULL.
 * @param frames  the handle, or NULL
 * @return M; 0 for NULL
 */
MERIDIAN_MODERN_API size_t
meridian_tangent_frames_output_vertex_count(const meridian_tangent_frames* frames);

/**
 * Threads one run uses. By default a run on a template of 4096 faces or more
 * is split over two threads on a processor with two cores or more: the
 * caller's and a second one the library keeps between runs (shared by every
 * handle; a run that finds it busy uses the caller's thread alone). The
 * results are the same bits for any number. On Windows runs always use the
 * caller's thread alone.
 * @param frames   the handle
 * @param threads  1 for a batch worker (the caller's thread only), 2, or 0
 *                 for the default
 * @return MERIDIAN_OK; MERIDIAN_NOT_LOADED for a NULL handle;
 *         MERIDIAN_INVALID_ARGUMENT above 2 (the handle keeps its count)
 */
MERIDIAN_MODERN_API meridian_status
meridian_tangent_frames_set_thread_count(meridian_tangent_frames* frames, unsigned threads);

/**
 * Tangent frames of one head.
 * @param head         3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_count   3 * 20481
 * @param out          receives 9 x M floats: component k of output vertex j at k*M + j,
 *                     k = 0..2 tangent, 3..5 bitangent, 6..8 normal
 * @param out_count    9 * M
 * @param frames  the handle
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_tangent_frames_run(meridian_tangent_frames* frames,
                                                                const float* head,
                                                                size_t head_count, float* out,
                                                                size_t out_count);

/**
 * The message of the handle's last failed call ("" after a success).
 * @param frames  the handle, or NULL
 * @return the message ("" after a success), never NULL
 */
MERIDIAN_MODERN_API const char* meridian_tangent_frames_last_error(
    const meridian_tangent_frames* frames);

/* ------------------------------------------------------------------------
 * Eyeball fit: one template eyeball placed in both sockets of a head
 * ------------------------------------------------------------------------ */

/** An open eyeball fit. */
typedef struct meridian_eyeball_fit meridian_eyeball_fit;

/** The placement of both eyes. */
typedef struct meridian_eye_poses {
    double angles_deg[2][3]; /**< eye e: Euler angles z, y, x in degrees, as the legacy fit gives */
    double positions[2][3];  /**< eye e: position x, y, z */
    double scale;            /**< the scale both eyes share */
} meridian_eye_poses;

/**
 * Opens an eyeball fit: model_dir + "/eyeball/new_eye.ply" (appended as is). NULL on failure.
 * @param model_dir  the model directory
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_eyeball_fit* meridian_eyeball_fit_open(const char* model_dir);

/**
 * Closes a fit; NULL is ignored.
 * @param fit  the handle to close; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_eyeball_fit_close(meridian_eyeball_fit* fit);

/**
 * Landmark templates a run may align to (3).
 * @return 3
 */
MERIDIAN_MODERN_API size_t meridian_eyeball_fit_template_count(void);

/**
 * Fits both eyes of one head.
 * @param head            3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_count      3 * 20481
 * @param template_index  landmark template, below meridian_eyeball_fit_template_count()
 * @param poses           receives the result
 * @param fit  the handle
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_eyeball_fit_run(meridian_eyeball_fit* fit,
                                                             const float* head, size_t head_count,
                                                             unsigned template_index,
                                                             meridian_eye_poses* poses);

/**
 * Writes the model's template eye mesh (model_dir +
 * "/eyeball/color_eye/EyeNew.obj", appended as is) moved by one eye's pose
 * to `path`, atomically: every "v " line becomes "v x y z" ("%f" each) of
 * scale * R * v + position, R from the angles as the fit reports them
 * (degrees, 3.14 for pi): about z by angles[0], about y by -angles[1],
 * about x by angles[2]. Every other line is kept.
 * @param angles_deg  3 doubles
 * @param position    3 doubles
 * @param fit    the handle
 * @param scale  the scale
 * @param path   the OBJ file to write
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_eyeball_fit_write_posed_eye(meridian_eyeball_fit* fit,
                                                                         const double* angles_deg,
                                                                         const double* position,
                                                                         double scale,
                                                                         const char* path);

/**
 * The message of the handle's last failed call ("" after a success).
 * @param fit  the handle, or NULL
 * @return the message ("" after a success), never NULL
 */
MERIDIAN_MODERN_API const char* meridian_eyeball_fit_last_error(const meridian_eyeball_fit* fit);

/* ------------------------------------------------------------------------
 * Eye aligners: an eyeball or eyelash mesh fitted to a head, in export order
 * ------------------------------------------------------------------------ */

/** An open eye aligner (eyeball or eyelash). */
typedef struct meridian_eye_aligner meridian_eye_aligner;

/**
 * Opens the eyeball aligner from the "eyeball/" files of `model_dir`. NULL on failure.
 * @param model_dir  the model directory
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_eye_aligner* meridian_eye_aligner_open_eyeball(const char* model_dir);

/**
 * Opens the eyelash aligner from the "eyelash/" files of `model_dir`. NULL on failure.
 * @param model_dir  the model directory
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_eye_aligner* meridian_eye_aligner_open_eyelash(const char* model_dir);

/**
 * Closes an aligner; NULL is ignored.
 * @param aligner  the handle to close; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_eye_aligner_close(meridian_eye_aligner* aligner);

/**
 * Vertices of each output (M, the export correspondence's entries); 0 for NULL.
 * @param aligner  the handle, or NULL
 * @return M; 0 for NULL
 */
MERIDIAN_MODERN_API size_t
meridian_eye_aligner_output_vertex_count(const meridian_eye_aligner* aligner);

/**
 * Fits the mesh to one head.
 * @param head        3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_count  3 * 20481
 * @param out         receives 3 x M floats, coordinate r of vertex j at r*M + j
 * @param out_count   3 * M
 * @param aligner  the handle
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_eye_aligner_run(meridian_eye_aligner* aligner,
                                                             const float* head, size_t head_count,
                                                             float* out, size_t out_count);

/**
 * The message of the handle's last failed call ("" after a success).
 * @param aligner  the handle, or NULL
 * @return the message ("" after a success), never NULL
 */
MERIDIAN_MODERN_API const char* meridian_eye_aligner_last_error(
    const meridian_eye_aligner* aligner);

/* ------------------------------------------------------------------------
 * Blendshapes: the neutral head and five regional deformations
 * ------------------------------------------------------------------------ */

/** An open blendshape engine. */
typedef struct meridian_blendshapes meridian_blendshapes;

/**
 * Opens the blendshape engine from model_dir + "/BS/" (appended as is),
 * reading and checking all of its files. A missing or short file is an
 * error here (MERIDIAN_CANNOT_OPEN, MERIDIAN_TOO_SHORT).
 * @param model_dir  the model directory
 * @return the engine, or NULL on failure (see meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_blendshapes* meridian_blendshapes_open(const char* model_dir);

/**
 * Closes an engine.
 * @param shapes  the engine; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_blendshapes_close(meridian_blendshapes* shapes);

/**
 * Threads one run spreads its five regions over. The results are the same
 * bits for any number.
 * @param shapes   the engine
 * @param threads  1 for a batch worker, 0 for the default (the processor
 *                 count, at most 5)
 * @return MERIDIAN_OK, or MERIDIAN_NOT_LOADED for a NULL engine
 */
MERIDIAN_MODERN_API meridian_status
meridian_blendshapes_set_thread_count(meridian_blendshapes* shapes, unsigned threads);

/**
 * Shapes each run writes: shape 0 is the head, shape s + 1 the deformation
 * of region s (left cheek, right cheek, nose, left ear, right ear).
 * @return S = 6
 */
MERIDIAN_MODERN_API size_t meridian_blendshapes_shape_count(void);

/**
 * The shapes of one head.
 * @param shapes      the engine
 * @param head        3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_count  3 * 20481
 * @param out         receives S x 3 x 20481 floats: coordinate r of vertex j of
 *                    shape s at (3*s + r)*20481 + j
 * @param out_count   S * 3 * 20481
 * @return MERIDIAN_OK, or MERIDIAN_INVALID_ARGUMENT for a NULL array, a
 *         wrong length or a non-finite coordinate
 */
MERIDIAN_MODERN_API meridian_status meridian_blendshapes_run(meridian_blendshapes* shapes,
                                                             const float* head, size_t head_count,
                                                             float* out, size_t out_count);

/**
 * The shapes of several heads in one call: each basis row is read once for
 * the whole batch instead of once per head, which is faster per head for
 * batches of a few heads or more. Every head's shapes are the same bits
 * meridian_blendshapes_run gives for that head alone.
 * @param shapes       the engine
 * @param heads        K x 3 x 20481 floats: coordinate r of vertex j of head k
 *                     at (3*k + r)*20481 + j
 * @param heads_count  K * 3 * 20481
 * @param batch_size   K, the number of heads (at least 1)
 * @param out          receives K x S x 3 x 20481 floats: coordinate r of
 *                     vertex j of shape s of head k at
 *                     ((S*k + s)*3 + r)*20481 + j; written only when the
 *                     call succeeds
 * @param out_count    K * S * 3 * 20481
 * @return MERIDIAN_OK, or MERIDIAN_INVALID_ARGUMENT for a batch of no heads,
 *         a NULL array, a length that does not match K, or a non-finite
 *         coordinate (the message names the head)
 */
MERIDIAN_MODERN_API meridian_status meridian_blendshapes_run_batch(meridian_blendshapes* shapes,
                                                                   const float* heads,
                                                                   size_t heads_count,
                                                                   size_t batch_size, float* out,
                                                                   size_t out_count);

/**
 * The message of the engine's last failed call.
 * @param shapes  the engine (NULL gives "")
 * @return the message, "" after a success; valid until the next call
 */
MERIDIAN_MODERN_API const char* meridian_blendshapes_last_error(const meridian_blendshapes* shapes);

/* ------------------------------------------------------------------------
 * Frame selection: four RGBD frames of a capture (front, yaw -25, yaw +25,
 * up), chosen from colour frames offered one by one
 *
 * Builds without OpenCV have no frame selection: the open call then fails
 * with MERIDIAN_UNAVAILABLE.
 * ------------------------------------------------------------------------ */

/** An open frame selection: a landmark provider and four frame buckets. */
typedef struct meridian_frame_selection meridian_frame_selection;

/** What became of an offered frame (the numbers never change). */
typedef enum meridian_frame_result {
    MERIDIAN_FRAME_STORED_FRONT = 5,        /**< kept as a frontal candidate */
    MERIDIAN_FRAME_STORED_YAW_NEGATIVE = 4, /**< kept as a yaw -25 candidate */
    MERIDIAN_FRAME_STORED_YAW_POSITIVE = 3, /**< kept as a yaw +25 candidate */
    MERIDIAN_FRAME_STORED_UP = 2,           /**< kept as an upward candidate */
    MERIDIAN_FRAME_NO_LANDMARKS = -1,       /**< no face found */
    MERIDIAN_FRAME_EYES_CLOSED = -2,        /**< eyes closed */
    MERIDIAN_FRAME_NO_BUCKET = -3,          /**< the head's angles fit no bucket */
    MERIDIAN_FRAME_FACE_TOO_SMALL = -4      /**< the face is too small */
} meridian_frame_result;

/** One offered frame's outcome. */
typedef struct meridian_frame_intake {
    int32_t result; /**< a meridian_frame_result */
    float yaw;      /**< head yaw in degrees; -10000 when not measured */
    float pitch;    /**< head pitch in degrees; -10000 when not measured */
} meridian_frame_intake;

/**
 * Opens a frame selection: loads the landmark provider (`provider_path`, or
 * NULL for "libcv_face" found the usual way) and its model from
 * `model_dir`. NULL on failure (see meridian_open_error).
 * @param model_dir      the model directory
 * @param provider_path  the provider library, or NULL for "libcv_face" found the usual way
 * @return the handle, or NULL on failure (see meridian_open_status and meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_frame_selection* meridian_frame_selection_open(
    const char* model_dir, const char* provider_path);

/**
 * Closes a frame selection; NULL is ignored.
 * @param selection  the handle to close; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_frame_selection_close(meridian_frame_selection* selection);

/**
 * Offers one colour frame.
 * @param frame_id   the caller's id of the frame, reported back by choose
 * @param bgr        height x width x 3 bytes, 8-bit BGR: channel c of pixel
 *                   (row y, column x) at (y*width + x)*3 + c
 * @param bgr_count  height * width * 3
 * @param intake     receives the outcome
 * @param selection  the handle
 * @param width      pixels per row
 * @param height     rows
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_frame_selection_add(
    meridian_frame_selection* selection, int32_t frame_id, const uint8_t* bgr, size_t width,
    size_t height, size_t bgr_count, meridian_frame_intake* intake);

/**
 * Frames a choice names (4): front, yaw -25, yaw +25, up.
 * @return 4
 */
MERIDIAN_MODERN_API size_t meridian_frame_selection_choice_count(void);

/**
 * Chooses the four frames among those stored.
 * @param ids        receives 4 frame ids: front, yaw -25, yaw +25, up
 * @param ids_count  4
 * MERIDIAN_INCOMPLETE (ids untouched) when a bucket holds no frame; the
 * message names the first empty one.
 * @param selection  the handle
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_frame_selection_choose(
    meridian_frame_selection* selection, int32_t* ids, size_t ids_count);

/**
 * Runs the selection over a capture on disk: the buckets are emptied, then
 * capture_dir + "/jpg/1.jpg", "2.jpg", ... (as many as that folder holds
 * regular files) are offered as frame ids 0, 1, ...; a file that cannot be
 * read is skipped. Then chooses as meridian_frame_selection_choose does.
 * @param selection    the handle
 * @param capture_dir  the capture folder, holding jpg/
 * @param ids          receives 4 frame ids: front, yaw -25, yaw +25, up
 * @param ids_count    4
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status meridian_frame_selection_run_capture(
    meridian_frame_selection* selection, const char* capture_dir, int32_t* ids, size_t ids_count);

/**
 * Forgets every stored frame.
 * @param selection  the handle
 * @return MERIDIAN_OK, or the failure's status (the message in the handle's last error)
 */
MERIDIAN_MODERN_API meridian_status
meridian_frame_selection_clear(meridian_frame_selection* selection);

/**
 * The message of the handle's last failed call ("" after a success).
 * @param selection  the handle, or NULL
 * @return the message ("" after a success), never NULL
 */
MERIDIAN_MODERN_API const char* meridian_frame_selection_last_error(
    const meridian_frame_selection* selection);

/* ------------------------------------------------------------------------
 * Head-asset builder: a head in memory to one binary glTF asset (.glb) with
 * the head in engine order, the five blendshapes as morph targets and the
 * eyeballs and eyelashes, in glTF's frame and metres
 *
 * Builds without tinygltf have no builder: the open call then fails with
 * MERIDIAN_UNAVAILABLE.
 * ------------------------------------------------------------------------ */

/** An open asset builder: every engine the asset needs, loaded once. */
typedef struct meridian_asset_builder meridian_asset_builder;

/** The figures a reviewer checks on a built asset. */
typedef struct meridian_asset_report {
    double eye_scale;                  /**< the eyeball's whole-mesh scale, after the clamp */
    int32_t eye_scale_clamped;         /**< 1 when the 0.9..1.1 clamp changed it */
    double region_max_displacement[5]; /**< per blendshape region, largest vertex move (m) */
    double bounds_min[3];              /**< bounding box of every vertex, glTF frame (m) */
    double bounds_max[3];              /**< its maximum corner; bounds_min is the minimum */
    uint64_t non_finite_positions;     /**< non-finite position and morph-offset coordinates */
    uint64_t non_finite_normals;       /**< non-finite normal coordinates */
} meridian_asset_report;

/**
 * Opens a builder on `model_dir`.
 * @param model_dir         the model directory
 * @param with_blendshapes  nonzero: morph targets from the model's "BS/" data
 * @param with_eyes         nonzero: eyeball and eyelash meshes
 * @param metres_per_unit   model units to metres; 0 for the default (0.0026)
 * @return the builder, or NULL on failure (a missing file is named in
 *         meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_asset_builder* meridian_asset_builder_open(const char* model_dir,
                                                                        int with_blendshapes,
                                                                        int with_eyes,
                                                                        double metres_per_unit);

/**
 * Closes a builder.
 * @param builder  the builder; NULL is ignored
 */
MERIDIAN_MODERN_API void meridian_asset_builder_close(meridian_asset_builder* builder);

/**
 * Builds the asset of one head and keeps it in the handle (replacing the
 * previous one) until the next build or close.
 * @param builder     the builder
 * @param head        3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_count  3 * 20481
 * @param report      receives the asset's figures (may be NULL)
 * @return MERIDIAN_OK; MERIDIAN_INVALID_ARGUMENT for a NULL head, a wrong
 *         length or a non-finite coordinate; another status when the head
 *         cannot be built
 */
MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build(meridian_asset_builder* builder,
                                                                 const float* head,
                                                                 size_t head_count,
                                                                 meridian_asset_report* report);

/**
 * Threads the builder's blendshape engine spreads one head's five regions
 * over.
 * @param builder  the builder
 * @param threads  1 for a batch worker (one process per core), 0 for the
 *                 default (the processor count, at most 5)
 * @return MERIDIAN_OK; the assets are the same bytes for any number
 */
MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_set_thread_count(meridian_asset_builder* builder, unsigned threads);

/**
 * Builds the assets of K heads and keeps them in the handle (replacing the
 * previous build) until the next build or close. The blendshapes of all K
 * heads come from one pass over the model's basis rows; each asset is the
 * same bytes meridian_asset_builder_build gives for its head alone.
 * @param builder        the builder
 * @param heads          K x 3 x 20481 floats: coordinate r of vertex j of
 *                       head k at (3*k + r)*20481 + j
 * @param heads_count    K * 3 * 20481
 * @param batch_size     K, the number of heads (at least 1)
 * @param reports        receives K reports, report k for head k (may be NULL)
 * @param reports_count  K (ignored when reports is NULL)
 * @return MERIDIAN_OK; MERIDIAN_INVALID_ARGUMENT for no heads, a NULL array,
 *         a length that does not match K or a non-finite coordinate; another
 *         status when a head cannot be built. On failure the message names
 *         the head and the handle keeps the previous build.
 */
MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build_batch(
    meridian_asset_builder* builder, const float* heads, size_t heads_count, size_t batch_size,
    meridian_asset_report* reports, size_t reports_count);

/**
 * Assets the last build holds: 1 after meridian_asset_builder_build, K after
 * meridian_asset_builder_build_batch, 0 before the first build.
 * @param builder  the builder (NULL gives 0)
 * @return the number of assets
 */
MERIDIAN_MODERN_API size_t
meridian_asset_builder_asset_count(const meridian_asset_builder* builder);

/**
 * Bytes of one asset's .glb.
 * @param builder  the builder (NULL gives 0)
 * @param index    0 .. meridian_asset_builder_asset_count() - 1
 * @return the size, 0 for an index past the last asset
 */
MERIDIAN_MODERN_API size_t meridian_asset_builder_glb_size_at(const meridian_asset_builder* builder,
                                                              size_t index);

/**
 * Copies one asset's .glb.
 * @param builder    the builder
 * @param index      0 .. meridian_asset_builder_asset_count() - 1
 * @param out        receives meridian_asset_builder_glb_size_at(index) bytes
 * @param out_count  meridian_asset_builder_glb_size_at(index)
 * @return MERIDIAN_OK, or MERIDIAN_INVALID_ARGUMENT for an index past the
 *         last asset, a NULL array or a wrong length
 */
MERIDIAN_MODERN_API meridian_status meridian_asset_builder_copy_glb_at(
    meridian_asset_builder* builder, size_t index, uint8_t* out, size_t out_count);

/**
 * Bytes of the last build's first asset's .glb.
 * @param builder  the builder (NULL gives 0)
 * @return the size, 0 before the first build
 */
MERIDIAN_MODERN_API size_t meridian_asset_builder_glb_size(const meridian_asset_builder* builder);

/**
 * Copies the last build's first asset's .glb.
 * @param builder    the builder
 * @param out        receives meridian_asset_builder_glb_size() bytes
 * @param out_count  meridian_asset_builder_glb_size()
 * @return MERIDIAN_OK, or MERIDIAN_INVALID_ARGUMENT for a NULL array or a
 *         wrong length
 */
MERIDIAN_MODERN_API meridian_status meridian_asset_builder_copy_glb(meridian_asset_builder* builder,
                                                                    uint8_t* out, size_t out_count);

/**
 * Writes the last build's first asset's .glb to `path` atomically: a
 * temporary file in the same folder, renamed over `path` once complete.
 * @param builder  the builder
 * @param path     the file to write
 * @return MERIDIAN_OK; MERIDIAN_INCOMPLETE before the first build; another
 *         status when the file cannot be written
 */
MERIDIAN_MODERN_API meridian_status
meridian_asset_builder_write_glb(meridian_asset_builder* builder, const char* path);

/**
 * The message of the builder's last failed call.
 * @param builder  the builder (NULL gives "")
 * @return the message, "" after a success; valid until the next call
 */
MERIDIAN_MODERN_API const char* meridian_asset_builder_last_error(
    const meridian_asset_builder* builder);

/**
 * Told the name of each stage of an asset builder's open or build as the
 * stage starts (e.g. "head swap", "eyes"); a stage ends where the next one
 * starts or the call returns. Called on the caller's thread.
 */
typedef void (*meridian_stage_callback)(const char* stage, void* user);

/** What the last build put in the asset. */
typedef struct meridian_asset_summary {
    uint64_t head_vertices; /**< vertices of the head, in engine order */
    uint64_t morph_targets; /**< the head's morph targets (0 without blendshapes) */
    uint64_t eye_meshes;    /**< eyeball and eyelash meshes (0 without eyes) */
} meridian_asset_summary;

/**
 * meridian_asset_builder_open, telling `on_stage` each loading stage as it
 * starts.
 * @param model_dir         the model directory
 * @param with_blendshapes  nonzero: morph targets from the model's "BS/" data
 * @param with_eyes         nonzero: eyeball and eyelash meshes
 * @param metres_per_unit   model units to metres; 0 for the default (0.0026)
 * @param on_stage          told each stage's name as it starts (may be NULL)
 * @param user              passed to `on_stage` unchanged
 * @return the builder, or NULL on failure (see meridian_open_error)
 */
MERIDIAN_MODERN_API meridian_asset_builder* meridian_asset_builder_open_staged(
    const char* model_dir, int with_blendshapes, int with_eyes, double metres_per_unit,
    meridian_stage_callback on_stage, void* user);

/**
 * meridian_asset_builder_build, telling `on_stage` each stage as it starts,
 * and saying what the asset holds.
 * @param builder     the builder
 * @param head        3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_count  3 * 20481
 * @param report      receives the asset's figures (may be NULL)
 * @param on_stage    told each stage's name as it starts (may be NULL)
 * @param user        passed to `on_stage` unchanged
 * @param summary     receives what the asset holds on success (may be NULL)
 * @return as meridian_asset_builder_build
 */
MERIDIAN_MODERN_API meridian_status meridian_asset_builder_build_staged(
    meridian_asset_builder* builder, const float* head, size_t head_count,
    meridian_asset_report* report, meridian_stage_callback on_stage, void* user,
    meridian_asset_summary* summary);

#ifdef __cplusplus
}
#endif

#endif /* MERIDIAN_MERIDIAN_API_H */
