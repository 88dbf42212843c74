// sobolset word gateways: direction numbers from polynomials, the bit-matrix
// conversions and the XOR a caller scrambles with, and words to doubles.
#include <algorithm>
#include <array>
#include <vector>

#include "frame/gateway.hpp"
#include "sampling/sobol_arguments.hpp"
#include "sampling/sobol_direction_numbers.hpp"

namespace {

namespace ids = stats::sobolset;
using zv::sampling::kSobolBits;

// 2^-53: a 53-bit word as a fraction of one.
constexpr double kWordScale = 1.1102230246251565e-16;

// The initial values of one dimension as words; the count must be the degree.
std::array<uint64_t, kSobolBits> initialValues(const ndArray* m, int degree) {
    zv::raiseIf<ids::InvalidInitialMValues>(m == nullptr || degree < 0 ||
                                            ndGetNumberOfElements(m) != size_t(degree));
    std::array<uint64_t, kSobolBits> words{};
    const double* values = zv::dataOf<const double>(m);
    const size_t count = std::min({size_t(degree), kSobolBits, zv::storedCount<double>(m)});
    for (size_t k = 0; k < count; ++k) words[k] = zv::checked::truncateSaturated<uint64_t>(values[k]);
    return words;
}

// The bit-matrix conversions test nothing of their own; without an input
// there is nothing to read, and the host's own error says so.
void requireAnInput(int numInputs) {
    if (numInputs < 1) matrix::detail::error_mininputs();
}

}  // namespace

namespace sobolset {

ZV_DEFINE_GATEWAY(computeDN) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsComputeDN>(numInputs != 2);
    const ndArray* mCells = inputs[0];
    const ndArray* polynomials = inputs[1];
    const size_t dims = ndGetNumberOfElements(polynomials);
    zv::raiseIf<ids::InputSizesComputeDN>(ndGetNumberOfElements(mCells) != dims);

    auto* v = zv::dataOf<uint64_t>(zv::sampling::createOutput(outputs, kSobolBits, dims, ndUINT64_CLASS));
    const bool isCell = ndGetClassID(mCells) == ndCELL_CLASS;
    const double* polynomialValues = zv::dataOf<const double>(polynomials);
    const size_t polynomialCount = zv::storedCount<double>(polynomials);
    for (size_t j = 0; j < dims; ++j) {
        const uint64_t polynomial =
            j < polynomialCount ? zv::checked::truncateSaturated<uint64_t>(polynomialValues[j]) : 0;
        const ndArray* m = isCell ? ndGetCell(mCells, j) : nullptr;
        const auto words = initialValues(m, zv::sampling::polynomialDegree(polynomial));
        zv::sampling::directionNumbers(polynomial, words.data(), v + j * kSobolBits);
    }
}

ZV_DEFINE_GATEWAY(DNToMatrix) {
    (void)numOutputs;
    requireAnInput(numInputs);
    const ndArray* dn = inputs[0];
    const size_t n = ndGetNumberOfElements(dn);
    auto* bits = zv::dataOf<double>(zv::sampling::createOutput(outputs, n, n, ndDOUBLE_CLASS));
    zv::sampling::wordsToBitMatrix(zv::dataOf<const uint64_t>(dn), zv::storedCount<uint64_t>(dn), bits, n);
}

ZV_DEFINE_GATEWAY(MatrixToDN) {
    (void)numOutputs;
    requireAnInput(numInputs);
    const ndArray* matrix = inputs[0];
    const size_t n = ndGetM(matrix);
    auto* words = zv::dataOf<uint64_t>(zv::sampling::createOutput(outputs, n, 1, ndUINT64_CLASS));
    zv::sampling::bitMatrixToWords(zv::dataOf<const double>(matrix), zv::storedCount<double>(matrix), words, n);
}

ZV_DEFINE_GATEWAY(convertToDouble) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsConvertToDouble>(numInputs != 1);
    const ndArray* words = inputs[0];
    zv::raiseIf<ids::InputClassConvertToDouble>(ndGetClassID(words) != ndUINT64_CLASS);
    outputs[0] = ndCreateNumericArray(ndGetNumberOfDimensions(words), ndGetDimensions(words), ndDOUBLE_CLASS, ndREAL);
    const auto* in = zv::dataOf<const uint64_t>(words);
    auto* out = zv::dataOf<double>(outputs[0]);
    const size_t count = ndGetNumberOfElements(words);
    for (size_t i = 0; i < count; ++i) out[i] = double(in[i]) * kWordScale;
}

// The copy keeps the matrix's class; only the words its storage holds are
// changed, and shift words past the vector's storage are 0.
ZV_DEFINE_GATEWAY(matrixBitXorBIF) {
    (void)numOutputs;
    zv::raiseIf<ids::NumInputsMatrixBitXor>(numInputs != 2);
    const ndArray* matrix = inputs[0];
    const ndArray* shift = inputs[1];
    const size_t rows = ndGetM(matrix), columns = ndGetN(matrix);
    zv::raiseIf<ids::InputSizesMatrixBitXor>(ndGetNumberOfElements(shift) != columns);
    outputs[0] = ndDuplicateArray(matrix);
    auto* out = zv::dataOf<uint64_t>(outputs[0]);
    const size_t outWords = zv::storedCount<uint64_t>(outputs[0]);
    const auto* s = zv::dataOf<const uint64_t>(shift);
    const size_t shiftWords = zv::storedCount<uint64_t>(shift);
    for (size_t j = 0; j < columns && j * rows < outWords; ++j) {
        const uint64_t w = j < shiftWords ? s[j] : 0;
        uint64_t* column = out + j * rows;
        const size_t end = std::min(rows, outWords - j * rows);
        for (size_t r = 0; r < end; ++r) column[r] ^= w;
    }
}

}  // namespace sobolset
