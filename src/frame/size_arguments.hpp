// Size arguments in the host's convention (one vector of sizes, or one scalar
// per dimension), read into a dimension list and checked, for the gateways
// that take the host's size arguments after their parameters.
#pragma once

#include <algorithm>
#include <cstddef>

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
// live in the object; longer ones come from host scratch and go back with it.
class SizeArguments {
public:
    static constexpr size_t kLocalDims = 10;

    SizeArguments(int count, const ndArray* const* args) {
        ndim_ = count == 1 ? ndGetNumberOfElements(args[0]) : size_t(count);
        // A single scalar size stands for a square, so leave room for two.
        if (std::max<size_t>(ndim_, 2) > kLocalDims) dims_ = static_cast<size_t*>(ndCalloc(ndim_, sizeof(size_t)));
        total_ = ndGetDims(count, args, dims_, &ndim_);
        ndCheckDim(dims_, ndim_, 8);
    }
    ~SizeArguments() {
        if (dims_ != local_) ndFree(dims_);
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
    size_t local_[kLocalDims];
    size_t* dims_ = local_;
    size_t ndim_ = 0;
    size_t total_ = 0;
};

}  // namespace zv
