/*
 * Lanes: a vector register of elements, and the few operations on it that kernels need. Kernels are
 * written once over it and compiled once for each instruction set; what a set lacks, the compiler
 * lowers. Intrinsics stand only here, where the vector extension has no word for the operation.
 *
 * Everything has internal linkage and is inlined: code compiled for one instruction set must never
 * be merged with the same code compiled for another.
 */
#ifndef LIBIV_LANES_H
#define LIBIV_LANES_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#if defined(__x86_64__)
#include <immintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

#define IV_INLINE [[gnu::always_inline]] inline
/// Between the parameters and the body of a lambda.
#define IV_INLINED __attribute__((always_inline))

namespace iv::internal {
namespace {

// Bytes of a register, and of the narrower one for rows that fill at most half of it.
#if defined(__AVX512BW__)
constexpr int WIDE = 64;
constexpr int NARROW = 32;
#elif defined(__AVX2__)
constexpr int WIDE = 32;
constexpr int NARROW = 32;
#else
constexpr int WIDE = 16;
constexpr int NARROW = 16;
#endif

/// Every register consists of pieces of this size. Shuffles stay inside pieces: one instruction
/// everywhere.
constexpr int PIECE = 16;

/// The same number or pointer, but the compiler knows nothing of it: what it would compute of it ahead
/// of a loop, and keep, and spill, is formed where it is used.
template <class V>
IV_INLINE V opaque(V value) {
    asm volatile("" : "+r"(value)); // volatile: else this, too, leaves the loop
    return value;
}

/// A number that the compiler knows. That of the standard library converts by a function of external
/// linkage.
template <int I>
struct Constant {
    static constexpr int value = I;
    IV_INLINE constexpr operator int() const { return I; }
};

/// Calls `step` with 0 to COUNT - 1 as constants: a loop that is unrolled whatever the compiler
/// thinks, so that arrays indexed by it live in registers.
template <int... I, class Step>
IV_INLINE void each(std::integer_sequence<int, I...>, [[maybe_unused]] Step step) {
    (step(Constant<I>{}), ...);
}
template <int COUNT, class Step>
IV_INLINE void each(Step step) {
    each(std::make_integer_sequence<int, COUNT>{}, step);
}

template <class C, int BYTES>
struct VectorOf {
    typedef C type __attribute__((vector_size(BYTES)));
};
template <class C, int BYTES>
using Vector = typename VectorOf<C, BYTES>::type;

/// The element type of a vector.
template <class V>
using ElementOf = std::remove_reference_t<decltype(std::declval<V&>()[0])>;

/// The same value in every lane.
template <class V, std::size_t... LANE>
IV_INLINE V splat_lanes(ElementOf<V> value, std::index_sequence<LANE...>) {
    return V{(static_cast<void>(LANE), value)...};
}
template <class V>
IV_INLINE V splat(ElementOf<V> value) {
    return splat_lanes<V>(value, std::make_index_sequence<sizeof(V) / sizeof(ElementOf<V>)>{});
}

/// 0, 1, 2...
template <class V, std::size_t... LANE>
IV_INLINE V count_lanes(std::index_sequence<LANE...>) {
    return V{LANE...};
}
template <class V>
IV_INLINE V lane_numbers() {
    return count_lanes<V>(std::make_index_sequence<sizeof(V) / sizeof(ElementOf<V>)>{});
}

/// In every lane a where the comparison holds, else b.
template <class Comparison, class V>
IV_INLINE V choose(Comparison holds, V a, V b) {
    return holds ? a : b; // Not covered: no branch, both are taken
}

/// c + a * b in every lane, or c - a * b if it is MINUS: one fused multiply-add for floats, wrapping
/// around for integers.
template <bool MINUS = false, class V>
IV_INLINE V multiply_add(V a, V b, V c) {
    using C = ElementOf<V>;
    if constexpr (std::is_integral_v<C>) {
        return MINUS ? c - a * b : c + a * b;
    }
#if defined(__AVX512F__)
    else if constexpr (std::is_same_v<V, Vector<float, 64>>) {
        return MINUS ? _mm512_fnmadd_ps(a, b, c) : _mm512_fmadd_ps(a, b, c);
    } else if constexpr (std::is_same_v<V, Vector<double, 64>>) {
        return MINUS ? _mm512_fnmadd_pd(a, b, c) : _mm512_fmadd_pd(a, b, c);
    }
#endif
#if defined(__FMA__)
    else if constexpr (std::is_same_v<V, Vector<float, 32>>) {
        return MINUS ? _mm256_fnmadd_ps(a, b, c) : _mm256_fmadd_ps(a, b, c);
    } else if constexpr (std::is_same_v<V, Vector<double, 32>>) {
        return MINUS ? _mm256_fnmadd_pd(a, b, c) : _mm256_fmadd_pd(a, b, c);
    } else if constexpr (std::is_same_v<V, Vector<float, 16>>) {
        return MINUS ? _mm_fnmadd_ps(a, b, c) : _mm_fmadd_ps(a, b, c);
    } else if constexpr (std::is_same_v<V, Vector<double, 16>>) {
        return MINUS ? _mm_fnmadd_pd(a, b, c) : _mm_fmadd_pd(a, b, c);
    }
#elif defined(__aarch64__)
    else if constexpr (std::is_same_v<V, Vector<float, 16>>) {
        return MINUS ? vfmsq_f32(c, a, b) : vfmaq_f32(c, a, b);
    } else if constexpr (std::is_same_v<V, Vector<double, 16>>) {
        return MINUS ? vfmsq_f64(c, a, b) : vfmaq_f64(c, a, b);
    }
#endif
    else {
        a = MINUS ? -a : a;
        for (std::size_t lane = 0; lane < sizeof(V) / sizeof(C); ++lane) {
            if constexpr (std::is_same_v<C, float>) {
                c[lane] = __builtin_fmaf(a[lane], b[lane], c[lane]);
            } else {
                c[lane] = __builtin_fma(a[lane], b[lane], c[lane]);
            }
        }
        return c;
    }
}

/// Whole vectors, or single elements, at any address and of any type there: storage is the host's.
template <class S>
IV_INLINE S load_whole(const void* from) {
    S values;
    std::memcpy(&values, from, sizeof values);
    return values;
}

template <class S>
IV_INLINE void store_whole(void* to, S values) {
    std::memcpy(to, &values, sizeof values);
}

// Floats and the doubles that they widen to.

/// As many floats as D has doubles. A register is never narrower than a piece: two floats are its
/// lower half.
template <class D>
using FloatsOf =
    Vector<float,
           (static_cast<int>(sizeof(D)) > 2 * PIECE ? static_cast<int>(sizeof(D)) / 2 : PIECE)>;

template <class D>
IV_INLINE D widen(FloatsOf<D> values) {
#if defined(__AVX512F__)
    if constexpr (sizeof(D) == 64) {
        // All of it: without a mask, g++ 12 warns of its own header.
        return _mm512_maskz_cvtps_pd(0xFF, values);
    }
#endif
#if defined(__AVX2__)
    if constexpr (sizeof(D) == 32) {
        return _mm256_cvtps_pd(values);
    }
#endif
    if constexpr (sizeof(D) == 16) {
#if defined(__x86_64__)
        return _mm_cvtps_pd(values);
#elif defined(__aarch64__)
        return vcvt_f64_f32(vget_low_f32(values));
#else
        return D{static_cast<double>(values[0]), static_cast<double>(values[1])};
#endif
    }
}

/// Rounded to the nearest float.
template <class D>
IV_INLINE FloatsOf<D> narrow(D values) {
#if defined(__AVX512F__)
    if constexpr (sizeof(D) == 64) {
        return _mm512_maskz_cvtpd_ps(0xFF, values);
    }
#endif
#if defined(__AVX2__)
    if constexpr (sizeof(D) == 32) {
        return _mm256_cvtpd_ps(values);
    }
#endif
    if constexpr (sizeof(D) == 16) {
#if defined(__x86_64__)
        return _mm_cvtpd_ps(values);
#elif defined(__aarch64__)
        const float32x2_t half = vcvt_f32_f64(values);
        return vcombine_f32(half, half);
#else
        return FloatsOf<D>{static_cast<float>(values[0]), static_cast<float>(values[1])};
#endif
    }
}

/// D's worth of floats at any address.
template <class D>
IV_INLINE D load_widened(const float* from) {
    if constexpr (sizeof(D) == PIECE) {
        const Vector<double, PIECE> pair{load_whole<double>(from), 0.0};
        return widen<D>(reinterpret_cast<FloatsOf<D>>(pair));
    } else {
        return widen<D>(load_whole<FloatsOf<D>>(from));
    }
}

template <class D>
IV_INLINE void store_narrowed(float* to, D values) {
    const auto floats = narrow(values);
    std::memcpy(to, &floats, sizeof values / 2);
}

/// Has a register computed by now. The compiler would put off what is only needed later, and units
/// would have nothing to do while a division goes on.
template <class V>
IV_INLINE void settle([[maybe_unused]] V& values) {
#if defined(__AVX512F__)
    asm volatile("" : "+v"(values)); // volatile: else this, too, is put off
#endif
}

// Lanes of vectors by their numbers, and halves.

template <class S, std::size_t... LANE>
IV_INLINE auto pick_lanes(S a, S b, std::index_sequence<LANE...>) {
    return __builtin_shufflevector(a, b, LANE...);
}

template <std::size_t FIRST, std::size_t... LANE>
constexpr auto counted_from(std::index_sequence<LANE...>) {
    return std::index_sequence<(FIRST + LANE)...>{};
}

template <class S>
constexpr std::size_t LANES = sizeof(S) / sizeof(ElementOf<S>);

template <class S>
IV_INLINE auto join(S low, S high) {
    return pick_lanes(low, high, std::make_index_sequence<2 * LANES<S>>{});
}

template <class S>
IV_INLINE auto low_half(S values) {
    return pick_lanes(values, values, std::make_index_sequence<LANES<S> / 2>{});
}

template <class S>
IV_INLINE auto high_half(S values) {
    return pick_lanes(values, values,
                      counted_from<LANES<S> / 2>(std::make_index_sequence<LANES<S> / 2>{}));
}

/// The first elements of a vector, `bytes` bytes of them; the rest is zero, nothing else is read.
template <class S>
IV_INLINE S load_first(const void* from, int bytes);
/// Writes the first elements of a vector, `bytes` bytes of them, and nothing else.
template <class S>
IV_INLINE void store_first(void* to, S values, int bytes);

#if defined(__AVX512BW__)

/// Parts of a vector are moved under masks, as fast as the whole.
constexpr bool MASKS = true;

/// A bit for each of the first lanes, of LANE bytes, in `bytes` bytes.
template <int LANE>
IV_INLINE std::uint64_t mask_of(int bytes) {
    return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned>(bytes) / LANE);
}

/// Whether elements are so long that masks of 4-byte lanes do: they cost less than those of bytes.
template <class S>
constexpr bool MASKED_BY_FOUR = sizeof(ElementOf<S>) >= 4;

template <class S>
IV_INLINE S load_first(const void* from, int bytes) {
    if constexpr (MASKED_BY_FOUR<S>) {
        const std::uint64_t mask = mask_of<4>(bytes);
        if constexpr (sizeof(S) == 64) {
            return reinterpret_cast<S>(
                _mm512_maskz_loadu_epi32(static_cast<__mmask16>(mask), from));
        } else if constexpr (sizeof(S) == 32) {
            return reinterpret_cast<S>(_mm256_maskz_loadu_epi32(static_cast<__mmask8>(mask), from));
        } else {
            static_assert(sizeof(S) == 16);
            return reinterpret_cast<S>(_mm_maskz_loadu_epi32(static_cast<__mmask8>(mask), from));
        }
    } else {
        const std::uint64_t mask = mask_of<1>(bytes);
        if constexpr (sizeof(S) == 64) {
            return reinterpret_cast<S>(_mm512_maskz_loadu_epi8(mask, from));
        } else if constexpr (sizeof(S) == 32) {
            return reinterpret_cast<S>(_mm256_maskz_loadu_epi8(static_cast<__mmask32>(mask), from));
        } else {
            static_assert(sizeof(S) == 16);
            return reinterpret_cast<S>(_mm_maskz_loadu_epi8(static_cast<__mmask16>(mask), from));
        }
    }
}

template <class S>
IV_INLINE void store_first(void* to, S values, int bytes) {
    if constexpr (MASKED_BY_FOUR<S>) {
        const std::uint64_t mask = mask_of<4>(bytes);
        if constexpr (sizeof(S) == 64) {
            _mm512_mask_storeu_epi32(to, static_cast<__mmask16>(mask),
                                     reinterpret_cast<__m512i>(values));
        } else if constexpr (sizeof(S) == 32) {
            _mm256_mask_storeu_epi32(to, static_cast<__mmask8>(mask),
                                     reinterpret_cast<__m256i>(values));
        } else {
            static_assert(sizeof(S) == 16);
            _mm_mask_storeu_epi32(to, static_cast<__mmask8>(mask),
                                  reinterpret_cast<__m128i>(values));
        }
    } else {
        const std::uint64_t mask = mask_of<1>(bytes);
        if constexpr (sizeof(S) == 64) {
            _mm512_mask_storeu_epi8(to, mask, reinterpret_cast<__m512i>(values));
        } else if constexpr (sizeof(S) == 32) {
            _mm256_mask_storeu_epi8(to, static_cast<__mmask32>(mask),
                                    reinterpret_cast<__m256i>(values));
        } else {
            static_assert(sizeof(S) == 16);
            _mm_mask_storeu_epi8(to, static_cast<__mmask16>(mask),
                                 reinterpret_cast<__m128i>(values));
        }
    }
}

#else

constexpr bool MASKS = false;

// Where g++ knows that a function leaves the upper halves of the registers alone, it forgets to put
// them at rest behind a kernel's last call of it; what a host runs next would wait for them.
#if defined(__AVX__) && !defined(__clang__)
#define IV_STORE_APART [[gnu::noipa]]
#else
#define IV_STORE_APART [[gnu::noinline]]
#endif

// Without masks. Rare, and kept out of the kernels' code.

#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__

// Words of 64 bits: full ones as they are, the rest by two moves that may overlap.

template <class Word>
IV_INLINE std::uint64_t read_word(const void* from) {
    return load_whole<Word>(from);
}

template <class Word>
IV_INLINE void write_word(void* to, std::uint64_t value) {
    const Word word = static_cast<Word>(value);
    std::memcpy(to, &word, sizeof word);
}

/// 0 to 8 bytes as a little-endian number.
IV_INLINE std::uint64_t read_bytes(const std::uint8_t* from, int count) {
    if (count >= 4) {
        if (count == 8) {
            return read_word<std::uint64_t>(from);
        }
        return read_word<std::uint32_t>(from) | read_word<std::uint32_t>(from + count - 4)
                                                    << (8 * (count - 4));
    }
    std::uint64_t value = 0;
    if (count >= 2) {
        value = read_word<std::uint16_t>(from);
    }
    if (count & 1) {
        value |= std::uint64_t{from[count - 1]} << (8 * (count - 1));
    }
    return value;
}

IV_INLINE void write_bytes(std::uint8_t* to, std::uint64_t value, int count) {
    if (count >= 4) {
        if (count == 8) {
            return write_word<std::uint64_t>(to, value);
        }
        write_word<std::uint32_t>(to, value);
        return write_word<std::uint32_t>(to + count - 4, value >> (8 * (count - 4)));
    }
    if (count >= 2) {
        write_word<std::uint16_t>(to, value);
    }
    if (count & 1) {
        to[count - 1] = static_cast<std::uint8_t>(value >> (8 * (count - 1)));
    }
}

/// Of the first `bytes` of a register of SIZE bytes each word has some, all or none: calls
/// `move(word, place, count)` with the word's place, that of its bytes in storage, and their number.
template <int SIZE, class Move>
IV_INLINE void each_word(int bytes, Move move) {
    constexpr int WORD = sizeof(std::uint64_t);
    each<SIZE / WORD>([&](auto w) IV_INLINED {
        const int place = w * WORD < bytes ? w * WORD : bytes;
        move(w * WORD, place, bytes - place < WORD ? bytes - place : WORD);
    });
}

/// Bytes beyond are zero.
template <int SIZE>
[[gnu::noinline]] void load_part(std::uint8_t* values, const std::uint8_t* from, int bytes) {
    each_word<SIZE>(bytes, [&](int word, int place, int count) IV_INLINED {
        store_whole(values + word, read_bytes(from + place, count));
    });
}

template <int SIZE>
IV_STORE_APART void store_part(std::uint8_t* to, const std::uint8_t* values, int bytes) {
    each_word<SIZE>(bytes, [&](int word, int place, int count) IV_INLINED {
        write_bytes(to + place, load_whole<std::uint64_t>(values + word), count);
    });
}

#else

// Where the first byte is not the lowest of a word, bytes move as bytes.

template <int SIZE>
[[gnu::noinline]] void load_part(std::uint8_t* values, const std::uint8_t* from, int bytes) {
    std::memset(values, 0, SIZE);
    std::memcpy(values, from, static_cast<std::size_t>(bytes));
}

template <int SIZE>
[[gnu::noinline]] void store_part(std::uint8_t* to, const std::uint8_t* values, int bytes) {
    std::memcpy(to, values, static_cast<std::size_t>(bytes));
}

#endif

template <class S>
IV_INLINE S load_first(const void* from, int bytes) {
    if (bytes == sizeof(S)) {
        return load_whole<S>(from);
    }
    std::uint8_t values[sizeof(S)];
    load_part<sizeof(S)>(values, static_cast<const std::uint8_t*>(from), bytes);
    return load_whole<S>(values);
}

template <class S>
IV_INLINE void store_first(void* to, S values, int bytes) {
    if (bytes == sizeof(S)) {
        return store_whole(to, values);
    }
    std::uint8_t whole[sizeof(S)];
    store_whole(whole, values);
    store_part<sizeof(S)>(static_cast<std::uint8_t*>(to), whole, bytes);
}

#endif

// Transposing blocks inside pieces.

/// The pieces that `piece(q)` gives for q = 0, 1, ..., side by side.
template <class S, class PieceAt>
IV_INLINE S gather(PieceAt piece) {
    using Piece = Vector<ElementOf<S>, PIECE>;
    if constexpr (sizeof(S) == PIECE) {
        return piece(0);
    } else if constexpr (sizeof(S) == std::size_t{2} * PIECE) {
        return join<Piece>(piece(0), piece(1));
    } else {
#if defined(__AVX512BW__)
        // Broadcasts under masks: they leave the unit that shuffles to the transposing.
        const auto wide = [&](int q) IV_INLINED { return reinterpret_cast<__m128i>(piece(q)); };
        __m512i pieces = _mm512_castsi128_si512(wide(0));
        pieces = _mm512_mask_broadcast_i32x4(pieces, 0x00F0, wide(1));
        pieces = _mm512_mask_broadcast_i32x4(pieces, 0x0F00, wide(2));
        pieces = _mm512_mask_broadcast_i32x4(pieces, 0xF000, wide(3));
        return reinterpret_cast<S>(pieces);
#endif
    }
}

/// The lower (FIRST = 0) or upper half of every piece of a and b, their elements alternating.
template <class S, std::size_t FIRST, std::size_t... LANE>
IV_INLINE S interleave(S a, S b, std::index_sequence<LANE...>) {
    constexpr std::size_t piece = PIECE / sizeof(ElementOf<S>);
    return __builtin_shufflevector(
        a, b,
        (LANE / piece * piece + FIRST * piece / 2 + LANE % piece / 2 + LANE % 2 * LANES<S>)...);
}

/// Transposes the square blocks that the pieces of P vectors form: piece q of v[r] becomes column r
/// of block q.
template <class S, std::size_t P>
IV_INLINE void transpose_pieces(S (&v)[P]) {
    static_assert(P == PIECE / sizeof(ElementOf<S>));
    for (std::size_t step = 1; step < P; step *= 2) {
        S mixed[P];
        each<P / 2>([&](auto r) IV_INLINED {
            mixed[2 * r] =
                interleave<S, 0>(v[r], v[r + P / 2], std::make_index_sequence<LANES<S>>{});
            mixed[2 * r + 1] =
                interleave<S, 1>(v[r], v[r + P / 2], std::make_index_sequence<LANES<S>>{});
        });
        each<P>([&](auto r) IV_INLINED { v[r] = mixed[r]; });
    }
}

/// Every second piece of a and then of b, from piece FIRST (0 or 1) on.
template <class S, std::size_t FIRST, std::size_t... LANE>
IV_INLINE S every_second_piece(S a, S b, std::index_sequence<LANE...>) {
    constexpr std::size_t piece = PIECE / sizeof(ElementOf<S>);
    return __builtin_shufflevector(a, b, ((2 * (LANE / piece) + FIRST) * piece + LANE % piece)...);
}

/// Transposes the pieces of as many vectors as each has: piece q of v[r] becomes piece r of v[q].
template <class S, std::size_t Q>
IV_INLINE void exchange_pieces(S (&v)[Q]) {
    static_assert(Q == sizeof(S) / PIECE);
    constexpr auto lanes = std::make_index_sequence<LANES<S>>{};
    for (std::size_t step = 1; step < Q; step *= 2) {
        S mixed[Q];
        each<Q / 2>([&](auto r) IV_INLINED {
            mixed[r] = every_second_piece<S, 0>(v[2 * r], v[2 * r + 1], lanes);
            mixed[r + Q / 2] = every_second_piece<S, 1>(v[2 * r], v[2 * r + 1], lanes);
        });
        each<Q>([&](auto r) IV_INLINED { v[r] = mixed[r]; });
    }
}

/// A register of T's storage and how it computes.
template <class T, int BYTES_>
struct Lanes {
    static constexpr int BYTES = BYTES_;
    static constexpr int COUNT = BYTES / static_cast<int>(sizeof(T));
    using Stored = Vector<T, BYTES>;
    using Computed = Stored;

    IV_INLINE static Computed computed(Stored values) { return values; }
    IV_INLINE static Stored stored(Computed values) { return values; }
    IV_INLINE static Stored broadcast(T value) { return splat<Stored>(value); }
    IV_INLINE static Computed sum(Stored factor, Computed values, Computed start) {
        return multiply_add(factor, values, start);
    }
    IV_INLINE static Computed product(Stored factor, Computed values) { return factor * values; }
};

#if defined(__x86_64__)
/// Nothing multiplies bytes here: the even and the odd bytes are computed apart, in 16-bit lanes of
/// which the upper half is never looked at.
template <int BYTES_>
struct Lanes<std::uint8_t, BYTES_> {
    static constexpr int BYTES = BYTES_;
    static constexpr int COUNT = BYTES;
    using Stored = Vector<std::uint8_t, BYTES>;
    using Wide = Vector<std::uint16_t, BYTES>;
    struct Computed {
        Wide even, odd;
    };

    IV_INLINE static Computed computed(Stored values) {
        const Wide wide = reinterpret_cast<Wide>(values);
        return {wide, wide >> 8};
    }
    IV_INLINE static Stored stored(Computed values) {
        return reinterpret_cast<Stored>((values.even & 0xFF) | (values.odd << 8));
    }
    IV_INLINE static Wide broadcast(std::uint8_t value) { return splat<Wide>(value); }
    IV_INLINE static Computed sum(Wide factor, Computed values, Computed start) {
        return {start.even + factor * values.even, start.odd + factor * values.odd};
    }
    IV_INLINE static Computed product(Wide factor, Computed values) {
        return {factor * values.even, factor * values.odd};
    }
};
#endif

} // namespace
} // namespace iv::internal

#endif
