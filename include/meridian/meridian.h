/*
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
 * Releases every engine and singleton. Returns 1, always. May be called
 * again; init calls may follow and start afresh. Handles returned before
 * are no longer accepted.
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
 * Returns the engine's handle, or 0 when a file cannot be opened ("Invalid
 * correspondence file: <path>" is printed) or when a source index lies
 * outside its source mesh (the file and the first bad entry are printed).
 */
MERIDIAN_API meridian_handle AI_system_init_swaphead(const char* model_dir);

/**
 * Carries a face in the template topology onto the head and into the engine
 * vertex order. Every output vertex is a copy of one input vertex or a
 * barycentric blend of three.
 *
 * face_in:  3 * 20481 floats, planar (x of vertex j at j, y at 20481 + j,
 *           z at 40962 + j).
 * head_out: room for 3 * N floats, N = entries of "idx_head2ue4.corresp";
 *           written planar (coordinate r of vertex k at r*N + k).
 * count:    not used (the input size is fixed).
 *
 * Returns N; 0 for a bad handle or a null array (nothing written).
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
 * Returns 1 on success; -1 when the file is missing or its texture table is
 * neither 2 rows nor 20481 columns (the path followed by "not exist!
 * initialize TBN failed!" is printed), or when a face names a vertex or a
 * texture coordinate that does not exist.
 */
MERIDIAN_API int32_t AI_system_init_TBN(const char* model_dir);

/**
 * Creates a general tangent-frame engine from a template OBJ with its own
 * vertex numbering (`headobj_path`, used as given).
 *
 * idx_tavi2head: n_tavi2head ints; entry i is the head vertex (0..20480)
 *                whose position becomes template vertex i. n_tavi2head must
 *                equal the template's vertex count.
 * idx_head2tavi: n_head2tavi ints; entry j is the template vertex whose frame
 *                becomes output vertex j.
 *
 * Returns the engine's handle, or 0 with a message when the template has no
 * 2-row texture table, when n_tavi2head differs from its vertex count, or
 * when an index lies outside its range.
 */
MERIDIAN_API meridian_handle AI_system_init_TBN_g(const char* headobj_path,
                                                  const int* idx_tavi2head, unsigned n_tavi2head,
                                                  const int* idx_head2tavi, unsigned n_head2tavi);

/**
 * As AI_system_init_TBN_g, with both index arrays read from text files of
 * whitespace-separated integers (reading stops at the first token that is
 * not an integer). A file that cannot be opened prints "Invalid index file:
 * <path>" and gives 0.
 */
MERIDIAN_API meridian_handle AI_system_init_TBN_g2(const char* headobj_path,
                                                   const char* tavi2head_file,
                                                   const char* head2tavi_file);

/**
 * Tangent frames of a head with the fixed engine.
 *
 * head_vertices: 3 * 20481 floats, planar.
 * tbn_out:       room for 9 * 20481 floats, planar (see above, n = 20481).
 *
 * Returns 1; -1 (nothing written) before any AI_system_init_TBN or for a
 * null array.
 */
MERIDIAN_API int32_t AI_get_TBN(const float* head_vertices, float* tbn_out);

/**
 * Tangent frames of a head with a general engine.
 *
 * head_vertices: 3 * 20481 floats, planar.
 * tbn_out:       room for 9 * n_head2tavi floats, planar (n = n_head2tavi).
 *
 * Returns 0 (its success value). A bad handle or a null array also gives 0
 * and writes nothing.
 */
MERIDIAN_API int32_t AI_get_TBN_g(meridian_handle handle, const float* head_vertices,
                                  float* tbn_out);

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
 * Returns 1. A missing data file prints "Unable to open file: <path>" and
 * ends the process with exit code -1 (255); so does a file shorter than its
 * shape needs (with a message naming it and both sizes). When a list names a
 * vertex that does not exist, or a standard deviation is not positive, the
 * file and entry are printed and 0 is returned, with no engine. A null
 * model_dir gives 0.
 */
MERIDIAN_API int64_t AI_system_initDynamic_BS(const char* model_dir);

/**
 * The six shapes of a head.
 *
 * head_vertices: 3 * 20481 floats, planar (x of vertex v at v, y at
 *                20481 + v, z at 40962 + v).
 * bs_out:        room for 6 * 3 * 20481 = 368658 floats: coordinate a of
 *                vertex v of shape s at (3s + a) * 20481 + v.
 *
 * Returns 1. Returns 0 and writes nothing before AI_system_initDynamic_BS,
 * after AI_system_over, after an init that returned 0, or for a null array.
 * The same head always gives the same bits.
 */
MERIDIAN_API int64_t AI_get_BS(const float* head_vertices, float* bs_out);

#ifdef __cplusplus
}
#endif

#endif /* MERIDIAN_MERIDIAN_H */
