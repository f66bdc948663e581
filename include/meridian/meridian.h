/**
 * @file
 * Meridian: post-processing of 3D head meshes for face-reconstruction and
 * avatar pipelines.
 *
 * A flat C interface. Every task has an init call, given a model directory
 * (or model files), that loads the task's data once and keeps an engine, and
 * run calls that take caller-owned arrays. AI_system_over releases all
 * engines.
 *
 * Array layout ("planar"): a caller-owned float array holds an R by C matrix
 * row after row, element (r, c) at index r*C + c. A set of N vertices is a
 * 3 by N matrix: x of vertex j at j, y at N + j, z at 2N + j. Per-vertex
 * results of k components leave the library the same way, k blocks of N.
 *
 * Template head: run calls take a head of exactly 20481 vertices in the
 * template topology, i.e. 3 * 20481 = 61443 floats.
 *
 * Handles: engines that may exist several times are named by a handle, a
 * pointer-sized number that is 0 on failure. A handle stays valid until
 * AI_system_over. A run call given 0, a handle of another kind, or a handle
 * from before AI_system_over returns its failure value (0 unless stated)
 * and writes nothing.
 *
 * Messages go to standard output. The library never keeps or frees caller
 * arrays, and no C++ exception leaves it: an exception inside an init call
 * gives that call's failure result, inside a run call 0.
 *
 * Threads: calls run on the caller's thread; the blendshape calls also
 * spread their work over the processor's cores and wait for it, so nothing
 * runs once a call has returned. Calls of one kind (init, run,
 * AI_system_over) must not overlap.
 */
#ifndef MERIDIAN_MERIDIAN_H
#define MERIDIAN_MERIDIAN_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(MERIDIAN_BUILDING_LIBRARY)
#define MERIDIAN_API __declspec(dllexport)
#else
#define MERIDIAN_API __declspec(dllimport)
#endif
#else
#define MERIDIAN_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** Handle of a registered engine; 0 means failure. */
typedef uint64_t meridian_handle;

/* ------------------------------------------------------------------------
 * Lifecycle
 * ------------------------------------------------------------------------ */

/**
 * Releases every engine and singleton. May be called again; init calls may
 * follow and start afresh. Handles returned before are no longer accepted.
 *
 * @return 1, always
 */
MERIDIAN_API int AI_system_over(void);

/* ------------------------------------------------------------------------
 * Head swap
 * ------------------------------------------------------------------------ */

/**
 * Creates a head converter from `model_dir`, which must hold
 * "idx_tavi2head.corresp" (template head -> head topology) and
 * "idx_head2ue4.corresp" (head topology -> engine vertex order). A separator
 * is inserted between directory and file name when needed.
 *
 * @param model_dir  the model directory
 * @return the engine's handle, or 0 when a file cannot be opened ("Invalid
 *         correspondence file: <path>" is printed) or when a source index
 *         lies outside its source mesh (the file and the first bad entry are
 *         printed)
 */
MERIDIAN_API meridian_handle AI_system_init_swaphead(const char* model_dir);

/**
 * Carries a face in the template topology onto the head and into the engine
 * vertex order. Every output vertex is a copy of one input vertex or a
 * barycentric blend of three.
 *
 * @param handle    a head converter from AI_system_init_swaphead
 * @param face_in   3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param head_out  room for 3 x N floats, N = entries of
 *                  "idx_head2ue4.corresp"; coordinate r of vertex k written
 *                  at r*N + k
 * @param count     not used (the input size is fixed)
 * @return N; 0 for a bad handle or a null array (nothing written)
 */
MERIDIAN_API int32_t AI_swap_head(meridian_handle handle, const float* face_in, float* head_out,
                                  int64_t count);

/* ------------------------------------------------------------------------
 * Tangent frames
 *
 * Output of both run calls: 9 by n floats, planar: component k of vertex i
 * at k*n + i, with k = 0..2 the tangent, 3..5 the bitangent and 6..8 the
 * normal. The tangent is always (1, 0, 0); the normal is the negated,
 * clamped mean of the face normals (components above 0.99 in magnitude
 * become +-1, below 0.001 become -0.0); the bitangent is the negated,
 * clamped cross product of that mean normal with (1, 0, 0).
 * ------------------------------------------------------------------------ */

/**
 * Loads the fixed tangent-frame engine from
 * model_dir + "/TBN/std_20481_with_UV_F_TF.obj" (plain concatenation), a
 * template whose vertices are the 20481 head vertices, with texture
 * coordinates and texture faces. Replaces the previous fixed engine.
 *
 * @param model_dir  the model directory (joined by plain concatenation)
 * @return 1 on success; -1 when the file is missing or its texture table is
 *         neither 2 rows nor 20481 columns (the path followed by "not exist!
 *         initialize TBN failed!" is printed), or when a face names a vertex
 *         or a texture coordinate that does not exist
 */
MERIDIAN_API int32_t AI_system_init_TBN(const char* model_dir);

/**
 * Creates a general tangent-frame engine from a template OBJ with its own
 * vertex numbering (`headobj_path`, used as given).
 *
 * @param headobj_path   the template OBJ, with texture coordinates and faces
 * @param idx_tavi2head  n_tavi2head ints; entry i is the head vertex
 *                       (0..20480) whose position becomes template vertex i
 * @param n_tavi2head    entries of idx_tavi2head; must equal the template's
 *                       vertex count
 * @param idx_head2tavi  n_head2tavi ints; entry j is the template vertex whose
 *                       frame becomes output vertex j
 * @param n_head2tavi    entries of idx_head2tavi: the output vertex count
 * @return the engine's handle, or 0 with a message when the template has no
 *         2-row texture table, when n_tavi2head differs from its vertex
 *         count, or when an index lies outside its range
 */
MERIDIAN_API meridian_handle AI_system_init_TBN_g(const char* headobj_path,
                                                  const int* idx_tavi2head, unsigned n_tavi2head,
                                                  const int* idx_head2tavi, unsigned n_head2tavi);

/**
 * As AI_system_init_TBN_g, with both index arrays read from text files of
 * whitespace-separated integers (reading stops at the first token that is
 * not an integer). A file that cannot be opened prints "Invalid index file:
 * <path>" and gives 0.
 *
 * @param headobj_path    the template OBJ, with texture coordinates and faces
 * @param tavi2head_file  text file of the idx_tavi2head entries
 * @param head2tavi_file  text file of the idx_head2tavi entries
 * @return the engine's handle, or 0
 */
MERIDIAN_API meridian_handle AI_system_init_TBN_g2(const char* headobj_path,
                                                   const char* tavi2head_file,
                                                   const char* head2tavi_file);

/**
 * Tangent frames of a head with the fixed engine.
 *
 * @param head_vertices  3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param tbn_out        room for 9 x 20481 floats, component k of vertex i at
 *                       k*20481 + i (tangent k = 0..2, bitangent 3..5,
 *                       normal 6..8)
 * @return 1; -1 (nothing written) before any AI_system_init_TBN or for a
 *         null array
 */
MERIDIAN_API int32_t AI_get_TBN(const float* head_vertices, float* tbn_out);

/**
 * Tangent frames of a head with a general engine.
 *
 * @param handle         a general engine from AI_system_init_TBN_g or _g2
 * @param head_vertices  3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param tbn_out        room for 9 x n floats, n = n_head2tavi; component k
 *                       of vertex i at k*n + i
 * @return 0 (its success value). A bad handle or a null array also gives 0
 *         and writes nothing.
 */
MERIDIAN_API int32_t AI_get_TBN_g(meridian_handle handle, const float* head_vertices,
                                  float* tbn_out);

/* ------------------------------------------------------------------------
 * Eyes
 *
 * Frame words: "first eye" and "second eye" are the two sockets the head
 * template defines (the first one around head vertex 12322, the second one
 * around head vertex 7166). "Left" and "right" in the aligners' file names
 * are the subject's left and right.
 * ------------------------------------------------------------------------ */

/**
 * Loads the plain eyeball task from model_dir + "/eyeball/new_eye.ply"
 * (plain concatenation): the template eyeball, an ASCII PLY with exactly 9
 * header lines and at least 770 vertices. Replaces the previous eyeball
 * task.
 *
 * Returns 1 on success. Returns 0 when the file is missing (the path
 * followed by " \xC2\xB7\xBE\xB6\xB2\xBB\xB4\xE6\xD4\xDA", "path does not
 * exist" in GBK, is printed) or has fewer than 770 vertices (the path and the
 * count are printed); the model directory is still kept for
 * debug_apply_one_pose_save_obj.
 *
 * @param model_dir  the model directory (joined by plain concatenation)
 * @return 1 on success, 0 on failure
 */
MERIDIAN_API int AI_system_init_eyeball(const char* model_dir);

/**
 * Places the template eyeball into both eye sockets of a head and reports,
 * per eye, the pose that takes a template-eyeball vertex v to
 * scale * R * v + position.
 *
 * Eye 0 is the first eye, eye 1 the second. The Euler angles of R are in
 * degrees (converted with 3.14 for pi): [0] about z, [1] about y, negated,
 * [2] about x, so that R = Rz([0]) * Ry(-[1]) * Rx([2]); [0] lies in
 * 0..180.09 (pi in these degrees). Infinite values are written as 0; NaN is
 * passed on.
 *
 * @param head_vertices   3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param template_index  landmark template the head is first aligned to: 0, 1 or 2
 * @param eye0_angles     3 doubles, written: the first eye's Euler angles
 * @param eye1_angles     3 doubles, written: the second eye's Euler angles
 * @param eye0_position   3 doubles, written: the first eye's position (x, y, z)
 * @param eye1_position   3 doubles, written: the second eye's position (x, y, z)
 * @param eye_scale       1 double, written: the scale, the same for both eyes
 * @return 1. Returns 0 and writes nothing before any AI_system_init_eyeball,
 *         after a failed one, for a template_index above 2 or for a null
 *         pointer.
 */
MERIDIAN_API int AI_add_eyeball(const float* head_vertices, unsigned template_index,
                                double* eye0_angles, double* eye1_angles, double* eye0_position,
                                double* eye1_position, double* eye_scale);

/**
 * Creates an eyeball aligner from `model_dir` (a separator is inserted when
 * needed), which must hold "idx_tavi2head.corresp" and in "eyeball/":
 * "eyeball_tri.obj" (the eyeball mesh), "idx_head2eyeball.corresp",
 * "idx_head2eyeball_left.corresp", "idx_head2eyeball_right.corresp" (head
 * vertex -> eyeball-mesh point), "idx_eyeball2ue4.corresp" (eyeball mesh ->
 * export order), "idx_eyeball_left.txt" and "idx_eyeball_right.txt" (the
 * eyeball-mesh vertices of each eye); optionally "w_head2eyeball_left.corresp"
 * and "w_head2eyeball_right.corresp" (one weight per entry; without them the
 * side fits weigh every entry the same).
 *
 * Returns the engine's handle, or 0 when a file cannot be opened (the
 * correspondence and index readers print "Invalid correspondence file:
 * <path>" / "Invalid indices file: <path>"; a missing OBJ prints nothing) or
 * when an index lies outside the table it names (the file and the first bad
 * entry are printed).
 *
 * @param model_dir  the model directory
 * @return the engine's handle, or 0
 */
MERIDIAN_API meridian_handle AI_system_init_eyeball_kova(const char* model_dir);

/**
 * Creates an eyelash aligner from `model_dir`, which must hold
 * "idx_tavi2head.corresp" and in "eyelash/": "eyelash_tri.obj" (the lash
 * mesh), "eyelash_bs01.obj" (its one blendshape: the same vertices, moved),
 * "idx_head2eyelash.corresp", "idx_head2eyelash_left.corresp",
 * "idx_head2eyelash_right.corresp", "idx_eyelash2ue4.corresp",
 * "idx_eyelash_left.txt" and "idx_eyelash_right.txt". Results and messages
 * as AI_system_init_eyeball_kova; the blendshape must have as many vertices
 * as the lash mesh.
 *
 * @param model_dir  the model directory
 * @return the engine's handle, or 0
 */
MERIDIAN_API meridian_handle AI_system_init_eyelash_kova(const char* model_dir);

/**
 * Fits an aligner's mesh to a head. Takes handles of both aligner kinds:
 * an eyeball aligner scales and moves its mesh onto the head as a whole
 * (scale clamped to 0.9..1.1), then turns and moves each eye onto its
 * socket; an eyelash aligner does the same with its lashes and then adds its
 * blendshape, with weights solved from the remaining offset, in five passes.
 *
 * @param handle         an eyeball or eyelash aligner
 * @param head_vertices  3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param out_vertices   room for 3 x N floats, N = entries of the aligner's
 *                       export correspondence ("eyeball/idx_eyeball2ue4.corresp"
 *                       or "eyelash/idx_eyelash2ue4.corresp"); coordinate r of
 *                       vertex k written at r*N + k
 * @param count          not used (the input size is fixed)
 * @return N (0 for an eyeball mesh without vertices, nothing written); 0 for
 *         a handle that is not a live aligner handle or a null array
 *         (nothing written)
 */
MERIDIAN_API int32_t AI_add_eyeball_kova(meridian_handle handle, const float* head_vertices,
                                         float* out_vertices, int64_t count);

/**
 * The same function as AI_add_eyeball_kova (the same address), for eyelash handles.
 * @param handle         an eyelash (or eyeball) aligner
 * @param head_vertices  3 x 20481 floats, coordinate r of vertex j at r*20481 + j
 * @param out_vertices   room for 3 x N floats, coordinate r of vertex k at r*N + k
 * @param count          not used
 * @return N, or 0 as AI_add_eyeball_kova
 */
MERIDIAN_API int32_t AI_add_eyelash_kova(meridian_handle handle, const float* head_vertices,
                                         float* out_vertices, int64_t count);

/* ------------------------------------------------------------------------
 * Debug
 * ------------------------------------------------------------------------ */

/**
 * Reads an ASCII PLY with exactly 7 header lines ("element vertex N" among
 * them) and writes its N vertices planar to `out` (3 * N floats).
 *
 * @param ply_path  the PLY file
 * @param out       room for 3 x N floats, coordinate r of vertex j at r*N + j
 * @return 1; 0 when the file cannot be opened (the path followed by
 *         " \xC2\xB7\xBE\xB6\xB2\xBB\xB4\xE6\xD4\xDA", "path does not exist"
 *         in GBK, is printed) or for a null pointer
 */
MERIDIAN_API int debug_get_head_data_from_ply(const char* ply_path, float* out);

/**
 * Reads the vertices of an OBJ and writes them planar to `out` (3 * N
 * floats: all x, all y, all z).
 *
 * @param obj_path  the OBJ file
 * @param out       room for 3 x N floats, coordinate r of vertex j at r*N + j
 * @return 1; 0 when the file has no vertices (e.g. a missing file; the path
 *         followed by " \xB2\xBB\xD5\xFD\xC8\xB7", "incorrect" in GBK, is
 *         printed) or for a null pointer
 */
MERIDIAN_API int debug_get_head_data_from_obj(const char* obj_path, float* out);

/**
 * Writes the template eye mesh, "/eyeball/color_eye/EyeNew.obj" below the
 * eyeball task's model directory, moved by one pose, to `out_obj_path`:
 * every vertex v becomes scale * R * v + translation with
 * R = Rz(angles_deg[0]) * Ry(-angles_deg[1]) * Rx(angles_deg[2]) (degrees
 * converted with 3.14 for pi), the form AI_add_eyeball reports. "v " lines
 * are rewritten with "%f" coordinates; every other line is copied.
 *
 * @param angles_deg    3 doubles: the Euler angles in degrees
 * @param translation   3 doubles: the position (x, y, z)
 * @param scale         the scale
 * @param out_obj_path  the OBJ file to write
 *
 * Prints " --------------   <out_obj_path>: -------------- ", R, " tt: " and
 * the translation, " scale: " and the scale. A file that cannot be opened
 * prints "can't open <path>" and nothing is written. Does nothing (no file,
 * no output) before any AI_system_init_eyeball or for a null pointer.
 */
MERIDIAN_API void debug_apply_one_pose_save_obj(const double* angles_deg, const double* translation,
                                                double scale, const char* out_obj_path);

/* ------------------------------------------------------------------------
 * RGBD frame selection
 *
 * During a capture the host offers colour + depth frames one at a time; at
 * the end the library names four of them: one frontal (|yaw| < 2), one
 * turned to about -25 degrees of yaw, one to about +25, and one looking up
 * about 6 degrees more than the chosen frontal frame. Landmarks come from
 * the landmark provider "libcv_face" (see meridian/cv_face.h), a shared
 * library loaded at init from the directory of this library, else from the
 * system loader's search path. Head angles come from an affine fit of a 3-D
 * mean face to 102 landmarks; yaw is negative when the nose points to the
 * image's left, pitch positive when the face looks up (degrees, computed
 * with 3.14 for pi).
 *
 * Frames are kept in four buckets (front, yaw -25, yaw +25, up) until
 * AI_Choose4RGBD_clear; AI_system_over releases the landmark model but
 * leaves the buckets as they are. A stored frame keeps its id, angles,
 * landmarks and sharpness score, not its images.
 * ------------------------------------------------------------------------ */

/**
 * Loads the landmark provider and runs its InitModel(model_dir, -1, 0).
 * Replaces the previous landmark model. Returns 1.
 *
 * When the provider or its model cannot be loaded, the reason goes to
 * standard error, "Init landmark model failed." to standard output; the
 * call then waits for one character on standard input and ends the process
 * with exit status 0. It does not return.
 *
 * @param model_dir  the landmark provider's model directory
 * @return 1
 */
MERIDIAN_API int32_t AI_system_init_Choose4RGBD(const char* model_dir);

/**
 * Offers one frame.
 *
 * @param frame_id      the host's id of the frame, reported by the final choice
 * @param color         color_height x color_width x 3 bytes, 8-bit BGR, rows
 *                      packed: channel c of pixel (x, y) at 3 * (y * color_width + x) + c
 * @param color_width   pixels per colour row
 * @param color_height  colour rows
 * @param depth         depth_height x depth_width 32-bit floats, pixel (x, y)
 *                      at y * depth_width + x. Not used for the choice; it must
 *                      be given.
 * @param depth_width   pixels per depth row
 * @param depth_height  depth rows
 * @param yaw_out       receives the head's yaw in degrees
 * @param pitch_out     receives the head's pitch in degrees
 * @return
 *    5  stored as frontal: |yaw| < 2, eyes open (threshold 0.2), and no
 *       frame yet in the other three buckets;
 *    4  stored as turned negative: -30 < yaw < -20, a frontal frame exists,
 *       eyes open (threshold 0.5);
 *    3  stored as turned positive: 20 < yaw < 30, likewise;
 *    2  stored as looking up: front and both turned buckets filled, pitch
 *       more than 3 above the first frontal frame's, |yaw| < 5, eyes open
 *       (threshold 0.5);
 *   -1  no face, or a landmark outside the image; both outputs set to
 *       -10000. Also before AI_system_init_Choose4RGBD (or after
 *       AI_system_over), and for a null pointer or a width or height of 0
 *       or less (images not read);
 *   -2  the frame matched a bucket but its eyes are judged closed (outputs
 *       not written);
 *   -3  a face that matches no bucket (outputs written);
 *   -4  the landmarks span less than 230 pixels (outputs not written).
 * Eye openness is, per eye, the three lid distances over the corner
 * distance; one eye below the threshold rejects the frame.
 */
MERIDIAN_API int32_t AI_Choose4RGBD_input_1_rgbd(int frame_id, const void* color, int color_width,
                                                 int color_height, const void* depth,
                                                 int depth_width, int depth_height, float* yaw_out,
                                                 float* pitch_out);

/**
 * Names the chosen frame of each bucket (the ids given at intake).
 * Sharpness is the standard deviation of the Laplacian of the frame's grey
 * image (times 255); the frame with the smallest score is chosen, the first
 * of equal scores. Front: among all frontal frames. Turned: among the five
 * whose yaw is nearest -25 (+25). Up: among the five whose pitch is nearest
 * the chosen frontal frame's pitch + 6.
 *
 * @param front_id    receives the frontal frame's id
 * @param yaw_neg_id  receives the id of the frame turned to about -25 degrees
 * @param yaw_pos_id  receives the id of the frame turned to about +25 degrees
 * @param up_id       receives the id of the frame looking up
 * @return 1, or the code of the first empty bucket, with no id written:
 *         -5 front (also before any frame, or for a null pointer), -4 yaw
 *         negative, -3 yaw positive, -2 up
 */
MERIDIAN_API int32_t AI_Choose4RGBD_get_final_4_rgbd(int* front_id, int* yaw_neg_id,
                                                     int* yaw_pos_id, int* up_id);

/**
 * Empties the four frame buckets. The landmark model stays.
 * @return 0
 */
MERIDIAN_API int32_t AI_Choose4RGBD_clear(void);

/**
 * Runs the selection over a capture on disk: empties the buckets, offers
 * capture_dir + "/jpg/<k+1>.jpg" as frame id k for k = 0 .. n-1, where n
 * is the number of regular files in capture_dir + "/jpg" (depth images, if
 * any, are capture_dir + "/exr/<k+1>.exr"; they are not needed), makes the
 * final choice and prints "final: " and its code on standard output. An
 * unreadable colour file counts as a frame without a face.
 *
 * @param capture_dir  the capture, holding jpg/ (and exr/)
 * @return 1; -1 (0xFFFFFFFF) before AI_system_init_Choose4RGBD or for a
 *         null path
 */
MERIDIAN_API int32_t debug_test_RGBD_choose4(const char* capture_dir);

/* ------------------------------------------------------------------------
 * Dynamic blendshapes
 *
 * One process-wide engine, no handle. From a neutral head it makes six
 * shapes: 0 the head itself, then local deformations of 1 the left cheek
 * ("gill_left"), 2 the right cheek, 3 the nose, 4 the left ear, 5 the right
 * ear. Each is a 500-component face model fitted to the face under the
 * region's constraints (the border follows the head, an anchor vertex is
 * pushed away from the border by a fixed factor) and written into the region,
 * blended with the head across the region's border. Vertices outside the
 * region keep their position (up to the rounding of the face model's frame
 * and back); vertices outside the face list keep theirs exactly.
 * ------------------------------------------------------------------------ */

/**
 * Loads the blendshape data from model_dir + "/BS/" (appended as given, so a
 * trailing slash doubles): 27 matrix files and, under "mask/", three files
 * for each region, and factorises each region's fit. Replaces the previous
 * engine (which stays allocated until AI_system_over). Prints
 * "init backend datas" followed by model_dir, then
 * "----load next info use time <milliseconds> ms".
 *
 * A missing data file prints "Unable to open file: <path>" and ends the
 * process with exit code -1 (255); so does a file shorter than its shape
 * needs (with a message naming it and both sizes). When a list names a
 * vertex that does not exist, or a standard deviation is not positive, the
 * file and entry are printed and no engine is kept (1 is still returned;
 * AI_get_BS then returns 0).
 *
 * @param model_dir  the model directory
 * @return 1; 0 for a null model_dir
 */
MERIDIAN_API int64_t AI_system_initDynamic_BS(const char* model_dir);

/**
 * The six shapes of a head.
 *
 * The same head always gives the same bits.
 *
 * @param head_vertices  3 x 20481 floats, coordinate a of vertex v at a*20481 + v
 * @param bs_out         room for 6 x 3 x 20481 = 368658 floats: coordinate a
 *                       of vertex v of shape s at (3s + a)*20481 + v
 * @return 1. Returns 0 and writes nothing before AI_system_initDynamic_BS,
 *         after AI_system_over, after an init that returned 0, or for a null
 *         array.
 */
MERIDIAN_API int64_t AI_get_BS(const float* head_vertices, float* bs_out);

#ifdef __cplusplus
}
#endif

#endif /* MERIDIAN_MERIDIAN_H */
