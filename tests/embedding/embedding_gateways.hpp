// The embedding gateways the tests call, and the inputs they share.
#pragma once

#include <span>
#include <vector>

#include "support/gateways.hpp"
#include "gateway_declarations.hpp"

namespace zvtest {

// An embedding with its affinity list, as host arrays of class T (Y, box,
// values) and double (neighbours, counts, starts).
template <class T>
struct TsneInputs {
    zvhost::Owned theta, y, center, halfWidth, neighbours, counts, values, starts;

    TsneInputs(double thetaValue, size_t d, size_t n, const std::vector<T>& yv, const std::vector<T>& c,
               const std::vector<T>& w, const std::vector<double>& nb, const std::vector<double>& cnt,
               const std::vector<T>& p, const std::vector<double>& st)
        : theta(zvhost::scalar(thetaValue)),
          y(zvhost::matrixOf<T>(d, n, std::span<const T>(yv))),
          center(zvhost::matrixOf<T>(c.size(), 1, std::span<const T>(c))),
          halfWidth(zvhost::matrixOf<T>(w.size(), 1, std::span<const T>(w))),
          neighbours(zvhost::matrixOf<double>(1, nb.size(), std::span<const double>(nb))),
          counts(zvhost::matrixOf<double>(1, cnt.size(), std::span<const double>(cnt))),
          values(zvhost::matrixOf<T>(1, p.size(), std::span<const T>(p))),
          starts(zvhost::matrixOf<double>(1, st.size(), std::span<const double>(st))) {}

    std::vector<const ndArray*> gradientArgs() const {
        return {theta.get(), y.get(), center.get(), halfWidth.get(), neighbours.get(), counts.get(), values.get(),
                starts.get()};
    }
};

// Attractive, repulsive and Z of one gradient call.
template <class T>
struct TsneGradient {
    std::vector<T> attractive, repulsive;
    T Z;
};

template <class T>
TsneGradient<T> tsneGradient(const TsneInputs<T>& in) {
    auto out = zvhost::call(tsnebhbif, 3, in.gradientArgs());
    return {zvhost::valuesOf<T>(out[0].get()), zvhost::valuesOf<T>(out[1].get()),
            zvhost::valuesOf<T>(out[2].get())[0]};
}

}  // namespace zvtest
