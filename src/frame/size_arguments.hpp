// Size arguments in the host's convention (one vector of sizes, or one scalar
// per dimension), read into a dimension list and checked, for the gateways
// that take the host's size arguments after their parameters.
#pragma once

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "frame/host_values.hpp"
#include "frame/scratch.hpp"
#include "host/host.hpp"

namespace zv {

// Dimension lists agree when equal up to the longer length, with missing
// trailing entries counting as 1.
inline bool sameSize(const size_t* a, size_t na, const size_t* b, size_t nb) {
    for (size_t k = 0; k < std::max(na, nb); ++k)
        if ((k < na ? a[k] : 1) != (k < nb ? b[k] : 1)) return false;
    return true;
}

// The dimensions that `count` size arguments state. Lists up to kLocalDims long
// live in the object; longer ones come from host scratch.
class SizeArguments {
public:
    static constexpr size_t kLocalDims = 10;

    SizeArguments(int count, const ndArray* const* args) {
        ndim_ = count == 1 ? ndGetNumberOfElements(args[0]) : size_t(count);
        // A single scalar size stands for a square, so leave room for two.
        if (std::max<size_t>(ndim_, 2) > kLocalDims) {
            longDims_ = Scratch<size_t>(ndim_);
            dims_ = longDims_.get();
        }
        std::vector<matrix::unique_nd_ptr> copies;
        std::vector<const ndArray*> plain(args, args + count);
        for (const ndArray*& a : plain)
            if (ndIsSparse(a) || ndIsComplex(a)) a = copies.emplace_back(realDenseCopy(a)).get();
        total_ = ndGetDims(count, plain.data(), dims_, &ndim_);
        ndCheckDim(dims_, ndim_, 8);
    }
    SizeArguments(const SizeArguments&) = delete;
    SizeArguments& operator=(const SizeArguments&) = delete;

    // Sizes (3, 4, 1, 1) become (3, 4); two dimensions always stay.
    void dropTrailingOnes() {
        while (ndim_ > 2 && dims_[ndim_ - 1] == 1) --ndim_;
    }

    const size_t* dims() const { return dims_; }
    size_t ndim() const { return ndim_; }
    size_t total() const { return total_; }
    bool sameSizeAs(const ndArray* a) const {
        return sameSize(dims_, ndim_, ndGetDimensions(a), ndGetNumberOfDimensions(a));
    }

private:
    // The host reads sizes from dense real storage: a sparse argument stores
    // only its non-zeros, a complex one interleaves its imaginary parts.
    static matrix::unique_nd_ptr realDenseCopy(const ndArray* a) {
        const std::span<const size_t> dims(ndGetDimensions(a), ndGetNumberOfDimensions(a));
        auto copy = matrix::detail::do_create_numeric(dims, ndDOUBLE_CLASS, ndREAL);
        HostValues<double>::copyInto(a, static_cast<double*>(ndGetData(copy.get())), ndGetNumberOfElements(a), 0.0);
        return copy;
    }

    size_t local_[kLocalDims];
    Scratch<size_t> longDims_;
    size_t* dims_ = local_;
    size_t ndim_ = 0;
    size_t total_ = 0;
};

}  // namespace zv
