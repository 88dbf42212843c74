// Host-tracked scratch (ndMalloc) owned for the length of a scope; the host
// reclaims it as well if an error unwinds past the owner.
#pragma once

#include <cstddef>
#include <memory>

#include <sys/mman.h>
#include <cstdint>

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

// Asks the kernel to back a large, not yet touched block with huge pages:
// walks down the columns of a big triangle otherwise miss the TLB at every
// step. Only the whole huge pages inside the block are advised; a refusal
// changes nothing but speed.
inline void adviseHugePages(void* p, size_t bytes) {
    constexpr size_t kHugePage = size_t(2) << 20;
    if (bytes < 4 * kHugePage) return;
    const uintptr_t begin = (reinterpret_cast<uintptr_t>(p) + kHugePage - 1) & ~(kHugePage - 1);
    const uintptr_t end = (reinterpret_cast<uintptr_t>(p) + bytes) & ~(kHugePage - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

}  // namespace zv
