/*
 * A program written against the installed modern interface only: its header
 * and libmeridian_api. It opens every task of a model directory, sizes its
 * outputs with the count queries, runs each once on a smooth made-up head
 * and reports what it got; a failed open must say why.
 *
 *   meridian_modern_consumer MODEL_DIR
 */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <meridian/meridian_api.h>

static int failures = 0;

static void check(int ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

/* Coordinate r of vertex j at r * n + j: points on a unit sphere. */
static float* madeUpHead(size_t n) {
    float* head = malloc(3 * n * sizeof *head);
    for (size_t j = 0; j < n; ++j) {
        const double a = 0.001 * (double)j, b = 0.0007 * (double)j;
        head[j] = (float)(cos(a) * sin(b));
        head[n + j] = (float)(sin(a) * sin(b));
        head[2 * n + j] = (float)cos(b);
    }
    return head;
}

static void runFloats(const char* name, meridian_status status, const char* error) {
    printf("%s: %s\n", name, status == MERIDIAN_OK ? "ok" : error);
    check(status == MERIDIAN_OK, name);
}

int main(int argc, char** argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: %s MODEL_DIR\n", argv[0]);
        return 2;
    }
    const char* model = argv[1];
    const size_t n = meridian_template_vertex_count();
    float* head = madeUpHead(n);
    printf("meridian_api %s, template head of %zu vertices\n", meridian_version(), n);

    meridian_head_swap* swap = meridian_head_swap_open(model);
    check(swap != NULL, meridian_open_error());
    if (swap) {
        const size_t m = meridian_head_swap_output_vertex_count(swap);
        float* out = malloc(3 * m * sizeof *out);
        runFloats("head swap", meridian_head_swap_run(swap, head, 3 * n, out, 3 * m),
                  meridian_head_swap_last_error(swap));
        printf("  %zu vertices in engine order\n", m);
        free(out);
        meridian_head_swap_close(swap);
    }

    meridian_tangent_frames* frames = meridian_tangent_frames_open(model);
    check(frames != NULL, meridian_open_error());
    if (frames) {
        check(meridian_tangent_frames_set_thread_count(frames, 1) == MERIDIAN_OK,
              meridian_tangent_frames_last_error(frames));
        const size_t m = meridian_tangent_frames_output_vertex_count(frames);
        float* out = malloc(9 * m * sizeof *out);
        runFloats("tangent frames", meridian_tangent_frames_run(frames, head, 3 * n, out, 9 * m),
                  meridian_tangent_frames_last_error(frames));
        free(out);
        meridian_tangent_frames_close(frames);
    }

    meridian_eye_aligner* aligners[2] = {meridian_eye_aligner_open_eyeball(model),
                                         meridian_eye_aligner_open_eyelash(model)};
    for (int a = 0; a < 2; ++a) {
        check(aligners[a] != NULL, "an eye aligner opens");
        if (!aligners[a]) continue;
        const size_t m = meridian_eye_aligner_output_vertex_count(aligners[a]);
        float* out = malloc(3 * m * sizeof *out);
        runFloats(a == 0 ? "eyeball aligner" : "eyelash aligner",
                  meridian_eye_aligner_run(aligners[a], head, 3 * n, out, 3 * m),
                  meridian_eye_aligner_last_error(aligners[a]));
        free(out);
        meridian_eye_aligner_close(aligners[a]);
    }

    meridian_eyeball_fit* fit = meridian_eyeball_fit_open(model);
    check(fit != NULL, meridian_open_error());
    if (fit) {
        meridian_eye_poses poses;
        runFloats("eyeball fit", meridian_eyeball_fit_run(fit, head, 3 * n, 0, &poses),
                  meridian_eyeball_fit_last_error(fit));
        meridian_eyeball_fit_close(fit);
    }

    /* A model without blendshape data: an error with a message, no exit. */
    meridian_blendshapes* shapes = meridian_blendshapes_open(model);
    if (shapes == NULL) {
        printf("blendshapes: not opened (%d): %s\n", (int)meridian_open_status(),
               meridian_open_error());
        check(strlen(meridian_open_error()) > 0, "a failed open says why");
    } else {
        const size_t floats = meridian_blendshapes_shape_count() * 3 * n;
        float* out = malloc(floats * sizeof *out);
        meridian_blendshapes_set_thread_count(shapes, 1);
        runFloats("blendshapes", meridian_blendshapes_run(shapes, head, 3 * n, out, floats),
                  meridian_blendshapes_last_error(shapes));
        free(out);
        meridian_blendshapes_close(shapes);
    }
    free(head);
    printf("%s\n", failures ? "FAILED" : "all tasks ran");
    return failures ? 1 : 0;
}
