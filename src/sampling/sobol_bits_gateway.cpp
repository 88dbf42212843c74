// sobolset word gateways: direction numbers from polynomials, the bit-matrix
// conversions and the XOR a caller scrambles with, and words to doubles.
#include <algorithm>
#include <array>

#include "frame/gateway.hpp"
#include "frame/host_values.hpp"
#include "sampling/sobol_arguments.hpp"
#include "sampling/sobol_direction_numbers.hpp"

namespace {

namespace ids = stats::sobolset;
using zv::sampling::kSobolBits;

// 2^-53: a 53-bit word as a fraction of one.
constexpr double kWordScale = 1.1102230246251565e-16;

// Polynomials and initial values come as doubles, truncated to words.
uint64_t word(double v) { return zv::checked::truncateSaturated<uint64_t>(v); }

// The initial values of one dimension as words; the count must be the degree.
std::array<uint64_t, kSobolBits> initialValues(const ndArray* m, int degree) {
    zv::raiseIf<ids::InvalidInitialMValues>(m == nullptr || degree < 0 ||
                                            ndGetNumberOfElements(m) != size_t(degree));
    const size_t count = std::min(size_t(degree), kSobolBits);
    const zv::HostValues<double> values(m, count, 0.0);
    std::array<uint64_t, kSobolBits> words{};
    for (size_t k = 0; k < count; ++k) words[k] = word(values[k]);
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
    zv::raiseIf<ids::NumInputsComputeDN>(numInputs != 2);
    const ndArray* mCells = inputs[0];
    const size_t dims = ndGetNumberOfElements(inputs[1]);
    zv::raiseIf<ids::InputSizesComputeDN>(ndGetNumberOfElements(mCells) != dims);

    auto out = zv::sampling::createOutput<uint64_t>(kSobolBits, dims);
    auto* v = zv::dataOf<uint64_t>(out.get());
    const bool isCell = ndGetClassID(mCells) == ndCELL_CLASS;
    const zv::HostValues<double> polynomials(inputs[1], dims, 0.0);
    for (size_t j = 0; j < dims; ++j) {
        const ndArray* m = isCell ? ndGetCell(mCells, j) : nullptr;
        const uint64_t polynomial = word(polynomials[j]);
        const auto words = initialValues(m, zv::sampling::polynomialDegree(polynomial));
        zv::sampling::directionNumbers(polynomial, words.data(), v + j * kSobolBits);
    }
    zv::handOver(outputs, numOutputs, std::move(out));
}

ZV_DEFINE_GATEWAY(DNToMatrix) {
    requireAnInput(numInputs);
    const size_t n = ndGetNumberOfElements(inputs[0]);
    auto out = zv::sampling::createOutput<double>(n, n);
    const zv::HostValues<uint64_t> dn(inputs[0], n, 0);
    zv::sampling::wordsToBitMatrix(dn.data(), zv::dataOf<double>(out.get()), n);
    zv::handOver(outputs, numOutputs, std::move(out));
}

ZV_DEFINE_GATEWAY(MatrixToDN) {
    requireAnInput(numInputs);
    const size_t n = ndGetM(inputs[0]);
    auto out = zv::sampling::createOutput<uint64_t>(n, 1);
    const auto bits = zv::HostValues<double>::matrix(inputs[0], n, n, 0.0);
    zv::sampling::bitMatrixToWords(bits.data(), zv::dataOf<uint64_t>(out.get()), n);
    zv::handOver(outputs, numOutputs, std::move(out));
}

ZV_DEFINE_GATEWAY(convertToDouble) {
    zv::raiseIf<ids::NumInputsConvertToDouble>(numInputs != 1);
    const ndArray* words = inputs[0];
    zv::raiseIf<ids::InputClassConvertToDouble>(ndGetClassID(words) != ndUINT64_CLASS);
    const std::span<const size_t> dims(ndGetDimensions(words), ndGetNumberOfDimensions(words));
    auto out = matrix::detail::do_create_numeric(dims, ndDOUBLE_CLASS, ndREAL);
    const auto* in = zv::dataOf<const uint64_t>(words);
    auto* values = zv::dataOf<double>(out.get());
    const size_t count = ndGetNumberOfElements(words);
    for (size_t i = 0; i < count; ++i) values[i] = double(in[i]) * kWordScale;
    zv::handOver(outputs, numOutputs, std::move(out));
}

// The copy keeps the matrix's class; only the words its storage holds are
// changed.
ZV_DEFINE_GATEWAY(matrixBitXorBIF) {
    zv::raiseIf<ids::NumInputsMatrixBitXor>(numInputs != 2);
    const ndArray* matrix = inputs[0];
    const size_t rows = ndGetM(matrix), columns = ndGetN(matrix);
    zv::raiseIf<ids::InputSizesMatrixBitXor>(ndGetNumberOfElements(inputs[1]) != columns);
    matrix::unique_nd_ptr out(ndDuplicateArray(matrix));
    auto* words = zv::dataOf<uint64_t>(out.get());
    const size_t outWords = zv::storedCount<uint64_t>(out.get());
    const zv::HostValues<uint64_t> shift(inputs[1], columns, 0);
    for (size_t j = 0; j < columns && j * rows < outWords; ++j) {
        uint64_t* column = words + j * rows;
        const size_t end = std::min(rows, outWords - j * rows);
        for (size_t r = 0; r < end; ++r) column[r] ^= shift[j];
    }
    zv::handOver(outputs, numOutputs, std::move(out));
}

}  // namespace sobolset
