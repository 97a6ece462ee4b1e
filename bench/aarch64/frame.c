/*
 * 120 frames of 20 moving objects, of which the tracker sees the first few: the argument says how
 * many. All frames are made in every run, so two runs differ by what the tracker did.
 */
#include <stdlib.h>

#include "libiv.h"

enum { OBJECTS = 20, FRAMES = 120, CAPACITY = 56 };

static unsigned state = 1;

static float uniform(float low, float high) {
    state = state * 1664525u + 1013904223u;
    return low + (high - low) * (float)(state >> 16) / 65536.0f;
}

static void move(float* place, float* speed, float side) {
    if (*place + *speed < 0.0f || *place + *speed > side) {
        *speed = -*speed;
    }
    *place += *speed;
}

int main(int argc, char** argv) {
    const int seen = argc > 1 ? atoi(argv[1]) : FRAMES;
    const float side = 134.0f; /* 30 x 30 for each object */
    float x[OBJECTS], y[OBJECTS], vx[OBJECTS], vy[OBJECTS], w[OBJECTS], h[OBJECTS];
    for (int i = 0; i < OBJECTS; ++i) {
        x[i] = uniform(0.0f, side);
        y[i] = uniform(0.0f, side);
        vx[i] = uniform(-5.0f, 5.0f);
        vy[i] = uniform(-5.0f, 5.0f);
        w[i] = uniform(12.0f, 30.0f);
        h[i] = uniform(12.0f, 30.0f);
    }
    static float rows[OBJECTS + 1][6];
    static float tracks[CAPACITY][8];
    void* tracker = iv_tracker_create(640, 480, CAPACITY, 1.0f, 0.3f, 3, 10, 0);
    for (int frame = 0; frame < FRAMES; ++frame) {
        int count = 0;
        for (int i = 0; i < OBJECTS; ++i) {
            move(&x[i], &vx[i], side);
            move(&y[i], &vy[i], side);
            const float cx = x[i] + uniform(-0.5f, 0.5f);
            const float cy = y[i] + uniform(-0.5f, 0.5f);
            if (uniform(0.0f, 1.0f) < 0.05f) {
                continue; /* missed */
            }
            float* row = rows[count++];
            row[0] = 1.0f + (float)(i % 2);
            row[1] = cx - w[i] / 2.0f;
            row[2] = cy - h[i] / 2.0f;
            row[3] = cx + w[i] / 2.0f;
            row[4] = cy + h[i] / 2.0f;
            row[5] = 0.9f;
        }
        rows[count][0] = 0.0f;
        if (frame < seen) {
            iv_tracker_process(tracker, rows, tracks);
        }
    }
    return tracks[0][0] == -1.0f; /* the tracker follows something */
}
