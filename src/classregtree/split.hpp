// The routing tests of a fitted tree: a numeric cut point, a pair of bins,
// or two sets of categories, each telling whether a predictor value goes
// left, right, or cannot be placed. Tree lookup holds them per node.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "host/host.hpp"

namespace zv::classregtree {

// The arithmetic of a split on predictors of type T: binned codes (int) are
// compared in double so that a flip of any value stays defined.
template <class T>
using SplitArithmetic = std::conditional_t<std::is_integral_v<T>, double, T>;

template <class T>
bool isMissing(T x) {
    if constexpr (std::is_floating_point_v<T>) return std::isnan(x);
    else return false;
}

// Where a split sends one value.
enum class Side : uint8_t { undecided, left, right };

template <class T>
class Split {
public:
    virtual ~Split() = default;
    virtual bool goesRight(T x) const = 0;
    virtual bool goesLeft(T x) const = 0;
    // The split cannot place x.
    virtual bool isUndecided(T x) const = 0;
    virtual void print() const = 0;

    // Routes rows[0..count) by their values in `column`: placed rows go to
    // left[numLeft++] or downwards to rightEnd[-1 - numRight++], the others
    // move, in order, to the front of rows; returns how many stay. One
    // virtual call per node and split, not per row.
    virtual size_t route(const T* column, uint32_t* rows, size_t count, uint32_t* left, size_t& numLeft,
                         uint32_t* rightEnd, size_t& numRight) const = 0;
    virtual size_t route(const T* column, uint64_t* rows, size_t count, uint64_t* left, size_t& numLeft,
                         uint64_t* rightEnd, size_t& numRight) const = 0;

    Side side(T x) const {
        if (isUndecided(x)) return Side::undecided;
        return goesLeft(x) ? Side::left : Side::right;
    }
};

// The row loop of every split, over the derived class's inline test `sideOf`.
template <class Derived, class T>
class RoutingSplit : public Split<T> {
public:
    size_t route(const T* column, uint32_t* rows, size_t count, uint32_t* left, size_t& numLeft, uint32_t* rightEnd,
                 size_t& numRight) const final {
        return routeRows(column, rows, count, left, numLeft, rightEnd, numRight);
    }
    size_t route(const T* column, uint64_t* rows, size_t count, uint64_t* left, size_t& numLeft, uint64_t* rightEnd,
                 size_t& numRight) const final {
        return routeRows(column, rows, count, left, numLeft, rightEnd, numRight);
    }

private:
    template <class Row>
    size_t routeRows(const T* column, Row* rows, size_t count, Row* left, size_t& numLeft, Row* rightEnd,
                     size_t& numRight) const {
        const Derived& self = static_cast<const Derived&>(*this);
        size_t kept = 0, l = numLeft, r = numRight;
        // Branch-free: each row is stored at all three places and counted at
        // one, so that a random left-right pattern costs no mispredictions and
        // the loads of many rows are in flight at once. Neither store can reach
        // a row already placed (left[l] and rightEnd[-1 - r] meet only at the
        // one free slot), and rows[kept] is at or behind the row being read.
        for (size_t k = 0; k < count; ++k) {
            const Row row = rows[k];
            const Side side = self.sideOf(column[row]);
            left[l] = row;
            rightEnd[-1 - ptrdiff_t(r)] = row;
            rows[kept] = row;
            l += side == Side::left;
            r += side == Side::right;
            kept += side == Side::undecided;
        }
        numLeft = l;
        numRight = r;
        return kept;
    }
};

// x < cutPoint goes left when flip is +1; flip -1 exchanges the sides. A value
// equal to the cut point goes right either way.
template <class T>
class NumericSplit final : public RoutingSplit<NumericSplit<T>, T> {
    using A = SplitArithmetic<T>;

public:
    NumericSplit(T cutPoint, A flip) : cutPoint_(cutPoint), flip_(flip), scaledCut_(A(cutPoint) * flip) {}

    bool goesLeft(T x) const override { return scaledCut_ > flip_ * A(x); }
    bool goesRight(T x) const override { return flip_ * A(x) > scaledCut_; }
    bool isUndecided(T x) const override { return isMissing(x); }
    void print() const override { hostPrintf("CutPoint=%g   Flip=%g", double(cutPoint_), double(flip_)); }

    Side sideOf(T x) const {
        if (isMissing(x)) return Side::undecided;
        return scaledCut_ > flip_ * A(x) ? Side::left : Side::right;
    }

private:
    T cutPoint_;
    A flip_;
    A scaledCut_;
};

// Bins up to leftBin go left, bins from rightBin go right (flip +1); a value
// between them, in a bin the tree never saw, cannot be placed.
template <class T>
class BinnedSplit final : public RoutingSplit<BinnedSplit<T>, T> {
public:
    BinnedSplit(int64_t leftBin, int64_t rightBin, double flip) : leftBin_(leftBin), rightBin_(rightBin), flip_(flip) {}

    bool goesLeft(T x) const override { return flip_ < 0 ? atLeast(x, rightBin_) : atMost(x, leftBin_); }
    bool goesRight(T x) const override { return flip_ < 0 ? atMost(x, leftBin_) : atLeast(x, rightBin_); }
    bool isUndecided(T x) const override { return isMissing(x) || (!goesLeft(x) && !goesRight(x)); }
    void print() const override {
        hostPrintf("CutBins:  Left=%i   Right=%i    Flip=%g\n", int(leftBin_), int(rightBin_), flip_);
    }

    Side sideOf(T x) const {
        if (isMissing(x)) return Side::undecided;
        const bool low = atMost(x, leftBin_), high = atLeast(x, rightBin_);
        if (flip_ < 0) return high ? Side::left : low ? Side::right : Side::undecided;
        return low ? Side::left : high ? Side::right : Side::undecided;
    }

private:
    static bool atMost(T x, int64_t bin) {
        if constexpr (std::is_integral_v<T>) return int64_t(x) <= bin;
        else return double(x) <= double(bin);
    }
    static bool atLeast(T x, int64_t bin) {
        if constexpr (std::is_integral_v<T>) return int64_t(x) >= bin;
        else return double(x) >= double(bin);
    }

    int64_t leftBin_;
    int64_t rightBin_;
    double flip_;
};

// Categories found in the left set go left, those in the right set go right;
// a category in neither cannot be placed. The sets are borrowed, ascending.
template <class T>
class NominalSplit final : public RoutingSplit<NominalSplit<T>, T> {
public:
    NominalSplit(size_t numLeft, const T* left, size_t numRight, const T* right)
        : numLeft_(numLeft), left_(left), numRight_(numRight), right_(right) {}

    bool goesLeft(T x) const override { return std::binary_search(left_, left_ + numLeft_, x); }
    bool goesRight(T x) const override { return std::binary_search(right_, right_ + numRight_, x); }
    bool isUndecided(T x) const override { return isMissing(x) || (!goesLeft(x) && !goesRight(x)); }
    void print() const override {
        hostPrintf("Left:");
        for (size_t k = 0; k < numLeft_; ++k) hostPrintf(" %g", double(left_[k]));
        hostPrintf("   Right:");
        for (size_t k = 0; k < numRight_; ++k) hostPrintf(" %g", double(right_[k]));
    }

    Side sideOf(T x) const {
        if (isMissing(x)) return Side::undecided;
        if (goesLeft(x)) return Side::left;
        return goesRight(x) ? Side::right : Side::undecided;
    }

private:
    size_t numLeft_;
    const T* left_;
    size_t numRight_;
    const T* right_;
};

}  // namespace zv::classregtree
