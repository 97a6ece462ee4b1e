/*
 * libiv - multi-object tracking for video analytics, and the matrices and Kalman filter under it.
 *
 * This is the public header. A host that only tracks needs nothing else: see "Tracker" below. A
 * host that reads matrix or filter records field by field includes _libiv.h, which includes this.
 *
 * Conventions, for every function below unless it says otherwise:
 *
 *  - Errors.  The library is silent: it prints nothing and keeps no error state. A function whose
 *             operands do not fit together returns without writing anything. Null pointers are not
 *             tested.
 *  - Types.   "The same type" means equal `type` fields, all 32 bits of them.
 *  - Storage. Matrices are dense and row-major. Values need not be aligned.
 *  - Floats.  Equal inputs give equal bits on every machine: every result has one order of
 *             operations. Matrix products sum in ascending index, with one accumulator and one
 *             fused multiply-add per term. Two exceptions: a NaN that arithmetic produced
 *             (processors disagree about its sign and payload), and the inverse of a singular
 *             matrix (it may depend on earlier calls). NaNs that are only copied or sign-flipped
 *             keep their bits.
 *  - Threads. Functions are reentrant on disjoint data, but for those that say "Shares the
 *             inverse's work area": at most one of those may run at a time in the whole process.
 *
 * The header is valid C99 and C++11.
 */
#ifndef LIBIV_H
#define LIBIV_H

/** MAJOR rises when hosts have to change, MINOR with what is new, PATCH with what is mended. */
#define LIBIV_VERSION_MAJOR 0
#define LIBIV_VERSION_MINOR 1
#define LIBIV_VERSION_PATCH 0

#if defined(__GNUC__)
#define LIBIV_API __attribute__((visibility("default")))
#else
#define LIBIV_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef signed char s08_t;        /**< signed, 8 bits */
typedef unsigned char u08_t;      /**< unsigned, 8 bits */
typedef signed short s16_t;       /**< signed, 16 bits */
typedef unsigned short u16_t;     /**< unsigned, 16 bits */
typedef signed int s32_t;         /**< signed, 32 bits */
typedef signed long long s64_t;   /**< signed, 64 bits */
typedef unsigned long long u64_t; /**< unsigned, 64 bits */
typedef float f32_t;              /**< IEEE 754 single precision */
typedef double f64_t;             /**< IEEE 754 double precision */

/** A matrix: a header over dense row-major storage. Its fields are in _libiv.h. */
typedef struct _iv_mat_t iv_mat_t;

/** A linear Kalman filter. Its fields are in _libiv.h. */
typedef struct _iv_kalman_t iv_kalman_t;

/* ------------------------------------------------------------------------------------------------
 * Tracker
 *
 * One instance per camera. Each frame, the host passes the detector's boxes and receives the
 * confirmed tracks, each with an identity that stays the same from frame to frame:
 *
 *     void* tracker = iv_tracker_create(1920, 1080, 64, 1.0f, 0.1f, 3, 12, 0);
 *     for each frame:
 *         float detections[64 + 1][6], tracks[64][8];
 *         ... fill rows of `detections`, then set column 0 of the row behind the last one to 0 ...
 *         iv_tracker_process(tracker, detections, tracks);
 *         ... read rows of `tracks` until column 0 is -1 or 64 rows are read ...
 *     iv_tracker_release(tracker);
 *
 * Coordinates are in units of the host's choice, the same for x and y. The choice matters: a
 * detection is never associated with a track whose predicted centre is 10 or more units away. 16 to
 * 100 units to the width of the image are a good start.
 * ---------------------------------------------------------------------------------------------- */

/**
 * Makes a tracker.
 *
 * @param im_w          image width; stored, takes part in no computation
 * @param im_h          image height; likewise
 * @param nmaxobjs      capacity, at least 1: the most detections read per frame, tracks alive and
 *                      rows written. Twice the fullest frame is a good choice.
 * @param euc_thresh    distance gate on the *squared* centre distance, in units squared; clamped
 *                      to 0..1, NaN becomes 1. A detection this near its track needs no overlap
 *                      with it.
 * @param iou_thresh    overlap gate on intersection over union, clamped likewise. A detection
 *                      beyond the distance gate must overlap the predicted box by more than this.
 *                      A value of 1 rejects every association.
 * @param fcnt_stable   matched frames after which a track is confirmed and gets its id; at least 1
 * @param fcnt_removal  consecutive missed frames that a track survives; at least 1. A track that
 *                      is not confirmed is removed at its 6th miss at the latest, and starts
 *                      counting its matches anew at its 4th and 5th.
 * @param ignore_class  non-zero: a detection may continue a track of another class
 * @return the handle, or null iff an allocation fails (nothing stays allocated then). The caller
 *         ends its life with iv_tracker_release.
 */
LIBIV_API void* iv_tracker_create(int im_w, int im_h, int nmaxobjs, float euc_thresh,
                                  float iou_thresh, int fcnt_stable, int fcnt_removal,
                                  int ignore_class);

/**
 * Replaces the tuning values from the next frame on; tracks, counters and ids stay.
 *
 * Unlike creation it clamps nothing, so a host may switch a gate off altogether: a negative
 * `euc_thresh` always asks for overlap, an `iou_thresh` of 1 or more rejects every association.
 * `fcnt_removal` below 1 removes a track at its first miss. `fcnt_stable` below 1 confirms a track
 * in its first frame. A confirmed track whose count of matches lies below a raised `fcnt_stable`
 * is not corrected until it reaches it; it is then confirmed anew, with a new id, and its old
 * filter stays allocated for good.
 */
LIBIV_API void iv_tracker_set_params(void* handle, float euc_thresh, float iou_thresh,
                                     int fcnt_stable, int fcnt_removal, int ignore_class);

/**
 * Takes one frame. A frame without detections must be passed too, or its misses are not counted.
 *
 * @param input   rows of class, left, top, right, bottom, score. The list ends at a row whose
 *                class is 0 (so detectors that number from 0 must be renumbered) or after
 *                `nmaxobjs` rows; in that case the class of the row behind them is still read. The
 *                class is truncated toward zero; out of range it saturates, NaN gives class 0
 *                without ending the list. Nothing is filtered, sorted or clamped.
 * @param output  null, or `nmaxobjs` rows of id, class, left, top, right, bottom, score, index of
 *                the input row matched in this frame or -1. Every confirmed track that missed at
 *                most two frames in a row is written, oldest first; a coasting track repeats its
 *                last box and score. Ids run from 1 to 1048574 and then start again. A row whose
 *                id is -1 (its other columns are not written) ends the list unless all `nmaxobjs`
 *                rows are in use.
 *
 * Allocates only when a track starts (once) or is confirmed (twice); a detection whose track
 * cannot be allocated is left out, a confirmation that cannot be allocated is tried again at the
 * next match. Shares the inverse's work area. An instance is used by one thread at a time.
 */
LIBIV_API void iv_tracker_process(void* handle, float (*input)[6], float (*output)[8]);

/**
 * Frees the instance: four blocks. Tracks that are still alive stay allocated, as do four small
 * model matrices (800 bytes). To let the tracks go first, set `fcnt_removal` to 0 and process one
 * empty frame.
 */
LIBIV_API void iv_tracker_release(void* handle);

/* ------------------------------------------------------------------------------------------------
 * Matrix record
 * ---------------------------------------------------------------------------------------------- */

/**
 * Makes `mat` describe `rows` x `cols` elements of `type` at `data`, packed; owns nothing, checks
 * nothing.
 *
 * @return `mat`; null iff `mat` is null
 */
LIBIV_API iv_mat_t* iv_mat_initheader(iv_mat_t* mat, int rows, int cols, int type, void* data);

/**
 * Makes a matrix in one heap block, header first, values right behind it and not initialised. Sizes
 * must not be negative; zero is fine. The byte count is 32 bits wide and wraps from 2 GiB on.
 *
 * @return the matrix, or null iff the allocation fails. The caller releases it with
 *         iv_mat_release.
 */
LIBIV_API iv_mat_t* iv_mat_create(int rows, int cols, int type);

/**
 * Frees `mat` iff it is not null and its values start right behind its header, as iv_mat_create
 * makes it.
 */
LIBIV_API void iv_mat_release(iv_mat_t* mat);

/** Clears `rows` x `step` bytes: all channels. */
LIBIV_API void iv_mat_setzero(iv_mat_t* mat);

/**
 * Prints "<name>=" (unless `name` is null) and one line per row to standard output, the first
 * `cols` values of each row. IV_8S prints as characters, IV_16U as signed numbers.
 */
LIBIV_API void iv_mat_print(char* name, iv_mat_t* mat);

/* ------------------------------------------------------------------------------------------------
 * Fills. `step` is not read; storage is one flat array.
 * ---------------------------------------------------------------------------------------------- */

/**
 * Ones on the main diagonal, zeros elsewhere, in channel 0; other channels keep their values.
 * Always writes the first element: with 0 rows and c columns it writes c + 1 elements, with 0
 * columns one.
 */
LIBIV_API void iv_mat_setidentity(iv_mat_t* mat);

/**
 * `pvals`[k] at element (k, k), zeros elsewhere, in channel 0; else like iv_mat_setidentity.
 *
 * @param pvals  min(rows, cols) values of the matrix's scalar type, and at least one; copied bit
 *               for bit
 */
LIBIV_API void iv_mat_setdiagonal(void* pvals, iv_mat_t* mat);

/** Every value of every channel becomes one. */
LIBIV_API void iv_mat_setone(iv_mat_t* mat);

/* ------------------------------------------------------------------------------------------------
 * Element-wise arithmetic: any depth, any number of channels, `step` not read.
 *
 * Nothing is written if types, rows or cols of the operands differ. Integers wrap around at their
 * width. Storage may overlap in any way: values are read and written one at a time, ascending.
 * ---------------------------------------------------------------------------------------------- */

/** dst = -src. Floats flip their sign bit. For IV_8U and IV_16U nothing is written. */
LIBIV_API void iv_mat_neg(iv_mat_t* src, iv_mat_t* dst);

/** dst = src * value. `pval` points to one value of the matrix's scalar type; it is always read. */
LIBIV_API void iv_mat_scale(void* pval, iv_mat_t* src, iv_mat_t* dst);

/** dst = src1 + src2. */
LIBIV_API void iv_mat_add(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst);

/** dst = src1 - src2. */
LIBIV_API void iv_mat_sub(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst);

/**
 * dst = transpose of src, channels staying together. Writes nothing if the types differ or `dst`
 * is not cols x rows of `src`. Elements move one at a time along the rows of `src`: on a square
 * matrix with `dst` == `src` the upper triangle is mirrored into the lower one.
 */
LIBIV_API void iv_mat_transpose(iv_mat_t* src, iv_mat_t* dst);

/* ------------------------------------------------------------------------------------------------
 * Products: any depth, one channel. Integers wrap around at their width.
 *
 * Nothing is written if the types differ, an operand has more than one channel, or the shapes do
 * not fit. `dst` must not share storage with a factor. Mode bits are in _libiv.h; all other bits
 * are ignored.
 * ---------------------------------------------------------------------------------------------- */

/**
 * dst = src1 * src2. With IV_MAT_TRANS_SRC1 src1 is read transposed; else, with IV_MAT_TRANS_SRC2,
 * src2 is. The first term of each sum is a plain product. An inner dimension of 0 is outside the
 * contract.
 */
LIBIV_API void iv_mat_mul(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* dst, int flags);

/**
 * dst = src3 + src1 * src2, with IV_MAT_TRANS_SRC2 src2 read transposed. The sums start from src3,
 * which may be `dst`. Without the flag, rows(src1) * step(src2) bytes of src3 are copied to `dst`
 * first.
 */
LIBIV_API void iv_mat_muladd(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* src3, iv_mat_t* dst,
                             int flags);

/**
 * dst = src1 - src2 * src3; rows(src2) * step(src1) bytes of src1 are copied to `dst` first. With
 * IV_MAT_IDENTITY_SRC1 the identity takes the place of src1, which may be null then (if it is not,
 * its type must still fit).
 */
LIBIV_API void iv_mat_submul(iv_mat_t* src1, iv_mat_t* src2, iv_mat_t* src3, iv_mat_t* dst,
                             int flag);

/* ------------------------------------------------------------------------------------------------
 * Inverse
 * ---------------------------------------------------------------------------------------------- */

/**
 * dst = inverse of src, by Gauss-Jordan elimination without a search for the largest pivot.
 * Operands are IV_32F with one channel and square, of order rows(src); `dst` may be `src`. Shares
 * the inverse's work area: calls must be serialised in the whole process.
 *
 * @return -1 iff the types or shapes differ, the type is not IV_32F with one channel, or the order
 *         is above 40 (nothing is written then); else 0. A singular matrix is not detected: the
 *         result holds infinities, NaNs or meaningless numbers, it may depend on earlier calls, and
 *         the status is 0.
 */
LIBIV_API int iv_mat_inv(iv_mat_t* src, iv_mat_t* dst);

/* ------------------------------------------------------------------------------------------------
 * Fixed 3x3 and 3-vector kernels, on plain arrays. Outputs must not overlap inputs; inputs may
 * alias. Products and the dot product sum in double precision, the middle term first, and round
 * once; so does each difference of the cross product. The rest is single precision, and of the
 * determinant's products every second one is rounded, the others fused.
 * ---------------------------------------------------------------------------------------------- */

/** C = A * B. */
LIBIV_API void _matmult_3x3(float (*A)[3], float (*B)[3], float (*C)[3]);
/** C = A * transpose of B. */
LIBIV_API void _matmult_3x3t(float (*A)[3], float (*B)[3], float (*C)[3]);
/** y = A * x. */
LIBIV_API void _matmult_3x3vec(float (*A)[3], float* x, float* y);
/** y = transpose of A * x. */
LIBIV_API void _matmult_3x3tvec(float (*A)[3], float* x, float* y);
/** A = -A, in place; every sign bit flips. */
LIBIV_API void _matneg_3x3(float (*A)[3]);
/** Determinant of A. */
LIBIV_API float _matdet_3x3(float (*A)[3]);
/** O = x * transpose of y. */
LIBIV_API void _vecoutp_3(float* x, float* y, float (*O)[3]);
/** z = cross product of x and y. */
LIBIV_API void _veccrossp_3(float* x, float* y, float* z);
/** Dot product of x and y. */
LIBIV_API float _vecdotp_3(float* x, float* y);

/* ------------------------------------------------------------------------------------------------
 * Kalman filter: ns state values, nm measured values, every matrix IV_32F with one channel.
 *
 * Create; write the first estimate into x_post and P_post; then for each step predict and, when
 * there is a measurement, correct. Results are read from the record: x_pre after predict, x_post
 * after correct. Neither allocates. A filter is used by one thread at a time.
 * ---------------------------------------------------------------------------------------------- */

/**
 * Makes a filter in one zero-filled block.
 *
 * @param flag  zero: the filter owns its model A (ns x ns), H (nm x ns), Q (ns x ns), R (nm x nm),
 *              all zero for the caller to fill through the record, and the pointers are ignored.
 *              Non-zero: it refers to the caller's four matrices, which must outlive it and may be
 *              shared by filters.
 * @return the filter, or null iff the allocation fails. The caller ends it with iv_kalman_release;
 *         the matrices in it must never be passed to iv_mat_release.
 */
LIBIV_API iv_kalman_t* iv_kalman_create(int ns, int nm, int flag, iv_mat_t* A, iv_mat_t* H,
                                        iv_mat_t* Q, iv_mat_t* R);

/** Frees the filter, not a caller's model. A null pointer is fine. */
LIBIV_API void iv_kalman_release(iv_kalman_t* kalman);

/**
 * x_pre = A x_post; P_pre = A P_post' A' + Q. Repeated without a correction, it gives the same
 * again.
 */
LIBIV_API void iv_kalman_predict(iv_kalman_t* kalman);

/**
 * Corrects the prediction with a measurement of nm x 1: writes temp1 to temp5, K, x_post and
 * P_post.
 *
 * A step whose operands do not fit writes nothing and the rest goes on with stale values; nm above
 * 40 leaves K zero. A singular innovation covariance is not detected. Shares the inverse's work
 * area.
 */
LIBIV_API void iv_kalman_correct(iv_kalman_t* kalman, iv_mat_t* measurement);

#ifdef __cplusplus
}
#endif

#endif
