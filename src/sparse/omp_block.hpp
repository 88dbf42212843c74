// Owning scratch arrays of the matching-pursuit solvers: every block can fail,
// and a failure is reported as the family's own error with the byte count.
#pragma once

#include <climits>
#include <cstddef>
#include <new>
#include <utility>

#include "frame/message_ids.hpp"
#include "host/host.hpp"

namespace featlearn::omp {

// Host scratch belongs to the calling thread; parallel bodies take the
// thread-safe variant, which reports exhaustion by a null result.
enum class Heap { host, worker };

// The bytes of n values of T, saturated so that an impossible size still
// reaches the error with a meaningful (if capped) count.
template <class T>
size_t blockBytes(size_t n) {
    return n > size_t(LONG_MAX) / sizeof(T) ? size_t(LONG_MAX) : n * sizeof(T);
}

[[noreturn]] inline void raiseOutOfMemory(size_t bytes) {
    ndErrMsgId(stats::classreg::learning::omputils::omp::UnableToAllocateMemory(
        long(bytes < size_t(LONG_MAX) ? bytes : size_t(LONG_MAX))));
}

template <class T>
class Block {
public:
    Block() = default;
    Block(size_t n, Heap heap) : heap_(heap) {
        const size_t bytes = blockBytes<T>(n);
        if (n > size_t(LONG_MAX) / sizeof(T)) raiseOutOfMemory(bytes);
        void* p = nullptr;
        if (heap == Heap::host) {
            try {
                p = ndMalloc(bytes);
            } catch (const std::bad_alloc&) {
                raiseOutOfMemory(bytes);
            }
        } else {
            p = ndMallocEx(bytes);
        }
        if (!p) raiseOutOfMemory(bytes);
        data_ = static_cast<T*>(p);
    }
    Block(Block&& other) noexcept : data_(std::exchange(other.data_, nullptr)), heap_(other.heap_) {}
    Block& operator=(Block&& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(heap_, other.heap_);
        return *this;
    }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    ~Block() {
        if (!data_) return;
        if (heap_ == Heap::host) ndFree(data_);
        else ndFreeEx(data_);
    }

    T* get() const { return data_; }

private:
    T* data_ = nullptr;
    Heap heap_ = Heap::host;
};

}  // namespace featlearn::omp
