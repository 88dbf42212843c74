// wswor: the tree walk by hand, the layout of incomplete trees, the batches of
// uniforms from either stream, the safe ends, and its identifiers in order.
#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "sampling/random_gateways.hpp"

namespace {

using zvhost::Owned;
using zvhost::ScriptedStream;
using zvtest::DefaultStreamScope;
using zvtest::raisedId;
using Requests = std::vector<std::pair<char, size_t>>;

std::vector<double> sample(const ndArray* w, double k, std::vector<double> uniforms) {
    auto s = std::make_shared<ScriptedStream>(std::move(uniforms));
    DefaultStreamScope scope(s);
    Owned kArg = zvhost::scalar(k);
    auto out = zvhost::call(wswor, 1, {w, kArg.get()});
    return zvhost::valuesOf<double>(out[0].get());
}

TEST(Wswor, WalkAndRepairByHand) {
    // Sums: root (left 3, total 10). u = 0.5 later meets a left sum equal to
    // r and goes left.
    Owned w = zvhost::matrixOf<double>(1, 4, {1, 2, 3, 4});
    EXPECT_EQ(sample(w.get(), 4, {0.25, 0.5, 0.1, 0.9}), (std::vector<double>{2, 3, 1, 4}));
}

TEST(Wswor, IncompleteTreesKeepItemOrder) {
    // With equal weights, u = (j + 1/2) / N must pick item j for every N:
    // the leaves split over two levels still read left to right in item order.
    for (size_t n = 2; n <= 19; ++n) {
        std::vector<double> ones(n, 1.0);
        Owned w = zvhost::matrixOf<double>(n, 1, std::span<const double>(ones));
        for (size_t j = 0; j < n; ++j)
            EXPECT_EQ(sample(w.get(), 1, {(double(j) + 0.5) / double(n)})[0], double(j + 1)) << n << " " << j;
    }
    // N = 3: items 0, 1 on the deep level, item 2 beside them.
    Owned w = zvhost::matrixOf<double>(1, 3, {1, 2, 4});
    EXPECT_EQ(sample(w.get(), 1, {0.5})[0], 3);
    EXPECT_EQ(sample(w.get(), 1, {0.4})[0], 2);
}

TEST(Wswor, ClampKeepsRoundingOutOfEmptySubtrees) {
    // r beyond the right subtree's weight is cut to it, so the walk stays on
    // the weighted leaf instead of the empty one at the far right.
    Owned w = zvhost::matrixOf<double>(1, 4, {1, 1, 1, 0});
    EXPECT_EQ(sample(w.get(), 1, {1.5})[0], 3);
}

TEST(Wswor, ZeroUniformOnAnEmptyFirstLeafFails) {
    Owned w = zvhost::matrixOf<double>(1, 3, {0, 1, 1});
    zvtest::LeakCheck leaks;
    EXPECT_EQ(raisedId([&] { sample(w.get(), 1, {0.0}); }), "stats:datasample:BinaryTreeAlgorithmFailed");
}

TEST(Wswor, UniformsComeInBatchesOfOneHundred) {
    std::vector<double> ones(300, 1.0);
    Owned w = zvhost::matrixOf<double>(1, 300, std::span<const double>(ones));
    Owned k = zvhost::scalar(250);
    {
        auto s = std::make_shared<ScriptedStream>(std::vector<double>(250, 0.5));
        DefaultStreamScope scope(s);
        zvhost::call(wswor, 1, {w.get(), k.get()});
        EXPECT_EQ(zvtest::requestsOf(*s), (Requests{{'u', 100}, {'u', 100}, {'u', 50}}));
    }
    {
        // A stream object of its own: the default stream is not touched.
        auto own = std::make_shared<ScriptedStream>(std::vector<double>(250, 0.5));
        auto other = std::make_shared<ScriptedStream>(std::vector<double>{});
        DefaultStreamScope scope(other);
        Owned stream(zvhost::createStreamObject(own));
        auto out = zvhost::call(wswor, 1, {stream.get(), w.get(), k.get()});
        EXPECT_EQ(zvtest::requestsOf(*own), (Requests{{'u', 100}, {'u', 100}, {'u', 50}}));
        EXPECT_TRUE(other->requests().empty());
        auto v = zvhost::valuesOf<double>(out[0].get());
        std::sort(v.begin(), v.end());
        EXPECT_EQ(std::adjacent_find(v.begin(), v.end()), v.end());
    }
}

TEST(Wswor, StreamObjectAndDefaultStreamGiveTheSameSample) {
    std::vector<double> weights(1000);
    for (size_t i = 0; i < weights.size(); ++i) weights[i] = double((i * 7919) % 13);
    Owned w = zvhost::matrixOf<double>(1, 1000, std::span<const double>(weights));
    Owned k = zvhost::scalar(300), stream(zvhost::createStreamObject(zvhost::makeStream(5)));
    auto fromObject = zvhost::valuesOf<double>(zvhost::call(wswor, 1, {stream.get(), w.get(), k.get()})[0].get());
    DefaultStreamScope scope(zvhost::makeStream(5));
    auto fromDefault = zvhost::valuesOf<double>(zvhost::call(wswor, 1, {w.get(), k.get()})[0].get());
    EXPECT_EQ(fromObject, fromDefault);
}

TEST(Wswor, AllPositiveWeightsGiveAPermutationAndZerosNeverCome) {
    std::vector<double> weights(500, 0.0);
    std::vector<double> positive;
    for (size_t i = 0; i < weights.size(); ++i)
        if (i % 3 != 0) weights[i] = 1.0 + double(i % 17), positive.push_back(double(i + 1));
    Owned w = zvhost::matrixOf<double>(500, 1, std::span<const double>(weights));
    Owned k = zvhost::scalar(double(positive.size()));
    DefaultStreamScope scope(zvhost::makeStream(9));
    auto v = zvhost::valuesOf<double>(zvhost::call(wswor, 1, {w.get(), k.get()})[0].get());
    std::sort(v.begin(), v.end());
    EXPECT_EQ(v, positive);
}

TEST(Wswor, EmptyAndSingleItemCasesDrawNothing) {
    Owned w = zvhost::matrixOf<double>(1, 3, {1, 2, 3}), neg = zvhost::scalar(-5), nan = zvhost::scalar(std::nan(""));
    auto out = zvhost::call(wswor, 1, {w.get(), zvhost::scalar(0).get()});
    EXPECT_EQ(ndGetM(out[0].get()), 1u);
    EXPECT_EQ(ndGetN(out[0].get()), 0u);
    EXPECT_EQ(sample(w.get(), 0, {}), std::vector<double>{});
    // One item is position 1 whatever its weight.
    EXPECT_EQ(sample(neg.get(), 1, {}), std::vector<double>{1});
    EXPECT_EQ(sample(nan.get(), 1, {}), std::vector<double>{1});
}

TEST(Wswor, NonFiniteWeights) {
    // A NaN weight is refused as a negative one is.
    Owned withNan = zvhost::matrixOf<double>(1, 3, {1, std::nan(""), 1});
    EXPECT_EQ(raisedId([&] { sample(withNan.get(), 1, {0.5}); }), "stats:datasample:NegativeWeight");
    // Infinite weights outweigh everything: they come first, left to right,
    // then the finite ones by their weights.
    const double inf = std::numeric_limits<double>::infinity();
    Owned withInf = zvhost::matrixOf<double>(1, 5, {1, inf, 2, inf, 3});
    DefaultStreamScope scope(zvhost::makeStream(1));
    Owned k = zvhost::scalar(5);
    auto v = zvhost::valuesOf<double>(zvhost::call(wswor, 1, {withInf.get(), k.get()})[0].get());
    EXPECT_EQ(v[0], 2);
    EXPECT_EQ(v[1], 4);
    std::sort(v.begin() + 2, v.end());
    EXPECT_EQ(std::vector<double>(v.begin() + 2, v.end()), (std::vector<double>{1, 3, 5}));
}

TEST(Wswor, OtherNumericWeightsReadAsDoubles) {
    Owned wd = zvhost::matrixOf<double>(1, 6, {0, 3, 1, 4, 1, 5});
    Owned ws = zvhost::matrixOf<float>(1, 6, {0, 3, 1, 4, 1, 5});
    Owned wi = zvhost::matrixOf<int32_t>(6, 1, {0, 3, 1, 4, 1, 5});
    Owned sp(zvhost::createSparse(6, 1, 5));
    const double values[5] = {3, 1, 4, 1, 5};
    for (size_t e = 0; e < 5; ++e) {
        static_cast<double*>(ndGetData(sp.get()))[e] = values[e];
        ndGetRowIndices(sp.get())[e] = e + 1;
    }
    ndGetColumnStarts(sp.get())[0] = 0;
    ndGetColumnStarts(sp.get())[1] = 5;
    const std::vector<double> u{0.3, 0.9, 0.1, 0.6, 0.5};
    auto want = sample(wd.get(), 5, u);
    EXPECT_EQ(sample(ws.get(), 5, u), want);
    EXPECT_EQ(sample(wi.get(), 5, u), want);
    EXPECT_EQ(sample(sp.get(), 5, u), want);
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
    Owned negative = zvhost::matrixOf<double>(1, 3, {1, -1, 2});
    Owned negativeLate = zvhost::matrixOf<double>(1, 3, {0, 0, -1});
    auto id = [](int nout, std::vector<const ndArray*> in) {
        return raisedId([&] { zvhost::call(wswor, nout, in); });
    };
    EXPECT_EQ(id(2, {cell.get()}), "zvhost:TooManyOutputs");
    EXPECT_EQ(id(1, {w.get()}), "zvhost:TooFewInputs");
    EXPECT_EQ(id(1, {cell.get(), kNeg.get()}), "stats:datasample:InputWType");
    EXPECT_EQ(id(1, {matrix.get(), k1.get()}), "stats:datasample:InputWType");
    EXPECT_EQ(id(1, {cplx.get(), k1.get()}), "stats:datasample:InputWType");
    EXPECT_EQ(id(1, {txt.get(), k1.get()}), "stats:datasample:InputWType");
    for (const Owned* k : {&kPair, &kCplx, &kYes, &kNeg, &kNan, &kHalf})
        EXPECT_EQ(id(1, {w.get(), k->get()}), "stats:datasample:InputKType");
    EXPECT_EQ(id(1, {w.get(), kHuge.get()}), "stats:datasample:OutputSize");
    EXPECT_EQ(id(1, {w.get(), kInf.get()}), "stats:datasample:OutputSize");
    EXPECT_EQ(id(1, {w.get(), kLimit.get()}), "stats:datasample:KTooLarge");
    EXPECT_EQ(id(1, {w.get(), k4.get()}), "stats:datasample:KTooLarge");
    EXPECT_EQ(id(1, {negativeLate.get(), k3.get()}), "stats:datasample:NegativeWeight");
    EXPECT_EQ(id(1, {negative.get(), k1.get()}), "stats:datasample:NegativeWeight");
    EXPECT_EQ(id(1, {w.get(), k3.get()}), "stats:datasample:PosWeights");
    EXPECT_EQ(id(1, {w.get(), k2.get()}), "");
    // In the stream form the weights and K move one place on.
    Owned stream(zvhost::createStreamObject(zvhost::makeStream(1)));
    EXPECT_EQ(id(1, {stream.get(), matrix.get(), k1.get()}), "stats:datasample:InputWType");
    EXPECT_EQ(id(1, {stream.get(), w.get(), kHalf.get()}), "stats:datasample:InputKType");
    EXPECT_EQ(id(0, {stream.get(), w.get(), k2.get()}), "");
}

}  // namespace
