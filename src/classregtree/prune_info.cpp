// Weakest-link pruning in one bottom-up pass and then, level by level, only
// along the paths above what was pruned: a branch's risk and leaf count are
// recomputed from its children exactly as a full pass would, so the sums and
// their association order are those of a pass over the whole tree.
#include "classregtree/prune_info.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <span>

#include "frame/constants.hpp"
#include "frame/scratch.hpp"
#include "host/console.hpp"

namespace zv::classregtree {

namespace {

constexpr size_t kNone = std::numeric_limits<size_t>::max();

// The 0-based node a 1-based child entry names, or kNone.
size_t childIndex(double entry, size_t n) {
    return entry >= 1 && entry <= double(n) ? size_t(entry) - 1 : kNone;
}

// Branches in a min-heap by alpha (then node index), each entry holding its
// alpha so that sifting stays in the heap's own memory, with each node's
// place in the heap so that an alpha can change or leave in log time.
template <class T>
class AlphaHeap {
public:
    explicit AlphaHeap(size_t n) : heap_(n), place_(n, kNone) {}

    bool empty() const { return size_ == 0; }
    size_t top() const { return heap_[0].node; }
    T topAlpha() const { return heap_[0].alpha; }
    void set(size_t node, T alpha) {
        size_t k = place_[node];
        if (k == kNone) k = size_++;
        siftDown(siftUp(k, {alpha, node}));
    }
    void remove(size_t node) {
        const size_t k = place_[node];
        if (k == kNone) return;
        place_[node] = kNone;
        if (k == --size_) return;
        siftDown(siftUp(k, heap_[size_]));
    }

private:
    struct Entry {
        T alpha;
        size_t node;
        bool operator<(const Entry& o) const { return alpha < o.alpha || (alpha == o.alpha && node < o.node); }
    };
    void put(size_t k, Entry e) {
        heap_[k] = e;
        place_[e.node] = k;
    }
    // Moves e up from the empty slot k; returns where it stands.
    size_t siftUp(size_t k, Entry e) {
        for (; k > 0 && e < heap_[(k - 1) / 2]; k = (k - 1) / 2) put(k, heap_[(k - 1) / 2]);
        put(k, e);
        return k;
    }
    void siftDown(size_t k) {
        const Entry e = heap_[k];
        for (size_t child; (child = 2 * k + 1) < size_; k = child) {
            if (child + 1 < size_ && heap_[child + 1] < heap_[child]) ++child;
            if (!(heap_[child] < e)) break;
            put(k, heap_[child]);
        }
        put(k, e);
    }

    Scratch<Entry> heap_;
    Scratch<size_t> place_;
    size_t size_ = 0;
};

template <class T>
class Pruner {
public:
    Pruner(const PruneRecord<T>& record, bool verbose, double* pruneLevel)
        : n_(record.n), risk_(record.risk), verbose_(verbose), pruneLevel_(pruneLevel), left_(n_, kNone),
          right_(n_, kNone), parent_(n_, kNone), walkStart_(n_), isLeaf_(n_, 1), odd_(n_, 0), above_(n_, 0), lostRisk_(n_),
          riskBranch_(n_), alpha_(n_), leafCount_(n_, 1), list_(n_), ancestors_(n_), heap_(n_),
          tol_(T(100) * T(constants::eps)) {
        buildForest(record.children);
        lostRisks(record);
        std::fill(pruneLevel_, pruneLevel_ + n_, 0.0);
        for (size_t i = 0; i < n_; ++i) riskBranch_[i] = risk_[i];
        // Children first: the reverse of the breadth-first order from the roots.
        for (size_t k = reached_; k-- > 0;)
            if (!isLeaf_[list_[k]]) refresh(list_[k]);
    }

    size_t run(T* alphas) {
        size_t levels = 0;
        for (size_t level = 0; branches_ > 0; ++level) {
            if (verbose_) printNodes();
            const T minAlpha = level == 0 || oddCount_ > 0 ? scanWeakest(level) : popWeakest();
            alphas[levels++] = minAlpha;
            const size_t count = withDescendants();
            if (verbose_) {
                hostPrintf(" ===> Prune level %i ===\n", int(level));
                hostPrintf("  nbranches=%i   minAlpha=%g   nToPrune=%i\n", int(branches_), double(minAlpha),
                           int(count));
            }
            prune(count, level);
        }
        // A tree that is one leaf has the one level of alpha 0.
        if (levels == 0 && n_ > 0) alphas[levels++] = 0;
        return levels;
    }

private:
    // Claims children in node order, then walks breadth-first from the
    // roots; list_ holds that order.
    void buildForest(const double* children) {
        for (size_t i = 0; i < n_; ++i) {
            const size_t l = childIndex(children[2 * i], n_), r = childIndex(children[2 * i + 1], n_);
            if (l == kNone || r == kNone || l == r || l == i || r == i) continue;
            if (parent_[l] != kNone || parent_[r] != kNone) continue;
            parent_[l] = parent_[r] = i;
            left_[i] = l;
            right_[i] = r;
        }
        for (size_t i = 0; i < n_; ++i)
            if (parent_[i] == kNone) list_[reached_++] = i;
        Scratch<uint8_t> reached(n_, 0);
        for (size_t k = 0; k < reached_; ++k) {
            const size_t i = list_[k];
            reached[i] = 1;
            if (left_[i] == kNone) continue;
            list_[reached_++] = left_[i];
            list_[reached_++] = right_[i];
        }
        for (size_t i = 0; i < n_; ++i) {
            if (!reached[i]) left_[i] = right_[i] = parent_[i] = kNone;  // on or below a cycle
            else if (left_[i] != kNone) isLeaf_[i] = 0, ++branches_;
        }
    }

    void lostRisks(const PruneRecord<T>& record) {
        const T* prob = record.nodeProb;
        for (size_t i = 0; i < n_; ++i) {
            T lostShare = 0;
            if (record.unrouted[i] && left_[i] != kNone && prob[i] > 0) {
                const T share = T(1) - (prob[left_[i]] + prob[right_[i]]) / prob[i];
                lostShare = share > 0 ? share : T(0);
            }
            lostRisk_[i] = risk_[i] * lostShare;
        }
    }

    static bool regular(T alpha) { return std::isfinite(alpha) && alpha >= 0; }
    // Alphas within the tolerance of the level's minimum go together.
    bool keptOut(T alpha, T minAlpha) const { return alpha - minAlpha > std::abs(alpha + minAlpha) * tol_; }

    // A branch's subtree risk, leaf count and alpha from its children's.
    void refresh(size_t i) {
        const size_t l = left_[i], r = right_[i];
        riskBranch_[i] = riskBranch_[l] + lostRisk_[i] + riskBranch_[r];
        leafCount_[i] = leafCount_[l] + leafCount_[r];
        const T d = risk_[i] - riskBranch_[i];
        alpha_[i] = d <= std::abs(risk_[i] + riskBranch_[i]) * tol_ ? T(0) : d / T(leafCount_[i] - 1);
        // NaN, infinite or negative alphas (from non-finite risks) wait
        // outside the heap, and a level that meets one scans all branches.
        const bool odd = !regular(alpha_[i]);
        oddCount_ = oddCount_ + size_t(odd) - size_t(odd_[i]);
        odd_[i] = odd;
        if (odd) heap_.remove(i);
        else heap_.set(i, alpha_[i]);
    }

    // Level 0 (minimum 0) or a level with an odd alpha: every branch is
    // tested; the minimum ignores NaN.
    T scanWeakest(size_t level) {
        T minAlpha = 0;
        if (level > 0) {
            minAlpha = std::numeric_limits<T>::infinity();
            for (size_t i = 0; i < n_; ++i)
                if (!isLeaf_[i] && alpha_[i] < minAlpha) minAlpha = alpha_[i];
        }
        listed_ = 0;
        for (size_t i = 0; i < n_; ++i)
            if (!isLeaf_[i] && !keptOut(alpha_[i], minAlpha)) list_[listed_++] = i;
        return minAlpha;
    }

    // All alphas regular: the weakest come off the heap in order, and the
    // first one kept out ends the run (for finite a >= m >= 0, a - m is
    // exact near m and grows faster than the tolerance term).
    T popWeakest() {
        const T minAlpha = heap_.topAlpha();
        listed_ = 0;
        while (!heap_.empty() && !keptOut(heap_.topAlpha(), minAlpha)) {
            const size_t i = heap_.top();
            heap_.remove(i);
            list_[listed_++] = i;
        }
        return minAlpha;
    }

    // Adds the branches below the listed ones, each once; marks them all as
    // leaves and returns how many there are.
    size_t withDescendants() {
        for (size_t k = 0; k < listed_; ++k) isLeaf_[list_[k]] = 1;
        for (size_t k = 0; k < listed_; ++k) {
            const size_t i = list_[k];
            for (size_t c : {left_[i], right_[i]})
                if (!isLeaf_[c]) isLeaf_[c] = 1, list_[listed_++] = c;
        }
        return listed_;
    }

    void prune(size_t count, size_t level) {
        for (size_t k = 0; k < count; ++k) {
            const size_t i = list_[k];
            pruneLevel_[i] = double(level);
            riskBranch_[i] = risk_[i];
            leafCount_[i] = 1;
            heap_.remove(i);
            oddCount_ -= size_t(odd_[i]);
            odd_[i] = 0;
        }
        branches_ -= count;
        // The branches above the pruned ones, children before parents: a walk
        // up stops below the first branch an earlier walk met, so walks taken
        // last to first, each bottom up, find their children done.
        size_t above = 0, walks = 0;
        for (size_t k = 0; k < count; ++k) {
            const size_t start = above;
            for (size_t q = parent_[list_[k]]; q != kNone && !isLeaf_[q] && !above_[q]; q = parent_[q]) {
                above_[q] = 1;
                ancestors_[above++] = q;
            }
            if (above > start) walkStart_[walks++] = start;
        }
        for (size_t w = walks; w-- > 0;) {
            const size_t end = w + 1 < walks ? walkStart_[w + 1] : above;
            for (size_t k = walkStart_[w]; k < end; ++k) {
                above_[ancestors_[k]] = 0;
                refresh(ancestors_[k]);
            }
        }
    }

    void printNodes() const {
        for (size_t i = 0; i < n_; ++i)
            hostPrintf(" node=%i  leafcount=%i   isleaf=%i  risk=%g  riskbranch=%g\n", int(i), int(leafCount_[i]),
                       int(isLeaf_[i]), double(risk_[i]), double(riskBranch_[i]));
    }

    size_t n_;
    const T* risk_;
    bool verbose_;
    double* pruneLevel_;
    Scratch<size_t> left_, right_, parent_, walkStart_;
    Scratch<uint8_t> isLeaf_, odd_, above_;
    Scratch<T> lostRisk_, riskBranch_, alpha_;
    Scratch<uint64_t> leafCount_;
    Scratch<size_t> list_, ancestors_;
    AlphaHeap<T> heap_;
    T tol_;
    size_t reached_ = 0, listed_ = 0, branches_ = 0, oddCount_ = 0;
};

}  // namespace

template <class T>
void criterionRisks(const ClassificationSplitCriterion<T>& criterion, const T* classProb, size_t K, size_t n,
                    const T* nodeProb, T* correctedProb, T* risk) {
    Scratch<T> v(K);
    const std::span<T> p(v.get(), K);
    for (size_t i = 0; i < n; ++i) {
        for (size_t k = 0; k < K; ++k) p[k] = nodeProb[i] * classProb[k + i * K];
        criterion.correct(p, p);
        correctedProb[i] = classSum<T>(p);
        risk[i] = criterion.parent(p);
    }
}

template <class T>
size_t computePruneLevels(const PruneRecord<T>& record, bool verbose, double* pruneLevel, T* alphas) {
    return Pruner<T>(record, verbose, pruneLevel).run(alphas);
}

template void criterionRisks<double>(const ClassificationSplitCriterion<double>&, const double*, size_t, size_t,
                                     const double*, double*, double*);
template void criterionRisks<float>(const ClassificationSplitCriterion<float>&, const float*, size_t, size_t,
                                    const float*, float*, float*);
template size_t computePruneLevels<double>(const PruneRecord<double>&, bool, double*, double*);
template size_t computePruneLevels<float>(const PruneRecord<float>&, bool, double*, float*);

}  // namespace zv::classregtree
