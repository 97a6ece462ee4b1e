// Eigen: sizes known at run time ("dynamic") and at compile time ("fixed").
//
// Compiled twice; the build renames Eigen's namespace so that the linker cannot merge the two.

#include <Eigen/Dense>
#include <memory>

#include "peers.h"

namespace bench::PEER_BUILD {
namespace {

constexpr int ANY = Eigen::Dynamic;

// Eigen wants a single row or column stored along its length.
template <class T, int ROWS, int COLS>
using Matrix = Eigen::Matrix<T, ROWS, COLS, COLS == 1 ? Eigen::ColMajor : Eigen::RowMajor>;
template <class T, int ROWS, int COLS>
using View = Eigen::Map<Matrix<T, ROWS, COLS>>;
template <class T>
using Row = Eigen::Map<Eigen::Array<T, 1, ANY>>;

template <class Work>
void enter(Entrants& entrants, const char* name, Group group, Work work) {
    entrants.push_back({std::string(name) + PEER_SUFFIX, group, repeat(work)});
}

template <class T>
void enter_dynamic(const Product<T>& p, Entrants& entrants) {
    const View<T, ANY, ANY> a(p.a, p.a_rows(), p.a_cols());
    const View<T, ANY, ANY> b(p.b, p.b_rows(), p.b_cols());
    View<T, ANY, ANY> c(p.c, p.m, p.n);
    const char* const name = "Eigen dynamic";
    switch (p.mode) {
        case Mode::PLAIN:
            return enter(entrants, name, Group::RUN_TIME, [=]() mutable { c.noalias() = a * b; });
        case Mode::FIRST_TRANSPOSED:
            return enter(entrants, name, Group::RUN_TIME,
                         [=]() mutable { c.noalias() = a.transpose() * b; });
        case Mode::SECOND_TRANSPOSED:
            return enter(entrants, name, Group::RUN_TIME,
                         [=]() mutable { c.noalias() = a * b.transpose(); });
    }
}

template <int M, int K, int N, class T>
bool enter_fixed(const Product<T>& p, Entrants& entrants) {
    if (p.m != M || p.k != K || p.n != N) {
        return false;
    }
    const char* const name = "Eigen fixed";
    View<T, M, N> c(p.c);
    if (p.mode == Mode::PLAIN) {
        const View<T, M, K> a(p.a);
        const View<T, K, N> b(p.b);
        enter(entrants, name, Group::COMPILE_TIME,
              [=]() mutable { c.noalias() = a.lazyProduct(b); });
    } else if (p.mode == Mode::FIRST_TRANSPOSED) {
        const View<T, K, M> a(p.a);
        const View<T, K, N> b(p.b);
        enter(entrants, name, Group::COMPILE_TIME,
              [=]() mutable { c.noalias() = a.transpose().lazyProduct(b); });
    } else {
        const View<T, M, K> a(p.a);
        const View<T, N, K> b(p.b);
        enter(entrants, name, Group::COMPILE_TIME,
              [=]() mutable { c.noalias() = a.lazyProduct(b.transpose()); });
    }
    return true;
}

template <class T>
void enter_task(const Product<T>& p, Entrants& entrants) {
    enter_dynamic(p, entrants);
    if constexpr (std::is_floating_point_v<T>) {
        enter_fixed<2, 2, 2>(p, entrants) || enter_fixed<3, 3, 3>(p, entrants) ||
            enter_fixed<4, 4, 4>(p, entrants) || enter_fixed<6, 6, 6>(p, entrants) ||
            enter_fixed<12, 12, 12>(p, entrants) || enter_fixed<16, 16, 16>(p, entrants) ||
            enter_fixed<8, 8, 1>(p, entrants) || enter_fixed<8, 8, 4>(p, entrants) ||
            enter_fixed<4, 8, 4>(p, entrants);
    }
    enter_fixed<8, 8, 8>(p, entrants);
}

template <int N>
bool enter_fixed(const Inverse& task, Entrants& entrants) {
    if (task.n != N) {
        return false;
    }
    const View<float, N, N> a(task.a);
    View<float, N, N> c(task.c);
    if (N == 4) {
        enter(entrants, "Eigen closed form", Group::COMPILE_TIME,
              [=]() mutable { c = a.inverse(); });
    }
    enter(entrants, "Eigen fixed", Group::COMPILE_TIME,
          [=]() mutable { c = a.partialPivLu().inverse(); });
    return true;
}

void enter_task(const Inverse& task, Entrants& entrants) {
    const View<float, ANY, ANY> a(task.a, task.n, task.n);
    View<float, ANY, ANY> c(task.c, task.n, task.n);
    enter(entrants, "Eigen dynamic", Group::RUN_TIME, [=]() mutable { c = a.inverse(); });
    enter_fixed<4>(task, entrants) || enter_fixed<6>(task, entrants) ||
        enter_fixed<8>(task, entrants) || enter_fixed<12>(task, entrants) ||
        enter_fixed<16>(task, entrants);
}

template <class T>
void enter_task(const Elementwise<T>& task, Entrants& entrants) {
    const Row<T> a(task.a, task.count);
    const Row<T> b(task.b, task.count);
    Row<T> c(task.c, task.count);
    const T factor = task.factor;
    const char* const name = "Eigen dynamic";
    switch (task.operation) {
        case Operation::ADD:
            return enter(entrants, name, Group::RUN_TIME, [=]() mutable { c = a + b; });
        case Operation::SUB:
            return enter(entrants, name, Group::RUN_TIME, [=]() mutable { c = a - b; });
        case Operation::SCALE:
            return enter(entrants, name, Group::RUN_TIME, [=]() mutable { c = a * factor; });
        case Operation::NEG:
            if constexpr (std::is_signed_v<T>) {
                enter(entrants, name, Group::RUN_TIME, [=]() mutable { c = -a; });
            }
            return;
        case Operation::ONE:
            return enter(entrants, name, Group::RUN_TIME, [=]() mutable { c.setOnes(); });
    }
}

template <class T>
void enter_task(const Transpose<T>& task, Entrants& entrants) {
    const View<T, ANY, ANY> a(task.a, task.n, task.n);
    View<T, ANY, ANY> c(task.c, task.n, task.n);
    enter(entrants, "Eigen dynamic", Group::RUN_TIME, [=]() mutable { c = a.transpose(); });
}

/// Coefficient by coefficient, which is best for small fixed sizes, or as Eigen chooses.
template <bool LAZY, class A, class B>
auto times(const A& a, const B& b) {
    if constexpr (LAZY) {
        return a.lazyProduct(b);
    } else {
        return a * b;
    }
}

/// Storage of a filter whose sizes are NS and NM, or known at run time. Columns first: nobody else
/// reads it.
template <int NS, int NM>
struct State {
    template <int ROWS, int COLS>
    using Mat = Eigen::Matrix<float, ROWS, COLS>;
    template <int ROWS, int COLS>
    using Rows = Eigen::Map<const Matrix<float, ROWS, COLS>>;

    explicit State(const Filter& f)
        : filter(f),
          A(Rows<NS, NS>(f.A, f.ns, f.ns)),
          Q(Rows<NS, NS>(f.Q, f.ns, f.ns)),
          P(Mat<NS, NS>::Identity(f.ns, f.ns)),
          H(Rows<NM, NS>(f.H, f.nm, f.ns)),
          R(Rows<NM, NM>(f.R, f.nm, f.nm)),
          x(Mat<NS, 1>::Zero(f.ns)) {}

    Eigen::Map<const Mat<NM, 1>> next_measurement() {
        return Eigen::Map<const Mat<NM, 1>>(filter.measurement(step++), filter.nm);
    }

    Filter filter;
    unsigned step = 0;
    Mat<NS, NS> A, Q, P, P_pre, temp1;
    Mat<NM, NS> H, HP;
    Mat<NS, NM> K, temp2;
    Mat<NM, NM> R, temp3, temp4;
    Mat<NS, 1> x, x_pre;
    Mat<NM, 1> temp5;
};

/// Equation by equation what the library promises, its transposes included.
template <int NS, int NM, bool LAZY>
struct SameEquations : State<NS, NM> {
    using State<NS, NM>::State;

    void advance() {
        State<NS, NM>& s = *this;
        const auto identity =
            State<NS, NM>::template Mat<NS, NS>::Identity(s.filter.ns, s.filter.ns);
        s.x_pre.noalias() = times<LAZY>(s.A, s.x);
        s.temp1.noalias() = times<LAZY>(s.A, s.P.transpose());
        s.P_pre.noalias() = s.Q + times<LAZY>(s.temp1, s.A.transpose());

        s.temp2.noalias() = times<LAZY>(s.P_pre, s.H.transpose());
        s.temp3.noalias() = s.R + times<LAZY>(s.H, s.temp2);
        s.temp4 = s.temp3.inverse();
        s.K.noalias() = times<LAZY>(s.temp2, s.temp4.transpose());
        s.temp5.noalias() = s.next_measurement() - times<LAZY>(s.H, s.x_pre);
        s.x.noalias() = s.x_pre + times<LAZY>(s.K, s.temp5);
        s.temp1.noalias() = identity - times<LAZY>(s.K, s.H);
        s.P.noalias() = times<LAZY>(s.temp1, s.P_pre.transpose());
    }
};

/// As one writes it without a contract: H P serves twice, I - K H is never formed, and no inverse
/// where solving will do.
template <int NS, int NM, bool LAZY>
struct Idiomatic : State<NS, NM> {
    using State<NS, NM>::State;

    void advance() {
        State<NS, NM>& s = *this;
        s.x_pre.noalias() = times<LAZY>(s.A, s.x);
        s.temp1.noalias() = times<LAZY>(s.A, s.P);
        s.P_pre.noalias() = s.Q + times<LAZY>(s.temp1, s.A.transpose());

        s.HP.noalias() = times<LAZY>(s.H, s.P_pre);
        s.temp3.noalias() = s.R + times<LAZY>(s.HP, s.H.transpose());
        if constexpr (NM == 4) {
            s.temp4 = s.temp3.inverse();
            s.K.noalias() = times<LAZY>(s.HP.transpose(), s.temp4);
        } else {
            s.K = s.temp3.llt().solve(s.HP).transpose();
        }
        s.temp5.noalias() = s.next_measurement() - times<LAZY>(s.H, s.x_pre);
        s.x.noalias() = s.x_pre + times<LAZY>(s.K, s.temp5);
        s.P.noalias() = s.P_pre - times<LAZY>(s.K, s.HP);
    }
};

template <class Kind>
void enter_filter(const char* name, Group group, const Filter& task, Entrants& entrants) {
    const auto kind = std::allocate_shared<Kind>(Eigen::aligned_allocator<Kind>(), task);
    const auto show = [kind, task] {
        for (int i = 0; i < task.ns; ++i) {
            task.x[i] = kind->x[i];
        }
    };
    entrants.push_back(
        {std::string(name) + PEER_SUFFIX, group, repeat([kind] { kind->advance(); }), show});
}

template <int NS, int NM>
void enter_filters(const Filter& task, Entrants& entrants) {
    if (task.ns != NS || task.nm != NM) {
        return;
    }
    enter_filter<SameEquations<NS, NM, true>>("Eigen fixed", Group::COMPILE_TIME, task, entrants);
    enter_filter<Idiomatic<NS, NM, true>>("Eigen idiomatic", Group::REPORTED, task, entrants);
    if (NS > 8) {
        enter_filter<SameEquations<NS, NM, false>>("Eigen fixed, blocked", Group::COMPILE_TIME,
                                                   task, entrants);
        enter_filter<Idiomatic<NS, NM, false>>("Eigen idiomatic, blocked", Group::REPORTED, task,
                                               entrants);
    }
}

void enter_task(const Filter& task, Entrants& entrants) {
    enter_filter<SameEquations<ANY, ANY, false>>("Eigen dynamic", Group::RUN_TIME, task, entrants);
    enter_filters<8, 4>(task, entrants);
    enter_filters<16, 8>(task, entrants);
    enter_filters<32, 16>(task, entrants);
}

} // namespace

void enter_eigen(const Task& task, Entrants& entrants) {
    std::visit([&](const auto& t) { enter_task(t, entrants); }, task);
}

} // namespace bench::PEER_BUILD
