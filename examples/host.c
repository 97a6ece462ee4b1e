/*
 * A host in C: reads what a detector reported, as MOTChallenge text, and prints the tracks.
 *
 *     host_c samples/crossing/det/det.txt 1280
 *
 * The second argument is the width of the image in pixels. Frames are numbered from 1, rows are in
 * the order of their frames.
 */
#include <libiv.h>
#include <stdio.h>
#include <stdlib.h>

enum { CAPACITY = 64 }; /* detections of a frame and tracks alive: twice the fullest frame */

static float detections[CAPACITY + 1][6], tracks[CAPACITY][8];
static int count; /* rows of `detections` that are in use */

/* One call a frame, also when nothing was detected: tracks that miss frames have to age. */
static void end_frame(void* tracker, int frame, double scale) {
    detections[count][0] = 0; /* ends the list */
    iv_tracker_process(tracker, detections, tracks);
    count = 0;
    for (int n = 0; n < CAPACITY && tracks[n][0] != -1; n++) {
        const float* track = tracks[n];
        const double left = track[2] / scale, top = track[3] / scale;
        const double right = track[4] / scale, bottom = track[5] / scale;
        if (track[7] != -1) { /* else nothing was detected: this is only where the object was */
            printf("%d,%d,%.3f,%.3f,%.3f,%.3f,%g,%d\n", frame, (int)track[0], left, top,
                   right - left, bottom - top, track[6], (int)track[1]);
        }
    }
}

static void add_detection(int class_number, double left, double top, double width, double height,
                          double score, double scale) {
    if (count == CAPACITY) {
        return; /* better: keep those of the highest scores */
    }
    float* row = detections[count++];
    row[0] = (float)class_number; /* classes number from 1: 0 would end the list */
    row[1] = (float)(left * scale);
    row[2] = (float)(top * scale);
    row[3] = (float)((left + width) * scale);
    row[4] = (float)((top + height) * scale);
    row[5] = (float)score;
}

int main(int argc, char** argv) {
    FILE* file = argc == 3 ? fopen(argv[1], "r") : NULL;
    const double image_width = argc == 3 ? atof(argv[2]) : 0;
    if (!file || image_width <= 0) {
        fprintf(stderr, "usage: %s DETECTIONS IMAGE_WIDTH\n", argv[0]);
        return 2;
    }
    /* Nothing is matched across 10 units. With the image 64 units wide that is far enough. */
    const double scale = 64 / image_width;
    void* tracker = iv_tracker_create(0, 0, CAPACITY, 1.0f, 0.1f, 3, 12, 0);
    if (!tracker) {
        return 1;
    }

    int frame, latest = 1, class_number;
    double left, top, width, height, score;
    while (fscanf(file, "%d,%*d,%lf,%lf,%lf,%lf,%lf,%d%*[^\n]", &frame, &left, &top, &width,
                  &height, &score, &class_number) == 7) {
        for (; latest < frame; latest++) {
            end_frame(tracker, latest, scale);
        }
        add_detection(class_number, left, top, width, height, score, scale);
    }
    end_frame(tracker, latest, scale);
    fclose(file);

    /* Without patience an empty frame lets all tracks go, which release alone does not. */
    iv_tracker_set_params(tracker, 1.0f, 0.1f, 3, 0, 0);
    detections[0][0] = 0;
    iv_tracker_process(tracker, detections, NULL);
    iv_tracker_release(tracker);
    return 0;
}
