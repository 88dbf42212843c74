// The soft-threshold step that every lasso sweep shares: the coordinate value
// is shrunk toward zero, and a predictor that lands on zero leaves the active set.
#pragma once

namespace zv::sparse {

// A value inside [-threshold, threshold], and a NaN, fail both comparisons:
// the coefficient becomes 0 and the predictor is dropped until the host
// re-admits it.
template <class T>
inline void softThreshold(T g, T threshold, T shrink, T& coefficient, bool& active) {
    if (g > threshold) {
        coefficient = (g - threshold) / shrink;
    } else if (g < -threshold) {
        coefficient = (g + threshold) / shrink;
    } else {
        coefficient = T(0);
        active = false;
    }
}

}  // namespace zv::sparse
