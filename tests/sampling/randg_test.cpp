// randg: the order of its requests to the default stream, the special shapes,
// the iteration limit, its argument forms and its identifiers.
#include <cmath>
#include <limits>

#include "sampling/random_gateways.hpp"

namespace {

using zvhost::Owned;
using zvhost::ScriptedStream;
using zvtest::DefaultStreamScope;
using zvtest::raisedId;
using Requests = std::vector<std::pair<char, size_t>>;

// The value of a draw that accepts its first candidate x, worked out apart
// from the library: d = b - 1/3, c = 1/sqrt(9d), v = (1 + cx)^3.
double firstPassValue(double a, double x, double u2 = 1) {
    const double b = a < 1 ? a + 1 : a;
    const double d = b - 1.0 / 3.0;
    const double v = std::pow(1 + x / std::sqrt(9 * d), 3);
    return a < 1 ? d * v * std::pow(u2, 1 / a) : d * v;
}

std::shared_ptr<ScriptedStream> script(std::vector<double> numbers) {
    return std::make_shared<ScriptedStream>(std::move(numbers));
}

std::vector<double> drawOf(std::initializer_list<const ndArray*> inputs) {
    auto out = zvhost::call(randg, 1, inputs);
    return zvhost::valuesOf<double>(out[0].get());
}

TEST(Randg, ShapeAtLeastOneAsksForOneUniformThenNormals) {
    auto s = script({0.5, 0.25});
    DefaultStreamScope scope(s);
    Owned a = zvhost::scalar(5);
    auto v = drawOf({a.get()});
    EXPECT_EQ(zvtest::requestsOf(*s), (Requests{{'u', 1}, {'n', 1}}));
    EXPECT_NEAR(v[0], firstPassValue(5, 0.25), 1e-14);
}

TEST(Randg, ShapeBelowOneAsksForTwoUniformsInOneRequest) {
    auto s = script({0.5, 0.3, -0.4});
    DefaultStreamScope scope(s);
    Owned a = zvhost::scalar(0.999);
    auto v = drawOf({a.get()});
    EXPECT_EQ(zvtest::requestsOf(*s), (Requests{{'u', 2}, {'n', 1}}));
    EXPECT_NEAR(v[0], firstPassValue(0.999, -0.4, 0.3), 1e-14);
}

TEST(Randg, RejectionTakesANewUniformAndNonPositiveCandidatesANewNormal) {
    // u = 1 rejects x = 0 in both tests; x = -100 makes 1 + cx negative.
    auto s = script({1.0, 0.0, 0.5, -100, -100, 0.1});
    DefaultStreamScope scope(s);
    Owned a = zvhost::scalar(2);
    auto v = drawOf({a.get()});
    EXPECT_EQ(zvtest::requestsOf(*s), (Requests{{'u', 1}, {'n', 1}, {'u', 1}, {'n', 1}, {'n', 1}, {'n', 1}}));
    EXPECT_NEAR(v[0], firstPassValue(2, 0.1), 1e-14);
}

TEST(Randg, LogTestAcceptsWhatTheSqueezeRejects) {
    // x = 2: the squeeze needs u < 1 - 0.0331*16 = 0.4704; log test passes for u = 0.5.
    auto s = script({0.5, 2.0});
    DefaultStreamScope scope(s);
    Owned a = zvhost::scalar(3);
    auto v = drawOf({a.get()});
    EXPECT_EQ(zvtest::requestsOf(*s).size(), 2u);
    EXPECT_NEAR(v[0], firstPassValue(3, 2.0), 1e-13);
}

TEST(Randg, SpecialShapesDrawNothing) {
    auto s = script({});
    DefaultStreamScope scope(s);
    const double inf = std::numeric_limits<double>::infinity();
    Owned a = zvhost::matrixOf<double>(1, 4, {0.0, -1.0, std::numeric_limits<double>::quiet_NaN(), inf});
    auto v = drawOf({a.get()});
    EXPECT_EQ(v[0], 0.0);
    EXPECT_TRUE(std::isnan(v[1]));
    EXPECT_TRUE(std::isnan(v[2]));
    EXPECT_EQ(v[3], inf);
    EXPECT_TRUE(s->requests().empty());
    // Negative and NaN shapes give the one NaN of the library, not the input's.
    for (size_t i : {1, 2}) {
        uint64_t bits;
        std::memcpy(&bits, &v[i], 8);
        EXPECT_EQ(bits, 0xFFF8000000000000ull);
    }
}

TEST(Randg, ElementsDrawInIndexOrderWithTheirOwnShapes) {
    auto s = script({0.5, 0.1, 0.5, 0.6, 0.2, 0.5, 0.3});
    DefaultStreamScope scope(s);
    Owned a = zvhost::matrixOf<double>(2, 2, {5.0, 0.5, 0.0, 2.0});
    auto out = zvhost::call(randg, 1, {a.get()});
    EXPECT_EQ(ndGetM(out[0].get()), 2u);
    EXPECT_EQ(ndGetN(out[0].get()), 2u);
    auto v = zvhost::valuesOf<double>(out[0].get());
    EXPECT_EQ(zvtest::requestsOf(*s), (Requests{{'u', 1}, {'n', 1}, {'u', 2}, {'n', 1}, {'u', 1}, {'n', 1}}));
    EXPECT_NEAR(v[0], firstPassValue(5, 0.1), 1e-14);
    EXPECT_NEAR(v[1], firstPassValue(0.5, 0.2, 0.6), 1e-14);
    EXPECT_EQ(v[2], 0.0);
    EXPECT_NEAR(v[3], firstPassValue(2, 0.3), 1e-14);
}

TEST(Randg, IterationLimitIsOneMillionAndOneRejections) {
    // Every pass rejects with u = 1 and x = 0; the last scripted pass accepts.
    auto numbers = [](long rejections, bool acceptAfter) {
        std::vector<double> n{1.0};
        for (long k = 0; k < rejections; ++k) n.insert(n.end(), {0.0, 1.0});
        if (acceptAfter) n.back() = 0.5, n.push_back(0.0);
        return n;
    };
    Owned a = zvhost::scalar(4);
    {
        auto s = script(numbers(1000000, true));  // 1000000 rejections, then acceptance
        DefaultStreamScope scope(s);
        EXPECT_NEAR(drawOf({a.get()})[0], 4 - 1.0 / 3.0, 1e-14);
    }
    {
        auto s = script(numbers(1000001, false));
        DefaultStreamScope scope(s);
        zvtest::LeakCheck leaks;
        EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {a.get()}); }), "stats:randg:IterLimitExceeded");
        EXPECT_EQ(s->requests().size(), 1u + 1000001u + 1000000u);
        EXPECT_EQ(s->requests().back().kind, 'n');
    }
}

TEST(Randg, NoInputsOrOnlyAClassGiveOneDrawWithShapeOne) {
    zvhost::seedDefaultStream(7);
    auto out = zvhost::call(randg, 1, {});
    EXPECT_EQ(ndGetClassID(out[0].get()), ndDOUBLE_CLASS);
    EXPECT_EQ(ndGetNumberOfElements(out[0].get()), 1u);
    zvhost::seedDefaultStream(7);
    Owned one = zvhost::scalar(1);
    EXPECT_EQ(drawOf({one.get()})[0], ndGetScalar(out[0].get()));

    Owned single = zvhost::text("single"), like = zvhost::text("like");
    Owned proto = zvhost::matrixOf<float>(1, 1);
    zvhost::seedDefaultStream(7);
    auto s1 = zvhost::call(randg, 1, {single.get()});
    zvhost::seedDefaultStream(7);
    auto s2 = zvhost::call(randg, 1, {like.get(), proto.get()});
    for (auto* o : {s1[0].get(), s2[0].get()}) {
        EXPECT_EQ(ndGetClassID(o), ndSINGLE_CLASS);
        EXPECT_EQ(zvhost::valuesOf<float>(o)[0], float(ndGetScalar(out[0].get())));
    }
}

TEST(Randg, OutputClassFollowsTheShapeTheNameOrThePrototype) {
    Owned a = zvhost::matrixOf<double>(1, 3, {0.5, 2.0, 7.0});
    Owned af = zvhost::matrixOf<float>(1, 3, {0.5f, 2.0f, 7.0f});
    Owned dbl = zvhost::text("double"), sgl = zvhost::text("single"), like = zvhost::text("LiKe");
    Owned pd = zvhost::scalar(1), ps = zvhost::matrixOf<float>(2, 2);
    struct Case {
        std::vector<const ndArray*> inputs;
        ndClassID cls;
    };
    const std::vector<Case> cases{
        {{a.get()}, ndDOUBLE_CLASS},
        {{af.get()}, ndSINGLE_CLASS},
        {{a.get(), sgl.get()}, ndSINGLE_CLASS},
        {{af.get(), dbl.get()}, ndDOUBLE_CLASS},
        {{a.get(), like.get(), ps.get()}, ndSINGLE_CLASS},
        {{af.get(), like.get(), pd.get()}, ndDOUBLE_CLASS},
    };
    zvhost::seedDefaultStream(3);
    auto reference = drawOf({a.get()});
    for (const Case& c : cases) {
        zvhost::seedDefaultStream(3);
        auto out = zvhost::call(randg, 1, c.inputs);
        ASSERT_EQ(ndGetClassID(out[0].get()), c.cls);
        ASSERT_EQ(ndGetNumberOfElements(out[0].get()), 3u);
        for (size_t i = 0; i < 3; ++i) {
            // A single output is the double draw rounded to float.
            const double got = c.cls == ndSINGLE_CLASS ? zvhost::valuesOf<float>(out[0].get())[i]
                                                       : zvhost::valuesOf<double>(out[0].get())[i];
            const double want = c.cls == ndSINGLE_CLASS ? double(float(reference[i])) : reference[i];
            EXPECT_EQ(got, want);
        }
    }
}

TEST(Randg, SizeArguments) {
    Owned a = zvhost::scalar(3), two = zvhost::scalar(2), three = zvhost::scalar(3), one = zvhost::scalar(1);
    Owned vec = zvhost::matrixOf<double>(1, 2, {2, 3});
    Owned m23 = zvhost::matrixOf<double>(2, 3, {1, 2, 3, 4, 5, 6}), m32 = zvhost::matrixOf<double>(3, 2);
    Owned empty = zvhost::matrixOf<double>(0, 3);
    Owned zero = zvhost::scalar(0);
    auto dims = [](const Owned& o) {
        const size_t* d = ndGetDimensions(o.get());
        return std::vector<size_t>(d, d + ndGetNumberOfDimensions(o.get()));
    };
    EXPECT_EQ(dims(zvhost::call(randg, 1, {a.get(), two.get(), three.get()})[0]), (std::vector<size_t>{2, 3}));
    EXPECT_EQ(dims(zvhost::call(randg, 1, {a.get(), vec.get()})[0]), (std::vector<size_t>{2, 3}));
    EXPECT_EQ(dims(zvhost::call(randg, 1, {a.get(), three.get()})[0]), (std::vector<size_t>{3, 3}));
    // A non-scalar shape must have the stated size; trailing ones don't count.
    EXPECT_EQ(dims(zvhost::call(randg, 1, {m23.get(), two.get(), three.get(), one.get()})[0]),
              (std::vector<size_t>{2, 3}));
    EXPECT_EQ(dims(zvhost::call(randg, 1, {a.get(), two.get(), one.get(), three.get(), one.get()})[0]),
              (std::vector<size_t>{2, 1, 3}));
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {m32.get(), two.get(), three.get()}); }),
              "stats:randg:InputSizeMismatch");
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {empty.get(), two.get(), three.get()}); }),
              "stats:randg:InputSizeMismatch");

    // Empty shapes or sizes draw nothing.
    auto s = script({});
    DefaultStreamScope scope(s);
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, {empty.get()})[0].get()), 0u);
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, {a.get(), zero.get(), three.get()})[0].get()), 0u);
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, {empty.get(), zero.get(), three.get()})[0].get()), 0u);
    EXPECT_TRUE(s->requests().empty());
}

TEST(Randg, LongSizeListsComeFromHostScratchAndAreFreed) {
    Owned a = zvhost::matrixOf<double>(2, 2), one = zvhost::scalar(1), two = zvhost::scalar(2);
    std::vector<const ndArray*> ten{a.get(), two.get(), two.get()}, eleven{a.get(), two.get(), two.get()};
    for (int k = 0; k < 8; ++k) ten.push_back(one.get());
    for (int k = 0; k < 9; ++k) eleven.push_back(one.get());
    zvhost::failAllocationAt(1, zvhost::kScratch);
    EXPECT_NO_THROW(zvhost::call(randg, 1, ten));
    EXPECT_THROW(zvhost::call(randg, 1, eleven), std::bad_alloc);
    zvhost::failAllocationAt(0);
    zvtest::LeakCheck leaks;
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, eleven)[0].get()), 4u);
    eleven.back() = two.get();
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, eleven); }), "stats:randg:InputSizeMismatch");
}

TEST(Randg, GpuClassGoesToTheHostFunction) {
    Owned a = zvhost::scalar(2), gpu = zvhost::text("gpuArray"), like = zvhost::text("like");
    Owned proto(zvhost::createHostObject("gpuArray"));
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {a.get(), gpu.get()}); }), "stats:randg:InvalidPrototype");
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {a.get(), like.get(), proto.get()}); }),
              "stats:randg:InvalidPrototype");

    std::vector<int> seen;
    zvhost::registerFunction("internal.stats.gpu.randg", [&](int nout, ndArray** out, int nin, const ndArray** in) {
        seen.insert(seen.end(), {nout, nin});
        EXPECT_EQ(in[0], a.get());
        out[0] = ndCreateDoubleScalar(42);
    });
    auto s = script({});
    DefaultStreamScope scope(s);
    EXPECT_EQ(ndGetScalar(zvhost::call(randg, 1, {a.get(), gpu.get()})[0].get()), 42);
    EXPECT_EQ(ndGetScalar(zvhost::call(randg, 0, {a.get(), like.get(), proto.get()})[0].get()), 42);
    EXPECT_EQ(seen, (std::vector<int>{1, 2, 0, 3}));
    EXPECT_TRUE(s->requests().empty());
    zvhost::unregisterFunction("internal.stats.gpu.randg");
}

TEST(Randg, TextRules) {
    Owned a = zvhost::scalar(2), two = zvhost::scalar(2);
    Owned capital = zvhost::text("Double"), other = zvhost::text("int32"), upperLike = zvhost::text("LIKE");
    Owned pd = zvhost::scalar(1);
    Owned stringDouble(zvhost::createStringObject(u"double"));
    Owned nonAscii(zvhost::createCharRow(u"lik\u00e9"));
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {a.get(), capital.get()}); }), "stats:randg:InvalidOutputType");
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {a.get(), other.get()}); }), "stats:randg:InvalidOutputType");
    EXPECT_EQ(raisedId([&] { zvhost::call(randg, 1, {capital.get()}); }), "stats:randg:InvalidOutputType");
    EXPECT_EQ(ndGetClassID(zvhost::call(randg, 1, {a.get(), stringDouble.get()})[0].get()), ndDOUBLE_CLASS);
    EXPECT_EQ(ndGetClassID(zvhost::call(randg, 1, {a.get(), upperLike.get(), pd.get()})[0].get()), ndDOUBLE_CLASS);
    EXPECT_THROW(zvhost::call(randg, 1, {a.get(), nonAscii.get(), pd.get()}), bedrock::ustring::CtypeInvalidCharacter);
    // A last-but-one text other than "like" leaves every input in place: here
    // "int32" and 2 become size arguments, which the host refuses.
    EXPECT_NE(raisedId([&] { zvhost::call(randg, 1, {a.get(), other.get(), two.get()}); }), "");
}

TEST(Randg, IdentifiersInOrder) {
    Owned a = zvhost::scalar(2), i32 = zvhost::matrixOf<int32_t>(1, 1), yes = zvhost::logicalScalar(true);
    Owned cplx(zvhost::createComplexMatrix(1, 1)), sparse(zvhost::createSparse(1, 1, 0));
    Owned like = zvhost::text("like"), bad = zvhost::text("Single"), m32 = zvhost::matrixOf<double>(3, 2);
    Owned two = zvhost::scalar(2), three = zvhost::scalar(3);
    auto id = [](int nout, std::vector<const ndArray*> in) {
        return raisedId([&] { zvhost::call(randg, nout, in); });
    };
    EXPECT_EQ(id(2, {i32.get(), like.get(), i32.get()}), "stats:randg:TooManyOutputs");
    EXPECT_EQ(id(1, {i32.get(), like.get(), i32.get()}), "stats:randg:InvalidPrototype");
    EXPECT_EQ(id(1, {i32.get(), bad.get()}), "stats:randg:InvalidOutputType");
    EXPECT_EQ(id(1, {i32.get()}), "stats:randg:BadInputType");
    EXPECT_EQ(id(1, {yes.get()}), "stats:randg:BadInputType");
    EXPECT_EQ(id(1, {cplx.get()}), "stats:randg:BadInputType");
    EXPECT_EQ(id(1, {sparse.get()}), "stats:randg:BadInputType");
    EXPECT_EQ(id(1, {i32.get(), two.get(), three.get()}), "stats:randg:BadInputType");
    EXPECT_EQ(id(1, {m32.get(), two.get(), three.get()}), "stats:randg:InputSizeMismatch");
    EXPECT_EQ(id(1, {a.get()}), "");
}

TEST(Randg, SeededDrawsRepeat) {
    Owned a = zvhost::matrixOf<double>(1, 5, {0.1, 0.5, 1.0, 3.0, 30.0});
    zvhost::seedDefaultStream(11);
    auto first = drawOf({a.get()});
    zvhost::seedDefaultStream(11);
    EXPECT_EQ(drawOf({a.get()}), first);
    for (double v : first) EXPECT_GT(v, 0.0);
}

}  // namespace
