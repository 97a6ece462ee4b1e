// One number for what a function gives, the same from every compiler, at every optimisation and on
// every machine.
#ifndef LIBIV_TESTS_DIGEST_H
#define LIBIV_TESTS_DIGEST_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "model/matrix.h"
#include "support/number.h"

namespace digests {

/// What went into one digest, to tell where two of them part.
struct Trace {
    struct Value {
        std::size_t of_case; ///< index among the cases
        std::uint64_t bits;
    };
    std::string name; ///< of the digest
    std::vector<std::string> cases;
    std::vector<Value> values;
};

/// 64-bit FNV-1a over the bits of values, the lowest byte first: the order of bytes in memory plays
/// no part.
class Digest {
  public:
    /// Traces what is added from now on.
    void trace(Trace* trace) { trace_ = trace; }

    /// What follows belongs to a case of this name.
    void begin(const std::string& name) {
        if (trace_) {
            trace_->cases.push_back(name);
        }
    }

    /// A result of arithmetic: any NaN is as good as any other.
    template <class T>
    void add(T value) {
        add_bits(test::canonical_bits(value));
    }
    template <class T>
    void add(const std::array<T, 3>& values) {
        for (const T& value : values) {
            add(value);
        }
    }
    void add(const model::Mat& mat) {
        model::with_depth(mat.type, [&](auto zero) {
            for (int i = 0; i < model::flat_count(mat); ++i) {
                add(model::load<decltype(zero)>(mat.data, i));
            }
        });
    }

    /// Values that are only moved: every bit counts.
    void add_copied(const model::Mat& mat) {
        model::with_depth(mat.type, [&](auto zero) {
            for (int i = 0; i < model::flat_count(mat); ++i) {
                add_bits(test::bits(model::load<decltype(zero)>(mat.data, i)));
            }
        });
    }

    std::uint64_t value() const { return state_; }

  private:
    template <class Bits>
    void add_bits(Bits bits) {
        auto left = static_cast<std::make_unsigned_t<Bits>>(bits);
        if (trace_) {
            trace_->values.push_back({trace_->cases.size() - 1, left});
        }
        for (std::size_t i = 0; i < sizeof left; ++i) {
            state_ = (state_ ^ static_cast<std::uint8_t>(left)) * 0x100000001b3u;
            left = static_cast<decltype(left)>(left >> 8);
        }
    }

    std::uint64_t state_ = 0xcbf29ce484222325u;
    Trace* trace_ = nullptr;
};

/// Digests by name.
class Digests {
  public:
    /// One of them, if it is named, leaves a trace.
    explicit Digests(const std::string& traced = {}) { trace_.name = traced; }
    Digests(const Digests&) = delete;
    Digests& operator=(const Digests&) = delete;

    Digest& operator[](const std::string& name) {
        const auto [entry, is_new] = digests_.try_emplace(name);
        if (is_new && name == trace_.name) {
            entry->second.trace(&trace_);
        }
        return entry->second;
    }

    std::map<std::string, std::uint64_t> values() const {
        std::map<std::string, std::uint64_t> values;
        for (const auto& [name, digest] : digests_) {
            values[name] = digest.value();
        }
        return values;
    }
    const Trace& trace() const { return trace_; }

  private:
    std::map<std::string, Digest> digests_;
    Trace trace_;
};

} // namespace digests

#endif
