// The linear Kalman filter: every equation is one matrix call, every intermediate has its own
// matrix.

#include "iv_kalman.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "iv_lanes/kernels.h"
#include "iv_lanes/lanes.h"
#include "iv_matrix/element.h"
#include "iv_matrix/inverse.h"

namespace iv::internal {
namespace {

// Hosts read the record's fields.
static_assert(offsetof(iv_kalman_t, ns) == 0 && offsetof(iv_kalman_t, nm) == 4 &&
                  offsetof(iv_kalman_t, x_pre) == 8 &&
                  offsetof(iv_kalman_t, A) == 8 + 10 * sizeof(void*) &&
                  offsetof(iv_kalman_t, mbuf) == 8 + 14 * sizeof(void*) &&
                  sizeof(iv_kalman_t) == 8 + 15 * sizeof(void*),
              "two dimensions, fourteen matrices, the storage");

/// The matrices of a filter in the order of the record and of the block.
constexpr iv_mat_t* iv_kalman_t::*FIELDS[MAX_KALMAN_MATRICES] = {
    &iv_kalman_t::x_pre, &iv_kalman_t::x_post, &iv_kalman_t::P_pre, &iv_kalman_t::P_post,
    &iv_kalman_t::K,     &iv_kalman_t::temp1,  &iv_kalman_t::temp2, &iv_kalman_t::temp3,
    &iv_kalman_t::temp4, &iv_kalman_t::temp5,  &iv_kalman_t::A,     &iv_kalman_t::H,
    &iv_kalman_t::Q,     &iv_kalman_t::R};

/// Headers start at multiples of the pointer size, also behind a matrix with an odd number of
/// values.
int aligned(int bytes) {
    constexpr int pointer = sizeof(void*);
    return wrap_mul(wrap_add(bytes, pointer - 1) / pointer, pointer);
}

} // namespace

int getmsizes(int* msizes, int* mrows, int* mcols, int ns, int nm, int flag) {
    const int shapes[MAX_KALMAN_MATRICES][2] = {{ns, 1},  {ns, 1},  {ns, ns}, {ns, ns}, {ns, nm},
                                                {ns, ns}, {ns, nm}, {nm, nm}, {nm, nm}, {nm, 1},
                                                {ns, ns}, {nm, ns}, {ns, ns}, {nm, nm}};
    const int count = flag ? 10 : MAX_KALMAN_MATRICES;
    for (int i = 0; i < count; ++i) {
        mrows[i] = shapes[i][0];
        mcols[i] = shapes[i][1];
        const int floats = wrap_mul(mrows[i], mcols[i]);
        msizes[i] = wrap_add(wrap_mul(floats, sizeof(f32_t)), sizeof(iv_mat_t));
    }
    return count;
}

namespace {

// The shape that has kernels of its own.
constexpr int FUSED_NS = 8;
constexpr int FUSED_NM = 4;

/// The bytes of a matrix of floats.
constexpr std::uintptr_t size_of(int rows, int cols) {
    return sizeof(f32_t) * static_cast<unsigned>(rows * cols);
}

/// Where creation puts the filter's own matrices, in the order of the block.
enum Own { X_PRE, X_POST, P_PRE, P_POST, GAIN, TEMP1, TEMP2, TEMP3, TEMP4, TEMP5, OWN };
struct Place {
    int rows, cols;
    std::uintptr_t offset = 0; ///< of the header, from the end of the record
};
struct Layout {
    Place own[OWN];
    std::uintptr_t bytes = 0;
};

constexpr Layout fused_layout() {
    constexpr int ns = FUSED_NS;
    constexpr int nm = FUSED_NM;
    Layout layout{{{ns, 1},
                   {ns, 1},
                   {ns, ns},
                   {ns, ns},
                   {ns, nm},
                   {ns, ns},
                   {ns, nm},
                   {nm, nm},
                   {nm, nm},
                   {nm, 1}}};
    for (Place& place : layout.own) { // sizes that leave no gaps
        place.offset = layout.bytes;
        layout.bytes += sizeof(iv_mat_t) + size_of(place.rows, place.cols);
    }
    return layout;
}
constexpr Layout FUSED = fused_layout();

const u08_t* block_of(const iv_kalman_t& k) {
    return reinterpret_cast<const u08_t*>(&k + 1);
}

using Words = Vector<std::uint64_t, PIECE>;

/// In what a header differs from what creation writes for so many rows and columns: zero iff in
/// nothing. Differences are gathered and looked at once, since there are many and seldom one.
[[gnu::always_inline]] inline Words unlike_created(const void* header, int rows, int cols) {
    const s32_t created[4] = {IV_32F, rows, cols, static_cast<s32_t>(size_of(1, cols))};
    return load_whole<Words>(header) ^ load_whole<Words>(created);
}

[[gnu::always_inline]] inline std::uint64_t unlike_place(const void* p, const u08_t* place) {
    return reinterpret_cast<std::uintptr_t>(p) ^ reinterpret_cast<std::uintptr_t>(place);
}

/// Whether these of the filter's matrices are as creation left them. Pointers are compared before
/// anything behind them is read.
template <int... INDEX>
[[gnu::always_inline]] inline bool are_as_created(const iv_kalman_t& k,
                                                  std::integer_sequence<int, INDEX...>) {
    const u08_t* block = block_of(k);
    if ((unlike_place(k.*FIELDS[INDEX], block + FUSED.own[INDEX].offset) | ...)) {
        return false;
    }
    const auto header = [block](int index) IV_INLINED {
        const void* const place = block + FUSED.own[index].offset;
        return static_cast<const iv_mat_t*>(place);
    };
    const Words changed =
        (unlike_created(header(INDEX), FUSED.own[INDEX].rows, FUSED.own[INDEX].cols) | ...);
    const std::uint64_t moved =
        (unlike_place(header(INDEX)->data.p, block + FUSED.own[INDEX].offset + sizeof(iv_mat_t)) |
         ...);
    return !(changed[0] | changed[1] | moved);
}

/// Whether a caller's matrix has the shape and overlaps nothing of what filters write.
[[gnu::always_inline]] inline bool is_readable(const iv_kalman_t& k, const iv_mat_t* mat, int rows,
                                               int cols) {
    const auto block = reinterpret_cast<std::uintptr_t>(block_of(k));
    // Addresses wrap around: what starts just before the block and reaches into it counts from 0.
    const auto apart = [block](const void* p, std::uintptr_t bytes) IV_INLINED {
        const std::uintptr_t before = bytes - 1;
        return reinterpret_cast<std::uintptr_t>(p) - block + before >= FUSED.bytes + before;
    };
    if (!apart(mat, sizeof *mat)) {
        return false;
    }
    const Words unlike = unlike_created(mat, rows, cols);
    return !(unlike[0] | unlike[1]) && apart(mat->data.p, size_of(rows, cols));
}

// Whether the fused kernels do what the matrix calls of a step would: the filter has their shape,
// every header is as creation left it, and no operand of the caller's is written.

bool is_state_fused(const iv_kalman_t& k) {
    return are_as_created(k, std::integer_sequence<int, X_PRE, X_POST>{}) &&
           is_readable(k, k.A, FUSED_NS, FUSED_NS);
}

bool is_covariance_fused(const iv_kalman_t& k) {
    return are_as_created(k, std::integer_sequence<int, P_PRE, P_POST, TEMP1>{}) &&
           is_readable(k, k.A, FUSED_NS, FUSED_NS) && is_readable(k, k.Q, FUSED_NS, FUSED_NS);
}

bool is_correction_fused(const iv_kalman_t& k, const iv_mat_t* measurement) {
    return are_as_created(k, std::make_integer_sequence<int, OWN>{}) &&
           is_readable(k, k.H, FUSED_NM, FUSED_NS) && is_readable(k, k.R, FUSED_NM, FUSED_NM) &&
           is_readable(k, measurement, FUSED_NM, 1);
}

} // namespace

void predict_state(iv_kalman_t* kalman) {
    const iv_kalman_t& k = *kalman;
    if (is_state_fused(k) && kernels().predict_state(k)) {
        return;
    }
    iv_mat_mul(k.A, k.x_post, k.x_pre, 0);
}

void predict_covariance(iv_kalman_t* kalman) {
    const iv_kalman_t& k = *kalman;
    if (is_covariance_fused(k) && kernels().predict_covariance(k)) {
        return;
    }
    // The covariance is symmetric but for rounding; reading it transposed fixes the order of the
    // sums.
    iv_mat_mul(k.A, k.P_post, k.temp1, IV_MAT_TRANS_SRC2);
    iv_mat_muladd(k.temp1, k.A, k.Q, k.P_pre, IV_MAT_TRANS_SRC2);
}

} // namespace iv::internal

using namespace iv::internal;

iv_kalman_t* iv_kalman_create(int ns, int nm, int flag, iv_mat_t* A, iv_mat_t* H, iv_mat_t* Q,
                              iv_mat_t* R) {
    int msizes[MAX_KALMAN_MATRICES];
    int mrows[MAX_KALMAN_MATRICES];
    int mcols[MAX_KALMAN_MATRICES];
    const int count = getmsizes(msizes, mrows, mcols, ns, nm, flag);
    int total = 0;
    for (int i = 0; i < count; ++i) {
        msizes[i] = aligned(msizes[i]);
        total = wrap_add(total, msizes[i]);
    }
    void* block = std::calloc(1, sizeof(iv_kalman_t) + static_cast<std::size_t>(total));
    if (!block) {
        return nullptr;
    }
    iv_kalman_t* kalman = static_cast<iv_kalman_t*>(block);
    kalman->ns = ns;
    kalman->nm = nm;
    kalman->mbuf = kalman + 1;
    u08_t* cursor = static_cast<u08_t*>(kalman->mbuf);
    for (int i = 0; i < count; ++i) {
        iv_mat_t* header = reinterpret_cast<iv_mat_t*>(static_cast<void*>(cursor));
        kalman->*FIELDS[i] = iv_mat_initheader(header, mrows[i], mcols[i], IV_32F, header + 1);
        cursor += msizes[i];
    }
    if (flag) {
        kalman->A = A;
        kalman->H = H;
        kalman->Q = Q;
        kalman->R = R;
    }
    return kalman;
}

void iv_kalman_release(iv_kalman_t* kalman) {
    std::free(kalman);
}

void iv_kalman_predict(iv_kalman_t* kalman) {
    predict_state(kalman);
    predict_covariance(kalman);
}

void iv_kalman_correct(iv_kalman_t* kalman, iv_mat_t* measurement) {
    const iv_kalman_t& k = *kalman;
    if (is_correction_fused(k, measurement) &&
        kernels().correct(k, measurement->data.f, inverse_work_area())) {
        return;
    }
    // Gain: K = P_pre H' (H P_pre H' + R)^-1. The status of the inverse is not examined: a refusal
    // leaves temp4 as it was.
    iv_mat_mul(k.P_pre, k.H, k.temp2, IV_MAT_TRANS_SRC2);
    iv_mat_muladd(k.H, k.temp2, k.R, k.temp3, 0);
    iv_mat_inv(k.temp3, k.temp4);
    iv_mat_mul(k.temp2, k.temp4, k.K, IV_MAT_TRANS_SRC2);
    // State: x_post = x_pre + K (z - H x_pre).
    iv_mat_submul(measurement, k.H, k.x_pre, k.temp5, 0);
    iv_mat_muladd(k.K, k.temp5, k.x_pre, k.x_post, 0);
    // Covariance: P_post = (I - K H) P_pre', the plain form.
    iv_mat_submul(nullptr, k.K, k.H, k.temp1, IV_MAT_IDENTITY_SRC1);
    iv_mat_mul(k.temp1, k.P_pre, k.P_post, IV_MAT_TRANS_SRC2);
}
