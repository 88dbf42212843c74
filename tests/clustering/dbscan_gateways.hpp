// The clustering gateways of the dbscan and silhouette suites, and a host
// "pdist2" for the host route: distances from each row of its first input to
// the single row of its second, computed by pdist2bif.
#pragma once

#include <vector>

#include "support/gateways.hpp"
#include "gateway_declarations.hpp"

namespace zvtest {

// The transpose of an m-by-n double or single array.
inline zvhost::Owned transposed(const ndArray* a) {
    const size_t m = ndGetM(a), n = ndGetN(a);
    const size_t bytes = ndGetClassID(a) == ndSINGLE_CLASS ? 4 : 8;
    zvhost::Owned t(ndCreateNumericMatrix(n, m, ndGetClassID(a), ndREAL));
    const char* from = static_cast<const char*>(ndGetData(a));
    char* to = static_cast<char*>(ndGetData(t.get()));
    for (size_t i = 0; i < m; ++i)
        for (size_t j = 0; j < n; ++j) std::memcpy(to + (i * n + j) * bytes, from + (j * m + i) * bytes, bytes);
    return t;
}

// Registers the host's "pdist2" for the life of the object.
class HostPdist2 {
public:
    HostPdist2() {
        zvhost::registerFunction("pdist2", [](int, ndArray** outputs, int, const ndArray** inputs) {
            zvhost::Owned x = transposed(inputs[0]), y = transposed(inputs[1]);
            zvhost::Owned none = zvhost::matrixOf<double>(0, 0);
            const ndArray* in[7] = {x.get(), y.get(), inputs[2], none.get(), none.get(), none.get(), none.get()};
            pdist2bif(1, outputs, 7, in);
        });
    }
    ~HostPdist2() { zvhost::unregisterFunction("pdist2"); }
};

}  // namespace zvtest
