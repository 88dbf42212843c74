// Owning array handles and the host's fixed count errors (namespace matrix).
#pragma once

#include <memory>
#include <span>
#include <string>

#include "host/except.hpp"
#include "host/ndarray.hpp"

struct ndDestroy_deleter {
    void operator()(ndArray* a) const noexcept {
        if (a) ndDestroyArray(a);
    }
};

namespace matrix {

using unique_nd_ptr = std::unique_ptr<ndArray, ndDestroy_deleter>;

// The whole text of a char array as a narrow string.
ZV_HOST_API std::string get_string(const ndArray* a);

// Hands an owned array over for a slot of `outputs`; cannot fail.
inline ndArray* to_host(unique_nd_ptr p) noexcept { return p.release(); }

namespace detail {
ZV_HOST_API unique_nd_ptr do_create_numeric(std::span<const size_t> dims, ndClassID cls,
                                            ndComplexity c);
ZV_HOST_API unique_nd_ptr do_create_cell(std::span<const size_t> dims);
// A new array with the dimensions of `a` that shares its element storage.
ZV_HOST_API unique_nd_ptr do_shared_copy(const ndArray* a);

[[noreturn]] ZV_HOST_API void error_mininputs();
[[noreturn]] ZV_HOST_API void error_maxinputs();
[[noreturn]] ZV_HOST_API void error_maxoutputs();
}  // namespace detail

}  // namespace matrix
