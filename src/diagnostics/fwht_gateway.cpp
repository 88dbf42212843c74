// rkeutils::fwhtbif: random trigonometric features of the rows of X through
// structured Walsh-Hadamard products; the caller draws every random part.
#include <bit>
#include <cmath>
#include <cstring>
#include <vector>

#include "diagnostics/fwht.hpp"
#include "frame/gateway.hpp"

namespace {

namespace ids = stats::classreg::learning::rkeutils::fwhtbif;

// Outputs are refused from 2^48 - 1 elements on, tested in integers.
constexpr uint64_t kOutputLimit = 0xFFFFFFFFFFFFull;

template <class T>
constexpr T kSqrt2 = T(1.4142135623730951);
template <>
constexpr float kSqrt2<float> = 1.4142135f;

// The values behind a parameter array, or, where the caller passed fewer than
// `count`, a copy padded with `fill`, so that no block reads past the input.
template <class V>
const V* valuesOrPadded(const ndArray* a, size_t count, V fill, std::vector<V>& padded) {
    const size_t stored = zv::storedCount<V>(a);
    if (stored >= count) return zv::dataOf<const V>(a);
    padded.assign(count, fill);
    if (stored > 0) std::memcpy(padded.data(), ndGetData(a), stored * sizeof(V));
    return padded.data();
}

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
    pr.x = zv::dataOf<const T>(xArg);
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

    const size_t count = L * pr.blocks;
    std::vector<T> gPad, rPad;
    std::vector<int64_t> permPad;
    pr.d = zv::dataOf<const T>(dArg);
    pr.g = valuesOrPadded<T>(inputs[2], count, T(0), gPad);
    pr.r = valuesOrPadded<T>(inputs[3], count, T(0), rPad);
    pr.perm = valuesOrPadded<int64_t>(inputs[4], count, int64_t(0), permPad);
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
