// Host-tracked scratch (ndMalloc) owned for the length of a scope; the host
// reclaims it as well if an error unwinds past the owner.
#pragma once

#include <cstddef>
#include <memory>

#include "host/ndarray.hpp"

namespace zv {

template <class T>
class HostScratch {
public:
    explicit HostScratch(size_t count) : data_(static_cast<T*>(ndMalloc(count ? count * sizeof(T) : 1))) {}
    T* get() const { return data_.get(); }
    T& operator[](size_t i) const { return data_.get()[i]; }

private:
    struct Free {
        void operator()(T* p) const { ndFree(p); }
    };
    std::unique_ptr<T, Free> data_;
};

}  // namespace zv
