// The space-partitioning tree of the Barnes-Hut gradient: 2^d children per
// inner node, leaves of at most one distinct point, running centres of mass,
// and the force walk that reads it.
#pragma once

#include <cmath>
#include <cstddef>
#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

#include <tbb/scalable_allocator.h>

#include "frame/message_ids.hpp"
#include "host/host.hpp"

namespace zv::embedding {

// Beyond this many dimensions the 2^d children of a node cannot be counted in
// 32 bits; a subdivision there fails as an allocation would.
constexpr size_t kMaxTreeDimensions = 30;

// Whether a node at squared distance D with largest half-width w counts
// as one body: theta > w / sqrt(D), exactly as rounded. The square root
// and the division are slow and feed a branch, so squares decide first
// where they decide beyond doubt: their rounding is a few units in the
// last place and the margin is far wider. Outside the normal range, and
// near the boundary, the quotient decides.
template <class T>
class OpeningTest {
public:
    explicit OpeningTest(T theta)
        : theta_(theta), thetaSq_(theta * theta),
          squaresDecide_(theta > T(0) && thetaSq_ >= kLow && thetaSq_ <= kHigh) {}
    bool isBody(T w, T D) const {
        if (squaresDecide_) {
            const T lhs = thetaSq_ * D, wSq = w * w;
            if (w > T(0) && lhs >= kLow && lhs <= kHigh && wSq >= kLow && wSq <= kHigh) {
                if (lhs > wSq * (T(1) + kMargin)) return true;
                if (lhs < wSq * (T(1) - kMargin)) return false;
            }
        }
        return theta_ > w / std::sqrt(D);
    }

private:
    static constexpr T kMargin = sizeof(T) == sizeof(double) ? T(1e-12) : T(1e-5);
    static constexpr T kLow = std::numeric_limits<T>::min() * T(1 << 20);
    static constexpr T kHigh = std::numeric_limits<T>::max() / T(1 << 20);
    T theta_, thetaSq_;
    bool squaresDecide_;
};

// Nodes live in one pool, children of a node side by side, so that the tree
// is freed at once. A node is one record: its counts, then its centre of mass
// and largest half-width, so that a walk reads one place per node. Boxes are
// not stored: a child's box follows from its parent's on the way down. The
// results are those of a tree of separately allocated nodes with stored
// boxes: insertion and walk visit nodes in the same order and do the same
// arithmetic.
template <class T>
class BHTree {
public:
    struct Node {
        int32_t cumSize = 0;      // points that passed, duplicates included
        int32_t size = 0;         // 0 or 1 while a leaf, 0 after subdivision
        int32_t index = -1;       // the point held when size is 1
        uint32_t firstChild = 0;  // 0 while a leaf: the root is nobody's child
    };

    // The root box; a box with a non-finite centre or half-width takes no
    // point, since its children would never separate two points.
    BHTree(const T* data, size_t d, const T* center, const T* width, size_t reserveNodes = 1)
        : data_(data), d_(d), stride_(recordValues(d)),
          numChildren_(d <= kMaxTreeDimensions ? size_t(1) << d : 0), boxes_(64 * d) {
        try {
            pool_.reserve(reserveNodes * stride_);
            appendNodes(1);
        } catch (const std::bad_alloc&) {
            throw ::stats::tsnebif::MemoryLessThanXBytes(long(d * sizeof(T)));
        }
        bool finite = true;
        for (size_t k = 0; k < d; ++k) {
            boxes_[k] = center[k];
            boxes_[d + k] = width[k];
            finite = finite && std::isfinite(center[k]) && std::isfinite(width[k]);
        }
        acceptsPoints_ = finite;
        maxWidth(0) = largestWidth(boxes_.data() + d);
    }

    // Inserts point i from the root; false if no node took it. A point with a
    // non-finite coordinate is refused like one outside the box: a NaN passes
    // every box test and two of them would subdivide without end.
    template <size_t DIMS = 0>
    bool insert(int32_t i) {
        const T* y = data_ + size_t(i) * d_;
        if (!acceptsPoints_) return false;
        for (size_t k = 0; k < d_; ++k)
            if (!std::isfinite(y[k])) return false;
        return insertAt<DIMS>(0, 0, i, y);
    }

    // Adds the repulsive force on point i into f and its similarity mass into
    // q. DIMS > 0 fixes the dimension at compile time; t holds d values.
    template <size_t DIMS>
    void walk(int32_t i, T theta, T* f, T& q, T* t) const {
        walkAt<DIMS>(0, i, data_ + size_t(i) * d_, OpeningTest<T>(theta), f, q, t);
    }

    // The points held by leaves, in depth-first order of the tree.
    void appendLeafPoints(std::vector<int32_t>& out) const { appendLeafPointsAt(0, out); }

    size_t numNodes() const { return pool_.size() / stride_; }
    const Node& node(size_t n) const { return *reinterpret_cast<const Node*>(record(n)); }
    const T* centerOfMass(size_t n) const { return record(n) + kHeaderValues; }
    T largestHalfWidth(size_t n) const { return record(n)[kHeaderValues + d_]; }
    size_t numChildren() const { return numChildren_; }

private:
    // A record is the Node header, then d values of the centre of mass and
    // the largest half-width, in units of T.
    static constexpr size_t kHeaderValues = (sizeof(Node) + sizeof(T) - 1) / sizeof(T);
    static size_t recordValues(size_t d) { return kHeaderValues + d + 1; }

    T* record(size_t n) { return pool_.data() + n * stride_; }
    const T* record(size_t n) const { return pool_.data() + n * stride_; }
    Node& nodeAt(size_t n) { return *reinterpret_cast<Node*>(record(n)); }
    T& maxWidth(size_t n) { return record(n)[kHeaderValues + d_]; }

    void appendNodes(size_t count) {
        const size_t first = pool_.size() / stride_;
        pool_.resize(pool_.size() + count * stride_, T(0));
        for (size_t n = first; n < first + count; ++n) new (record(n)) Node();
    }

    T largestWidth(const T* width) const {
        T w = 0;
        for (size_t k = 0; k < d_; ++k)
            if (width[k] > w) w = width[k];
        return w;
    }

    // The box (centre, then half-width) of child `c` of the box `parent`.
    template <size_t DIMS>
    void childBox(const T* parent, size_t c, T* box) const {
        const size_t d = DIMS > 0 ? DIMS : d_;
        const T* pc = parent;
        const T* pw = parent + d;
        for (size_t k = 0; k < d; ++k) {
            box[d + k] = pw[k] * T(0.5);
            box[k] = ((c >> k) & 1) == 0 ? pc[k] + pw[k] * T(0.5) : pc[k] - pw[k] * T(0.5);
        }
    }

    // The box is closed: a point on a face is inside.
    template <size_t DIMS>
    bool contains(const T* box, const T* y) const {
        const size_t d = DIMS > 0 ? DIMS : d_;
        const T* c = box;
        const T* w = box + d;
        for (size_t k = 0; k < d; ++k)
            if (y[k] < c[k] - w[k] || c[k] + w[k] < y[k]) return false;
        return true;
    }

    // Boxes on the way down, one per depth (centre, then half-width); a
    // caller finds its own again by depth, since a deeper level may grow them.
    T* boxAt(size_t depth) { return boxes_.data() + depth * 2 * d_; }

    template <size_t DIMS>
    bool insertAt(size_t n, size_t depth, int32_t i, const T* y) {
        const size_t d = DIMS > 0 ? DIMS : d_;
        if (!contains<DIMS>(boxAt(depth), y)) return false;
        Node& nd = nodeAt(n);
        nd.cumSize += 1;
        const T m = T(1) / T(nd.cumSize);
        T* com = record(n) + kHeaderValues;
        for (size_t k = 0; k < d; ++k) com[k] = y[k] * m + com[k] * (T(1) - m);
        if (nd.firstChild == 0) {
            if (nd.size == 0) {
                nd.index = i;
                nd.size = 1;
                return true;
            }
            // A duplicate is only counted; it gets no node of its own.
            const T* held = data_ + size_t(nd.index) * d;
            bool same = true;
            for (size_t k = 0; k < d && same; ++k) same = held[k] == y[k];
            if (same) return true;
            subdivide<DIMS>(n, depth);
        }
        return offerToChildren<DIMS>(n, depth, i, y);
    }

    template <size_t DIMS>
    bool offerToChildren(size_t n, size_t depth, int32_t i, const T* y) {
        if (boxes_.size() < (depth + 2) * 2 * d_) boxes_.resize((depth + 2) * 2 * d_ * 2);
        const size_t first = node(n).firstChild;
        for (size_t c = 0; c < numChildren_; ++c) {
            childBox<DIMS>(boxAt(depth), c, boxAt(depth + 1));
            if (insertAt<DIMS>(first + c, depth + 1, i, y)) return true;
        }
        return false;
    }

    template <size_t DIMS>
    void subdivide(size_t n, size_t depth) {
        if (numChildren_ == 0) throw bedrock::core::except::bad_alloc();
        const size_t first = numNodes();
        try {
            appendNodes(numChildren_);
        } catch (const std::bad_alloc&) {
            throw bedrock::core::except::bad_alloc();
        }
        const T* pw = boxAt(depth) + d_;
        T childWidth = 0;  // all children share their half-widths
        for (size_t k = 0; k < d_; ++k)
            if (pw[k] * T(0.5) > childWidth) childWidth = pw[k] * T(0.5);
        for (size_t c = 0; c < numChildren_; ++c) maxWidth(first + c) = childWidth;
        Node& nd = nodeAt(n);
        nd.firstChild = uint32_t(first);
        // The held point already counts here; it moves down without its duplicates.
        const int32_t held = nd.index;
        nd.index = -1;
        nd.size = 0;
        offerToChildren<DIMS>(n, depth, held, data_ + size_t(held) * d_);
    }

    template <size_t DIMS>
    void walkAt(size_t n, int32_t i, const T* y, const OpeningTest<T>& opening, T* f, T& q, T* t) const {
        const T* rec = record(n);
        const Node& nd = *reinterpret_cast<const Node*>(rec);
        if (nd.cumSize <= 0) return;
        const bool leaf = nd.firstChild == 0;
        if (leaf && nd.index == i) return;  // itself, and with it its duplicates here
        const size_t d = DIMS > 0 ? DIMS : d_;
        const T* com = rec + kHeaderValues;
        T dist2 = 0;
        for (size_t k = 0; k < d; ++k) {
            t[k] = y[k] - com[k];
            dist2 += t[k] * t[k];
        }
        // At distance 0 the quotient is infinite or NaN and the node opens.
        if (leaf || opening.isBody(com[d], dist2)) {
            const T u = T(1) / (dist2 + T(1));
            const T m = T(nd.cumSize) * u;
            q += m;
            const T um = u * m;
            for (size_t k = 0; k < d; ++k) f[k] += t[k] * um;
            return;
        }
        // Empty children and the leaf of point i itself add nothing; they
        // are passed over here rather than entered.
        for (size_t c = 0; c < numChildren_; ++c) {
            const size_t child = nd.firstChild + c;
            const Node& cn = node(child);
            if (cn.cumSize > 0 && !(cn.firstChild == 0 && cn.index == i)) walkAt<DIMS>(child, i, y, opening, f, q, t);
        }
    }

    void appendLeafPointsAt(size_t n, std::vector<int32_t>& out) const {
        const Node& nd = node(n);
        if (nd.firstChild == 0) {
            if (nd.size == 1) out.push_back(nd.index);
            return;
        }
        for (size_t c = 0; c < numChildren_; ++c) appendLeafPointsAt(nd.firstChild + c, out);
    }

    const T* data_;
    size_t d_;
    size_t stride_;  // values of T per record
    size_t numChildren_;
    bool acceptsPoints_ = false;
    // From the scalable allocator, which keeps large blocks for the next
    // call instead of handing fresh zeroed pages each time.
    std::vector<T, tbb::scalable_allocator<T>> pool_;
    std::vector<T> boxes_;  // the root's box, then those below it on the way down
};

}  // namespace zv::embedding
