// haltonset::computeRR2Perm: reverse-radix permutations for a list of bases,
// or, with a table of permutations by bit length, for one base taken from it.
#include "frame/gateway.hpp"
#include "sampling/halton_permutation.hpp"

namespace {

namespace ids = stats::haltonset;

// Bases are read as doubles and truncated to unsigned 32-bit integers; values
// past what the array stores read as 0.
uint32_t baseAt(const ndArray* bases, size_t i) {
    const bool stored = i < zv::storedCount<double>(bases);
    const double value = stored ? zv::dataOf<const double>(bases)[i] : 0.0;
    return zv::checked::truncateSaturated<uint32_t>(value);
}

matrix::unique_nd_ptr permutationArray(uint32_t base) {
    return zv::createMatrix<double>(1, base);
}

ndArray* computedPermutations(const ndArray* bases) {
    const size_t count = ndGetNumberOfElements(bases);
    const size_t dims[2] = {1, count};
    auto cells = matrix::detail::do_create_cell(std::span<const size_t>(dims, 2));
    for (size_t i = 0; i < count; ++i) {
        const uint32_t base = baseAt(bases, i);
        auto perm = permutationArray(base);
        zv::sampling::reverseRadixPermutation(base, zv::dataOf<double>(perm.get()));
        ndSetCell(cells.get(), i, matrix::to_host(std::move(perm)));
    }
    return matrix::to_host(std::move(cells));
}

// Element e of the table serves bases of bit length e + 1; b = 1 has length 0
// and so no element (e wraps). A table element that is not a permutation
// with b values below b has no data for the base either.
ndArray* permutationFromTable(const ndArray* bases, const ndArray* table) {
    zv::raiseIf<ids::OnlyOneBasePerm>(ndGetNumberOfElements(bases) > 1);
    const uint32_t base = baseAt(bases, 0);
    const size_t element = size_t(zv::sampling::permutationBitLength(base)) - 1;
    const size_t tableCount = ndGetClassID(table) == ndCELL_CLASS ? ndGetNumberOfElements(table) : 0;
    zv::raiseIf<ids::NoPermDataForBase>(tableCount <= element);
    const ndArray* source = ndGetCell(table, element);
    const bool usable = source && ndGetClassID(source) == ndDOUBLE_CLASS;
    auto perm = permutationArray(base);
    const bool complete = zv::sampling::permutationFromTable(
        base, usable ? zv::dataOf<const double>(source) : nullptr,
        usable ? zv::storedCount<double>(source) : 0, zv::dataOf<double>(perm.get()));
    zv::raiseIf<ids::NoPermDataForBase>(!complete);
    return matrix::to_host(std::move(perm));
}

}  // namespace

namespace haltonset {

ZV_DEFINE_GATEWAY(computeRR2Perm) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsComputeRR2Perm>(numInputs != 1 && numInputs != 2);
    outputs[0] = numInputs == 1 ? computedPermutations(inputs[0]) : permutationFromTable(inputs[0], inputs[1]);
}

}  // namespace haltonset
