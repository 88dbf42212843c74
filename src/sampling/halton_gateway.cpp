// haltonset::computeRR2Perm: reverse-radix permutations for a list of bases,
// or, with a table of permutations by bit length, for one base taken from it.
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "sampling/halton_permutation.hpp"

namespace {

namespace ids = stats::haltonset;

// Bases, read as doubles, are truncated to unsigned 32-bit integers.
class Bases {
public:
    Bases(const ndArray* a, size_t count) : values_(a, count, 0.0) {}
    uint32_t operator[](size_t i) const { return zv::checked::truncateSaturated<uint32_t>(values_[i]); }

private:
    zv::HostValues<double> values_;
};

matrix::unique_nd_ptr computedPermutations(const ndArray* basesArg) {
    const size_t count = ndGetNumberOfElements(basesArg);
    const Bases bases(basesArg, count);
    const size_t dims[2] = {1, count};
    auto cells = matrix::detail::do_create_cell(std::span<const size_t>(dims, 2));
    for (size_t i = 0; i < count; ++i) {
        auto perm = zv::createMatrix<double>(1, bases[i]);
        zv::sampling::reverseRadixPermutation(bases[i], zv::dataOf<double>(perm.get()));
        ndSetCell(cells.get(), i, matrix::to_host(std::move(perm)));
    }
    return cells;
}

// Element e of the table serves bases of bit length e + 1; b = 1 has length 0
// and so no element (e wraps). A table element that is not a permutation
// with b values below b has no data for the base either.
matrix::unique_nd_ptr permutationFromTable(const ndArray* basesArg, const ndArray* table) {
    zv::raiseIf<ids::OnlyOneBasePerm>(ndGetNumberOfElements(basesArg) > 1);
    const uint32_t base = Bases(basesArg, 1)[0];
    const size_t element = size_t(zv::sampling::permutationBitLength(base)) - 1;
    const size_t tableCount = ndGetClassID(table) == ndCELL_CLASS ? ndGetNumberOfElements(table) : 0;
    zv::raiseIf<ids::NoPermDataForBase>(tableCount <= element);
    const ndArray* source = ndGetCell(table, element);
    auto perm = zv::createMatrix<double>(1, base);
    bool complete = base == 0;
    if (source) {
        const size_t count = ndGetNumberOfElements(source);
        const zv::HostValues<double> values(source, count, 0.0);
        complete = zv::sampling::permutationFromTable(base, values.data(), count, zv::dataOf<double>(perm.get()));
    }
    zv::raiseIf<ids::NoPermDataForBase>(!complete);
    return perm;
}

}  // namespace

namespace haltonset {

ZV_DEFINE_GATEWAY(computeRR2Perm) {
    zv::raiseIf<ids::NumInputsComputeRR2Perm>(numInputs != 1 && numInputs != 2);
    zv::handOver(outputs, numOutputs,
                 numInputs == 1 ? computedPermutations(inputs[0]) : permutationFromTable(inputs[0], inputs[1]));
}

}  // namespace haltonset
