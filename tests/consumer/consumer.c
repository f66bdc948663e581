/*
 * A program written against the installed library only: its C header, its
 * version header and the shared library. Built with find_package(Meridian)
 * and with pkg-config, it runs every task on a demo model set.
 *
 *   meridian_consumer MODEL_DIR                  checks every task on a made-up head
 *   meridian_consumer MODEL_DIR HEAD.f32 OUT_DIR also writes each task's output
 *
 * HEAD.f32 holds 3 * 20481 floats, planar; OUT_DIR receives swap.f32,
 * tbn.f32 and tbn_g.f32, the raw outputs of AI_swap_head, AI_get_TBN and
 * AI_get_TBN_g (from the demo's split template and its index files).
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <meridian/meridian.h>
#include <meridian/version.h>

#define HEAD_VERTICES 20481
/* Upper bounds for the demo model set's outputs. */
#define MAX_OUTPUT_VERTICES 65536

static int failures = 0;

static void check(int ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

static int readFloats(const char* path, float* values, size_t count) {
    FILE* file = fopen(path, "rb");
    size_t got = 0;
    if (file) {
        got = fread(values, sizeof(float), count, file);
        fclose(file);
    }
    return got == count;
}

static void writeFloats(const char* dir, const char* name, const float* values, size_t count) {
    char path[4096];
    FILE* file;
    snprintf(path, sizeof path, "%s/%s", dir, name);
    file = fopen(path, "wb");
    check(file != NULL && fwrite(values, sizeof(float), count, file) == count, path);
    if (file) fclose(file);
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

/* Vertices of the count line of a correspondence file, or 0. */
static long elementCount(const char* modelDir, const char* name) {
    char path[4096], line[256];
    long count = 0;
    FILE* file;
    snprintf(path, sizeof path, "%s/%s", modelDir, name);
    file = fopen(path, "r");
    if (!file) return 0;
    if (fgets(line, sizeof line, file) && fgets(line, sizeof line, file))
        sscanf(line, "# element count %ld", &count);
    fclose(file);
    return count;
}

int main(int argc, char** argv) {
    static float head[3 * HEAD_VERTICES];
    static float swapped[3 * MAX_OUTPUT_VERTICES];
    static float frames[9 * HEAD_VERTICES];
    static float generalFrames[9 * MAX_OUTPUT_VERTICES];
    char split[4096], toHead[4096], toTemplate[4096];
    const char* model;
    meridian_handle swap, general;
    long engineVertices, splitOutputs;
    int i;

    if (argc != 2 && argc != 4) {
        fprintf(stderr, "usage: %s MODEL_DIR [HEAD.f32 OUT_DIR]\n", argv[0]);
        return 2;
    }
    model = argv[1];
    printf("meridian %s (%d.%d.%d)\n", MERIDIAN_VERSION_STRING, MERIDIAN_VERSION_MAJOR,
           MERIDIAN_VERSION_MINOR, MERIDIAN_VERSION_PATCH);
    if (argc == 4) {
        if (!readFloats(argv[2], head, 3 * HEAD_VERTICES)) {
            fprintf(stderr, "cannot read %d floats from %s\n", 3 * HEAD_VERTICES, argv[2]);
            return 2;
        }
    } else {
        for (i = 0; i < 3 * HEAD_VERTICES; ++i) head[i] = (float)sin(0.001 * i) * 50.0f;
    }

    /* Head swap: every output vertex is a copy or a blend of input vertices. */
    engineVertices = elementCount(model, "idx_head2ue4.corresp");
    check(engineVertices > 0 && engineVertices <= MAX_OUTPUT_VERTICES, "engine vertex count");
    swap = AI_system_init_swaphead(model);
    check(swap != 0, "AI_system_init_swaphead");
    check(AI_swap_head(swap, head, swapped, 0) == engineVertices, "AI_swap_head");

    /* Fixed tangent frames: the tangent is (1, 0, 0) everywhere. */
    check(AI_system_init_TBN(model) == 1, "AI_system_init_TBN");
    check(AI_get_TBN(head, frames) == 1, "AI_get_TBN");
    check(frames[0] == 1.0f && frames[HEAD_VERTICES - 1] == 1.0f, "fixed tangents");

    /* General tangent frames on the seam-split template. */
    snprintf(split, sizeof split, "%s/TBN/head_split_uv.obj", model);
    snprintf(toHead, sizeof toHead, "%s/TBN/idx_tavi2head.txt", model);
    snprintf(toTemplate, sizeof toTemplate, "%s/TBN/idx_head2tavi.txt", model);
    general = AI_system_init_TBN_g2(split, toHead, toTemplate);
    check(general != 0, "AI_system_init_TBN_g2");
    splitOutputs = indexCount(toTemplate);
    check(splitOutputs > 0 && splitOutputs <= MAX_OUTPUT_VERTICES, "general frame count");
    check(AI_get_TBN_g(general, head, generalFrames) == 0, "AI_get_TBN_g");
    check(generalFrames[0] == 1.0f && generalFrames[splitOutputs - 1] == 1.0f, "general tangents");

    if (argc == 4) {
        writeFloats(argv[3], "swap.f32", swapped, (size_t)(3 * engineVertices));
        writeFloats(argv[3], "tbn.f32", frames, 9 * HEAD_VERTICES);
        writeFloats(argv[3], "tbn_g.f32", generalFrames, (size_t)(9 * splitOutputs));
    }

    /* After tear-down the handles are dead: nothing is written. */
    check(AI_system_over() == 1, "AI_system_over");
    swapped[0] = -1.0f;
    check(AI_swap_head(swap, head, swapped, 0) == 0 && swapped[0] == -1.0f, "stale handle");

    if (failures) return 1;
    printf("ok: swap %ld vertices, frames of %d and %ld vertices\n", engineVertices, HEAD_VERTICES,
           splitOutputs);
    return 0;
}
