// Scratch memory owned for the length of a scope: host-tracked memory on the
// calling thread, or the worker-safe host allocator inside parallel bodies.
// A failed allocation raises the family's out-of-memory identifier with the
// bytes that were needed, or, without one, the host's allocation failure.
#pragma once

#include <sys/mman.h>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include <tbb/scalable_allocator.h>

#include "host/host.hpp"

namespace zv {

// ndMalloc belongs to the host thread (and is reclaimed by the host if an
// error unwinds past its owner); ndMallocEx may be called from any thread;
// TBB's scalable allocator serves blocks that vector loads want on a cache
// line, from any thread.
enum class Heap { host, worker, alignedWorker };

inline constexpr size_t kCacheLine = 64;

namespace frame {

// n values of T in bytes, saturated at LONG_MAX so that an impossible size
// still reaches the error with a meaningful count.
template <class T>
constexpr size_t scratchBytes(size_t n) {
    return n > size_t(LONG_MAX) / sizeof(T) ? size_t(LONG_MAX) : n * sizeof(T);
}

// OutOfMemory is an identifier class taking the byte count, or void for the
// host's own allocation failure.
template <class OutOfMemory>
[[noreturn]] void raiseOutOfMemory(size_t bytes) {
    if constexpr (std::is_void_v<OutOfMemory>) throw bedrock::core::except::bad_alloc();
    else ndErrMsgId(OutOfMemory(long(bytes < size_t(LONG_MAX) ? bytes : size_t(LONG_MAX))));
}

}  // namespace frame

template <class T, class OutOfMemory = void>
class Scratch {
public:
    Scratch() = default;
    // `count` values, uninitialised; at least one byte is taken, so that
    // data() is never null once constructed.
    explicit Scratch(size_t count, Heap heap = Heap::host) : count_(count), heap_(heap) {
        const size_t bytes = frame::scratchBytes<T>(count);
        if (count > size_t(LONG_MAX) / sizeof(T)) frame::raiseOutOfMemory<OutOfMemory>(bytes);
        void* p = nullptr;
        if (heap == Heap::host) {
            if constexpr (std::is_void_v<OutOfMemory>) {
                p = ndMalloc(bytes ? bytes : 1);
            } else {
                try {
                    p = ndMalloc(bytes ? bytes : 1);
                } catch (const std::bad_alloc&) {
                    frame::raiseOutOfMemory<OutOfMemory>(bytes);
                }
            }
        } else if (heap == Heap::worker) {
            p = ndMallocEx(bytes ? bytes : 1);
        } else {
            p = scalable_aligned_malloc(bytes ? bytes : 1, kCacheLine);
        }
        if (!p) frame::raiseOutOfMemory<OutOfMemory>(bytes);
        data_ = static_cast<T*>(p);
    }
    Scratch(size_t count, T fill, Heap heap = Heap::host) : Scratch(count, heap) {
        for (size_t i = 0; i < count; ++i) data_[i] = fill;
    }
    Scratch(Scratch&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), count_(std::exchange(other.count_, 0)), heap_(other.heap_) {}
    Scratch& operator=(Scratch&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(count_, other.count_);
        std::swap(heap_, other.heap_);
        return *this;
    }
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    ~Scratch() {
        if (!data_) return;
        switch (heap_) {
        case Heap::host: ndFree(data_); break;
        case Heap::worker: ndFreeEx(data_); break;
        case Heap::alignedWorker: scalable_aligned_free(data_); break;
        }
    }

    T* get() const { return data_; }
    T& operator[](size_t i) const { return data_[i]; }
    size_t size() const { return count_; }
    T* begin() const { return data_; }
    T* end() const { return data_ + count_; }

private:
    T* data_ = nullptr;
    size_t count_ = 0;
    Heap heap_ = Heap::host;
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
