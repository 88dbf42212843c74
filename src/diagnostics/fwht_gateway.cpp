// rkeutils::fwhtbif: random trigonometric features of the rows of X through
// structured Walsh-Hadamard products; the caller draws every random part.
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "diagnostics/fwht.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"

namespace {

namespace ids = stats::classreg::learning::rkeutils::fwhtbif;

// Outputs are refused from 2^48 - 1 elements on, tested in integers.
constexpr uint64_t kOutputLimit = 0xFFFFFFFFFFFFull;

template <class T>
constexpr T kSqrt2 = T(1.4142135623730951);
template <>
constexpr float kSqrt2<float> = 1.4142135f;

// True when each of the first `blocks` columns of perm is a permutation of 1..L.
bool permutationsValid(const int64_t* perm, size_t L, size_t blocks) {
    std::vector<uint8_t> seen(L);
    for (size_t b = 0; b < blocks; ++b) {
        std::fill(seen.begin(), seen.end(), 0);
        for (size_t i = 0; i < L; ++i) {
            const int64_t p = perm[b * L + i];
            if (p < 1 || uint64_t(p) > L || seen[size_t(p - 1)]) return false;
            seen[size_t(p - 1)] = 1;
        }
    }
    return true;
}

// Keeps the first q columns of an m-by-n output: new storage of m*q values,
// handed to the array.
template <class T>
void keepLeadingColumns(ndArray* out, size_t m, size_t q) {
    void* kept = ndMalloc(m * q * sizeof(T));
    if (m * q > 0) std::memcpy(kept, ndGetData(out), m * q * sizeof(T));
    ndSetData(out, kept);
    ndSetN(out, q);
}

template <class T>
void fwhtTyped(ndArray** outputs, const ndArray** inputs) {
    const ndArray* xArg = inputs[0];
    const ndArray* dArg = inputs[1];
    const size_t m = ndGetM(xArg), k = ndGetN(xArg);
    const size_t L = ndGetM(dArg), S = ndGetN(dArg);
    const double sigma = ndGetScalar(inputs[5]);
    const uint64_t q = zv::checked::toSize(ndGetScalar(inputs[6]));

    rkeutils::FwhtProblem<T> pr{};
    pr.m = m;
    pr.k = k;
    pr.L = L;
    pr.logL = L == 0 ? 0 : std::bit_width(L) - 1;
    pr.scale = std::sqrt(T(L)) * T(sigma) / kSqrt2<T>;

    // The counts are taken in unsigned 64 bits; a product that wraps is as
    // much too large as one that does not.
    uint64_t columns = 0, total = 0;
    const bool wraps = __builtin_mul_overflow(uint64_t(2) * S, uint64_t(L), &columns) || S > (UINT64_MAX >> 1) ||
                       __builtin_mul_overflow(columns, uint64_t(m), &total);
    pr.gain = T(1);
    if (columns > q) pr.gain = std::sqrt(T(q) / T(columns));
    zv::raiseIf<ids::OutputTooLarge>(wraps || total >= kOutputLimit);

    // Blocks wholly past the q columns kept would be cut away: they are not
    // computed, and the output is made only as wide as the blocks that are.
    const size_t blockColumns = 2 * L;
    pr.blocks = L == 0 ? 0 : std::min<uint64_t>(S, (q + blockColumns - 1) / blockColumns);
    const size_t madeColumns = pr.blocks * blockColumns;
    outputs[0] = ndCreateNumericMatrix(m, madeColumns, zv::classOf<T>(), ndREAL);
    pr.out = zv::dataOf<T>(outputs[0]);

    // The parameters are read as T (P as integers) only as far as they hold
    // values, whatever their class: a block never reads past an input.
    const auto x = zv::HostValues<T>::matrix(xArg, m, k, T(0));
    const size_t count = L * pr.blocks;
    const zv::HostValues<T> d(dArg, count, T(0)), g(inputs[2], count, T(0)), r(inputs[3], count, T(0));
    const zv::HostValues<int64_t> perm(inputs[4], count, 0);
    pr.x = x.data();
    pr.d = d.data();
    pr.g = g.data();
    pr.r = r.data();
    pr.perm = perm.data();
    pr.permutationsChecked = permutationsValid(pr.perm, L, pr.blocks);

    rkeutils::fwhtfun(pr);
    if (madeColumns > q) keepLeadingColumns<T>(outputs[0], m, q);
}

}  // namespace

namespace rkeutils {

ZV_DEFINE_GATEWAY(fwhtbif) {
    zv::raiseIf<ids::TooFewInputs>(numInputs < 7);
    zv::raiseIf<ids::TooManyInputs>(numInputs > 7);
    zv::raiseIf<ids::TooManyOutputs>(numOutputs > 1);
    zv::dispatchReal<ids::BadInputType>(inputs[0], [&](auto tag) { fwhtTyped<decltype(tag)>(outputs, inputs); });
}

}  // namespace rkeutils
