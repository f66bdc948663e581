/*
 * A program written against the installed library only: its C header, its
 * version header and the shared library. Built with find_package(Meridian)
 * and with pkg-config, it runs every task on a demo model set.
 *
 *   meridian_consumer MODEL_DIR [--out OUT_DIR] [--capture DIR]
 *
 * The head is the demo's sample head as the debug OBJ reader reads it. With
 * --out, each task's raw output
 * goes to OUT_DIR: swap.f32, tbn.f32, tbn_g.f32 (the demo's split template),
 * eyes.f64 (per landmark template 0..2: both eyes' angles, both positions,
 * the scale), eyeball_kova.f32, eyelash_kova.f32, bs.f32 (when the model
 * has its blendshape data), head_obj.f32 and head_ply.f32 (the sample head
 * through both debug readers), posed_eye.obj (the first eye's pose of
 * template 0) and, with --capture, rgbd.i32 (final code and the four ids).
 * --capture runs the frame selection over a capture on disk with the
 * landmark provider found beside the library (given MODEL_DIR, which our
 * provider falls back from to the system's landmark model).
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <meridian/meridian.h>
#include <meridian/version.h>

#define HEAD_VERTICES 20481
#define HEAD_FLOATS (3 * HEAD_VERTICES)
#define SHAPE_FLOATS (6 * HEAD_FLOATS)
/* Upper bound for the demo model set's outputs. */
#define MAX_OUTPUT_VERTICES 65536
#define EYE_VALUES 13

static int failures = 0;
static const char* outDir = NULL;

static void check(int ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

static void join(char* path, size_t size, const char* dir, const char* name) {
    snprintf(path, size, "%s/%s", dir, name);
}

static void writeOutput(const char* name, const void* values, size_t bytes) {
    char path[4096];
    FILE* file;
    if (!outDir) return;
    join(path, sizeof path, outDir, name);
    file = fopen(path, "wb");
    check(file != NULL && fwrite(values, 1, bytes, file) == bytes, path);
    if (file) fclose(file);
}

static int exists(const char* path) {
    FILE* file = fopen(path, "rb");
    if (file) fclose(file);
    return file != NULL;
}

/* Integers of an index file, read up to the first token that is not one. */
static long indexCount(const char* path) {
    long count = 0;
    int value;
    FILE* file = fopen(path, "r");
    if (!file) return 0;
    while (fscanf(file, "%d", &value) == 1) ++count;
    fclose(file);
    return count;
}

/* Entries of the count line of a correspondence file, or 0. */
static long elementCount(const char* modelDir, const char* name) {
    char path[4096], line[256];
    long count = 0;
    FILE* file;
    join(path, sizeof path, modelDir, name);
    file = fopen(path, "r");
    if (!file) return 0;
    if (fgets(line, sizeof line, file) && fgets(line, sizeof line, file))
        sscanf(line, "# element count %ld", &count);
    fclose(file);
    return count;
}

static void swapAndFrames(const char* model, const float* head) {
    static float swapped[3 * MAX_OUTPUT_VERTICES];
    static float frames[9 * HEAD_VERTICES];
    static float generalFrames[9 * MAX_OUTPUT_VERTICES];
    char split[4096], toHead[4096], toTemplate[4096];
    meridian_handle swap, general;
    long engineVertices, splitOutputs;

    /* Head swap: every output vertex is a copy or a blend of input vertices. */
    engineVertices = elementCount(model, "idx_head2ue4.corresp");
    check(engineVertices > 0 && engineVertices <= MAX_OUTPUT_VERTICES, "engine vertex count");
    swap = AI_system_init_swaphead(model);
    check(swap != 0, "AI_system_init_swaphead");
    check(AI_swap_head(swap, head, swapped, 0) == engineVertices, "AI_swap_head");
    writeOutput("swap.f32", swapped, sizeof(float) * 3 * (size_t)engineVertices);

    /* Fixed tangent frames: the tangent is (1, 0, 0) everywhere. */
    check(AI_system_init_TBN(model) == 1, "AI_system_init_TBN");
    check(AI_get_TBN(head, frames) == 1, "AI_get_TBN");
    check(frames[0] == 1.0f && frames[HEAD_VERTICES - 1] == 1.0f, "fixed tangents");
    writeOutput("tbn.f32", frames, sizeof frames);

    /* General tangent frames on the seam-split template. */
    join(split, sizeof split, model, "TBN/head_split_uv.obj");
    join(toHead, sizeof toHead, model, "TBN/idx_tavi2head.txt");
    join(toTemplate, sizeof toTemplate, model, "TBN/idx_head2tavi.txt");
    general = AI_system_init_TBN_g2(split, toHead, toTemplate);
    check(general != 0, "AI_system_init_TBN_g2");
    splitOutputs = indexCount(toTemplate);
    check(splitOutputs > 0 && splitOutputs <= MAX_OUTPUT_VERTICES, "general frame count");
    check(AI_get_TBN_g(general, head, generalFrames) == 0, "AI_get_TBN_g");
    check(generalFrames[0] == 1.0f && generalFrames[splitOutputs - 1] == 1.0f, "general tangents");
    writeOutput("tbn_g.f32", generalFrames, sizeof(float) * 9 * (size_t)splitOutputs);
    printf("swap: %ld vertices; frames of %d and %ld vertices\n", engineVertices, HEAD_VERTICES,
           splitOutputs);
}

static void eyes(const char* model, const float* head) {
    static float aligned[3 * MAX_OUTPUT_VERTICES];
    double fits[3][EYE_VALUES];
    char posed[4096];
    const char* orders[2] = {"eyeball/idx_eyeball2ue4.corresp", "eyelash/idx_eyelash2ue4.corresp"};
    const char* outputs[2] = {"eyeball_kova.f32", "eyelash_kova.f32"};
    meridian_handle aligners[2];
    unsigned t;
    int k;

    /* Plain fit: both eyes take one scale, whatever the landmark template. */
    check(AI_system_init_eyeball(model) == 1, "AI_system_init_eyeball");
    for (t = 0; t < 3; ++t) {
        double* f = fits[t];
        check(AI_add_eyeball(head, t, f, f + 3, f + 6, f + 9, f + 12) == 1, "AI_add_eyeball");
        check(f[12] > 0.0 && fabs(f[12] - fits[0][12]) < 1e-9, "one eye scale for every template");
    }
    check(AI_add_eyeball(head, 3, fits[0], fits[0], fits[0], fits[0], fits[0]) == 0,
          "AI_add_eyeball refuses template 3");
    writeOutput("eyes.f64", fits, sizeof fits);
    if (outDir) {
        join(posed, sizeof posed, outDir, "posed_eye.obj");
        debug_apply_one_pose_save_obj(fits[0], fits[0] + 6, fits[0][12], posed);
        check(exists(posed), "debug_apply_one_pose_save_obj");
    }

    /* Aligners: one run function for both kinds, N export vertices each. */
    aligners[0] = AI_system_init_eyeball_kova(model);
    aligners[1] = AI_system_init_eyelash_kova(model);
    for (k = 0; k < 2; ++k) {
        const long n = elementCount(model, orders[k]);
        check(aligners[k] != 0 && n > 0 && n <= MAX_OUTPUT_VERTICES, orders[k]);
        check(AI_add_eyeball_kova(aligners[k], head, aligned, 0) == n, "AI_add_eyeball_kova");
        writeOutput(outputs[k], aligned, sizeof(float) * 3 * (size_t)n);
    }
    check(AI_add_eyelash_kova(aligners[1], head, aligned, 0) > 0, "AI_add_eyelash_kova");
    printf("eyes: scale %.6f, eyeball aligner %ld and eyelash aligner %ld vertices\n", fits[0][12],
           elementCount(model, orders[0]), elementCount(model, orders[1]));
}

static void blendshapes(const char* model, const float* head) {
    static float shapes[SHAPE_FLOATS];
    char probe[4096];
    int moved = 0, i;

    /* The init ends the process on a missing file: look before loading. */
    join(probe, sizeof probe, model, "BS/zf_all_face_V9_500_pcev_r_55554_c_500.bin");
    if (!exists(probe)) {
        printf("blendshapes: no data in %s/BS, left out\n", model);
        return;
    }
    check(AI_system_initDynamic_BS(model) == 1, "AI_system_initDynamic_BS");
    check(AI_get_BS(head, shapes) == 1, "AI_get_BS");
    /* Shape 0 is the head itself; the others move some vertices. */
    check(memcmp(shapes, head, sizeof(float) * HEAD_FLOATS) == 0, "blendshape 0 is the head");
    for (i = HEAD_FLOATS; i < SHAPE_FLOATS; ++i)
        moved += fabsf(shapes[i] - head[i % HEAD_FLOATS]) > 1e-3f;
    check(moved > 0, "blendshapes move vertices");
    writeOutput("bs.f32", shapes, sizeof shapes);
    printf("blendshapes: %d coordinates moved\n", moved);
}

static void debugReaders(const char* model) {
    static float fromObj[HEAD_FLOATS], fromPly[HEAD_FLOATS];
    char obj[4096], ply[4096];
    join(obj, sizeof obj, model, "sample_head.obj");
    join(ply, sizeof ply, model, "sample_head.ply");
    check(debug_get_head_data_from_obj(obj, fromObj) == 1, "debug_get_head_data_from_obj");
    check(debug_get_head_data_from_ply(ply, fromPly) == 1, "debug_get_head_data_from_ply");
    /* The demo writes one head in both formats, each value exactly. */
    check(memcmp(fromObj, fromPly, sizeof fromObj) == 0, "the sample head read both ways");
    writeOutput("head_obj.f32", fromObj, sizeof fromObj);
    writeOutput("head_ply.f32", fromPly, sizeof fromPly);
}

#ifndef MERIDIAN_CONSUMER_WITHOUT_RGBD
static int selectingFrames = 0;

/* The frame-selection init ends the process (status 0) when it cannot load
 * its provider: that must not pass for success. */
static void exitedDuringInit(void) {
    if (selectingFrames) {
        fprintf(stderr, "FAILED: AI_system_init_Choose4RGBD ended the process\n");
        _Exit(1);
    }
}

static void frameSelection(const char* model, const char* capture) {
    int32_t result[5] = {0, -1, -1, -1, -1};
    atexit(exitedDuringInit);
    selectingFrames = 1;
    check(AI_system_init_Choose4RGBD(model) == 1, "AI_system_init_Choose4RGBD");
    selectingFrames = 0;
    check(debug_test_RGBD_choose4(capture) == 1, "debug_test_RGBD_choose4");
    result[0] = AI_Choose4RGBD_get_final_4_rgbd(&result[1], &result[2], &result[3], &result[4]);
    check(result[0] == 1, "AI_Choose4RGBD_get_final_4_rgbd");
    check(AI_Choose4RGBD_clear() == 0, "AI_Choose4RGBD_clear");
    writeOutput("rgbd.i32", result, sizeof result);
    printf("rgbd: final %d, chosen ids %d %d %d %d\n", result[0], result[1], result[2], result[3],
           result[4]);
}
#endif

int main(int argc, char** argv) {
    static float head[HEAD_FLOATS], probe[3 * 8];
    const char *model, *capture = NULL;
    char sample[4096];
    meridian_handle swap;
    int i;

    if (argc < 2) {
        fprintf(stderr, "usage: %s MODEL_DIR [--out OUT_DIR] [--capture DIR]\n", argv[0]);
        return 2;
    }
    model = argv[1];
    for (i = 2; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--out") == 0)
            outDir = argv[i + 1];
        else if (strcmp(argv[i], "--capture") == 0)
            capture = argv[i + 1];
        else
            break;
    }
    if (i != argc) {
        fprintf(stderr, "unexpected argument: %s\n", argv[i]);
        return 2;
    }
    printf("meridian %s (%d.%d.%d)\n", MERIDIAN_VERSION_STRING, MERIDIAN_VERSION_MAJOR,
           MERIDIAN_VERSION_MINOR, MERIDIAN_VERSION_PATCH);
    join(sample, sizeof sample, model, "sample_head.obj");
    if (debug_get_head_data_from_obj(sample, head) != 1) {
        fprintf(stderr, "cannot read a head from %s\n", sample);
        return 2;
    }

    swapAndFrames(model, head);
    eyes(model, head);
    blendshapes(model, head);
    debugReaders(model);
#ifndef MERIDIAN_CONSUMER_WITHOUT_RGBD
    if (capture) frameSelection(model, capture);
#else
    if (capture) printf("rgbd: not in this build\n");
#endif

    /* After tear-down every engine is gone: nothing is written. */
    swap = AI_system_init_swaphead(model);
    check(AI_system_over() == 1, "AI_system_over");
    probe[0] = -1.0f;
    check(AI_swap_head(swap, head, probe, 0) == 0 && probe[0] == -1.0f, "stale handle");
    check(AI_get_BS(head, probe) == 0 && AI_get_TBN(head, probe) == -1, "released singletons");

    if (failures) return 1;
    printf("ok\n");
    return 0;
}
