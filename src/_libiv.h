/*
 * The records behind libiv's matrices and Kalman filters, for hosts that read and write their
 * fields. Valid C99 and C++11.
 */
#ifndef LIBIV_RECORDS_H
#define LIBIV_RECORDS_H

#include "libiv.h"

/** @name Element depths
 * A type code holds the depth in bits 0 to 2 and channels - 1 in bits 3 to 7.
 * Higher bits change no size, but make otherwise equal types differ.
 * @{ */
#define IV_8U 0  /**< u08_t */
#define IV_8S 1  /**< s08_t */
#define IV_16U 2 /**< u16_t */
#define IV_16S 3 /**< s16_t */
#define IV_32S 4 /**< s32_t */
#define IV_32F 5 /**< f32_t */
#define IV_64S 6 /**< s64_t */
#define IV_64F 7 /**< f64_t */
/** @} */

/** Type code of a depth with 1 to 32 channels. */
#define IV_MAKETYPE(depth, cn) ((depth) | (((cn)-1) << 3))
/** Depth of a type code. */
#define IV_MAT_DEPTH(type) ((type)&7)
/** Channels of a type code, 1 to 32. */
#define IV_MAT_CN(type) ((((type) >> 3) & 31) + 1)
/** Bytes of one value of a depth. The constant holds log2 of each, two bits a depth. */
#define IV_ELEM_SIZE1(depth) (1 << ((0xFA50 >> (2 * ((depth)&7))) & 3))

/** @name Mode bits of the products
 * @{ */
#define IV_MAT_TRANS_SRC1 1     /**< iv_mat_mul: read src1 transposed; wins over the next */
#define IV_MAT_TRANS_SRC2 2     /**< iv_mat_mul, iv_mat_muladd: read src2 transposed */
#define IV_MAT_IDENTITY_SRC1 16 /**< iv_mat_submul: the identity in place of src1 */
/** @} */

/** Value k of element (r, c) of a packed matrix is value (r * cols + c) * channels + k of the
 * storage. */
struct _iv_mat_t {
    s32_t type; /**< see IV_MAKETYPE */
    s32_t rows; /**< number of rows */
    s32_t cols; /**< elements of a row */
    s32_t step; /**< bytes from one row to the next */
    union {
        u08_t* p;
        s16_t* s;
        s32_t* i;
        u64_t* l;
        f32_t* f;
        f64_t* d;
    } data; /**< one address; signed bytes are read through p, IV_16U through s, IV_64S through l */
};

/** The model is x' = A x + noise(Q), z = H x + noise(R). */
struct _iv_kalman_t {
    s32_t ns;         /**< state values */
    s32_t nm;         /**< measured values */
    iv_mat_t* x_pre;  /**< ns x 1   predicted state */
    iv_mat_t* x_post; /**< ns x 1   estimate: corrected state; the caller writes the first one */
    iv_mat_t* P_pre;  /**< ns x ns  covariance of x_pre */
    iv_mat_t* P_post; /**< ns x ns  covariance of x_post; the caller writes the first one */
    iv_mat_t* K;      /**< ns x nm  gain */
    iv_mat_t* temp1;  /**< ns x ns  A P_post' in predict, I - K H in correct */
    iv_mat_t* temp2;  /**< ns x nm  P_pre H' */
    iv_mat_t* temp3;  /**< nm x nm  innovation covariance H P_pre H' + R */
    iv_mat_t* temp4;  /**< nm x nm  its inverse */
    iv_mat_t* temp5;  /**< nm x 1   innovation z - H x_pre */
    iv_mat_t* A;      /**< ns x ns  transition */
    iv_mat_t* H;      /**< nm x ns  measurement */
    iv_mat_t* Q;      /**< ns x ns  process noise */
    iv_mat_t* R;      /**< nm x nm  measurement noise */
    void* mbuf;       /**< the first byte behind this record: the matrices' storage */
};

#endif
