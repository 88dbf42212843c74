// wswor: the tree walk by hand, the layout of incomplete trees, the batches of
// uniforms from either stream, the safe ends, and its identifiers in order.
#include <algorithm>
#include <cmath>
#include <limits>

#include "sampling/sampling_fixtures.hpp"

namespace {

using zvhost::Owned;
using zvhost::ScriptedStream;
using zvtest::DefaultStreamScope;
using zvtest::idOf;
using zvtest::Requests;
using Positions = std::vector<double>;

Positions sample(const ndArray* w, double k, std::vector<double> uniforms) {
    DefaultStreamScope scope(std::make_shared<ScriptedStream>(std::move(uniforms)));
    Owned kArg = zvhost::scalar(k);
    return zvhost::valuesOf<double>(zvhost::call(wswor, 1, {w, kArg.get()})[0].get());
}

TEST(Wswor, WalksByHand) {
    struct Case {
        Positions weights;
        double k;
        std::vector<double> uniforms;
        Positions drawn;
    };
    const double inf = std::numeric_limits<double>::infinity();
    const Case cases[] = {
        // Root (left 3, total 10); u = 0.5 later meets a left sum equal to r
        // and goes left.
        {{1, 2, 3, 4}, 4, {0.25, 0.5, 0.1, 0.9}, {2, 3, 1, 4}},
        // N = 3: items 0, 1 on the deep level, item 2 beside them.
        {{1, 2, 4}, 1, {0.5}, {3}},
        {{1, 2, 4}, 1, {0.4}, {2}},
        // r beyond the right subtree's weight is clamped to it, so the walk
        // stays on the weighted leaf instead of the empty one at the far right.
        {{1, 1, 1, 0}, 1, {1.5}, {3}},
        // Infinite weights outweigh everything, left to right; once drawn, the
        // sums are finite again and the others follow their weights.
        {{1, inf, 2, inf, 3}, 5, {0.5, 0.5, 0.1, 0.5, 0.9}, {2, 4, 1, 5, 3}},
        // K = 0 reads no uniform; one item is position 1 whatever its weight.
        {{1, 2, 3}, 0, {}, {}},
        {{-5}, 1, {}, {1}},
        {{std::nan("")}, 1, {}, {1}},
    };
    for (const Case& c : cases) {
        Owned w = zvtest::row(c.weights);
        EXPECT_EQ(sample(w.get(), c.k, c.uniforms), c.drawn);
    }
    // The output of K = 0 is 1-by-0.
    Owned w = zvtest::row(Positions{1, 2}), zero = zvhost::scalar(0);
    EXPECT_EQ(zvtest::dimsOf(zvhost::call(wswor, 1, {w.get(), zero.get()})[0].get()), (std::vector<size_t>{1, 0}));
}

TEST(Wswor, IncompleteTreesKeepItemOrder) {
    // With equal weights, u = (j + 1/2) / N must pick item j for every N:
    // the leaves split over two levels still read left to right in item order.
    for (size_t n = 2; n <= 19; ++n) {
        Owned w = zvhost::matrixOf<double>(n, 1, std::span<const double>(Positions(n, 1.0)));
        for (size_t j = 0; j < n; ++j)
            EXPECT_EQ(sample(w.get(), 1, {(double(j) + 0.5) / double(n)})[0], double(j + 1)) << n << " " << j;
    }
}

TEST(Wswor, UniformsComeInBatchesOfOneHundredFromEitherStream) {
    Owned w = zvhost::matrixOf<double>(1, 300, std::span<const double>(Positions(300, 1.0)));
    Owned k = zvhost::scalar(250);
    const Requests batches{{'u', 100}, {'u', 100}, {'u', 50}};
    auto fromDefault = std::make_shared<ScriptedStream>(std::vector<double>(250, 0.5));
    {
        DefaultStreamScope scope(fromDefault);
        zvhost::call(wswor, 1, {w.get(), k.get()});
    }
    EXPECT_EQ(zvtest::requestsOf(*fromDefault), batches);
    // A stream object of its own leaves the default stream alone.
    auto own = std::make_shared<ScriptedStream>(std::vector<double>(250, 0.5));
    auto other = std::make_shared<ScriptedStream>(std::vector<double>{});
    DefaultStreamScope scope(other);
    Owned stream(zvhost::createStreamObject(own));
    zvhost::call(wswor, 1, {stream.get(), w.get(), k.get()});
    EXPECT_EQ(zvtest::requestsOf(*own), batches);
    EXPECT_TRUE(other->requests().empty());
}

TEST(Wswor, SeededStreamsGiveAPermutationOfThePositiveWeights) {
    Positions weights(500, 0.0), positive;
    for (size_t i = 0; i < weights.size(); ++i)
        if (i % 3 != 0) weights[i] = 1.0 + double(i % 17), positive.push_back(double(i + 1));
    Owned w = zvhost::matrixOf<double>(500, 1, std::span<const double>(weights));
    Owned k = zvhost::scalar(double(positive.size())), stream(zvhost::createStreamObject(zvhost::makeStream(5)));
    const Positions fromObject = zvhost::valuesOf<double>(zvhost::call(wswor, 1, {stream.get(), w.get(), k.get()})[0].get());
    DefaultStreamScope scope(zvhost::makeStream(5));
    Positions fromDefault = zvhost::valuesOf<double>(zvhost::call(wswor, 1, {w.get(), k.get()})[0].get());
    EXPECT_EQ(fromObject, fromDefault);
    std::sort(fromDefault.begin(), fromDefault.end());
    EXPECT_EQ(fromDefault, positive);
}

TEST(Wswor, OtherNumericWeightsReadAsDoubles) {
    const Positions values{0, 3, 1, 4, 1, 5};
    Owned ws = zvhost::matrixOf<float>(1, 6, {0, 3, 1, 4, 1, 5}), wi = zvhost::matrixOf<int32_t>(6, 1, {0, 3, 1, 4, 1, 5});
    Owned sp(zvhost::createSparse(6, 1, 5));
    for (size_t e = 0; e < 5; ++e) {
        static_cast<double*>(ndGetData(sp.get()))[e] = values[e + 1];
        ndGetRowIndices(sp.get())[e] = e + 1;
    }
    ndGetColumnStarts(sp.get())[1] = 5;
    const std::vector<double> u{0.3, 0.9, 0.1, 0.6, 0.5};
    Owned wd = zvtest::row(values);
    const Positions want = sample(wd.get(), 5, u);
    for (const Owned* w : {&ws, &wi, &sp}) EXPECT_EQ(sample(w->get(), 5, u), want);
}

TEST(Wswor, IdentifiersInOrder) {
    Owned w = zvhost::matrixOf<double>(1, 3, {1, 0, 2}), matrix = zvhost::matrixOf<double>(2, 2);
    Owned cell(ndCreateCellMatrix(1, 3)), cplx(zvhost::createComplexMatrix(1, 3)), txt = zvhost::text("abc");
    Owned k1 = zvhost::scalar(1), k2 = zvhost::scalar(2), k3 = zvhost::scalar(3), k4 = zvhost::scalar(4);
    Owned kNeg = zvhost::scalar(-1), kNan = zvhost::scalar(std::nan("")), kHalf = zvhost::scalar(1.5);
    Owned kPair = zvhost::matrixOf<double>(1, 2), kCplx(zvhost::createComplexMatrix(1, 1));
    Owned kYes = zvhost::logicalScalar(true);
    Owned kHuge = zvhost::scalar(281474976710656.0), kInf = zvhost::scalar(std::numeric_limits<double>::infinity());
    Owned kLimit = zvhost::scalar(281474976710655.0);
    Owned negative = zvhost::matrixOf<double>(1, 3, {1, -1, 2}), negativeLate = zvhost::matrixOf<double>(1, 3, {0, 0, -1});
    Owned withNan = zvhost::matrixOf<double>(1, 3, {1, std::nan(""), 1});
    const std::string p = "stats:datasample:";
    EXPECT_EQ(idOf(wswor, 2, {cell.get()}), "zvhost:TooManyOutputs");
    EXPECT_EQ(idOf(wswor, 1, {w.get()}), "zvhost:TooFewInputs");
    for (const Owned* bad : {&cell, &matrix, &cplx, &txt}) EXPECT_EQ(idOf(wswor, 1, {bad->get(), kNeg.get()}), p + "InputWType");
    for (const Owned* k : {&kPair, &kCplx, &kYes, &kNeg, &kNan, &kHalf}) EXPECT_EQ(idOf(wswor, 1, {w.get(), k->get()}), p + "InputKType");
    EXPECT_EQ(idOf(wswor, 1, {w.get(), kHuge.get()}), p + "OutputSize");
    EXPECT_EQ(idOf(wswor, 1, {w.get(), kInf.get()}), p + "OutputSize");
    EXPECT_EQ(idOf(wswor, 1, {w.get(), kLimit.get()}), p + "KTooLarge");
    EXPECT_EQ(idOf(wswor, 1, {w.get(), k4.get()}), p + "KTooLarge");
    EXPECT_EQ(idOf(wswor, 1, {negativeLate.get(), k3.get()}), p + "NegativeWeight");
    EXPECT_EQ(idOf(wswor, 1, {negative.get(), k1.get()}), p + "NegativeWeight");
    // A NaN weight is refused as a negative one is.
    EXPECT_EQ(idOf(wswor, 1, {withNan.get(), k1.get()}), p + "NegativeWeight");
    EXPECT_EQ(idOf(wswor, 1, {w.get(), k3.get()}), p + "PosWeights");
    EXPECT_EQ(idOf(wswor, 1, {w.get(), k2.get()}), "");
    // A uniform of 0 takes the left path to the first leaf, here an empty one.
    Owned zeroFirst = zvhost::matrixOf<double>(1, 3, {0, 1, 1});
    zvtest::LeakCheck leaks;
    EXPECT_EQ(zvtest::raisedId([&] { sample(zeroFirst.get(), 1, {0.0}); }), p + "BinaryTreeAlgorithmFailed");
    // In the stream form the weights and K move one place on.
    Owned stream(zvhost::createStreamObject(zvhost::makeStream(1)));
    EXPECT_EQ(idOf(wswor, 1, {stream.get(), matrix.get(), k1.get()}), p + "InputWType");
    EXPECT_EQ(idOf(wswor, 1, {stream.get(), w.get(), kHalf.get()}), p + "InputKType");
    EXPECT_EQ(idOf(wswor, 0, {stream.get(), w.get(), k2.get()}), "");
}

}  // namespace
