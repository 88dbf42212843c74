// randg: the order of its requests to the default stream, the special shapes,
// the iteration limit, its argument forms and its identifiers.
#include <cmath>
#include <cstring>
#include <limits>

#include "sampling/sampling_fixtures.hpp"

namespace {

using zvhost::Owned;
using zvhost::ScriptedStream;
using zvtest::DefaultStreamScope;
using zvtest::dimsOf;
using zvtest::idOf;
using zvtest::Requests;

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

std::vector<double> drawOf(const std::vector<const ndArray*>& inputs) {
    return zvhost::valuesOf<double>(zvhost::call(randg, 1, inputs)[0].get());
}

TEST(Randg, RequestsAndValuesInIndexOrder) {
    const double inf = std::numeric_limits<double>::infinity(), nan = std::numeric_limits<double>::quiet_NaN();
    struct Case {
        std::vector<double> shapes, script;
        Requests requests;
        std::vector<double> values;
    };
    const Case cases[] = {
        // Shape >= 1: one uniform, then normals.
        {{5}, {0.5, 0.25}, {{'u', 1}, {'n', 1}}, {firstPassValue(5, 0.25)}},
        // Below 1: two uniforms in one request, and the boost by one.
        {{0.999}, {0.5, 0.3, -0.4}, {{'u', 2}, {'n', 1}}, {firstPassValue(0.999, -0.4, 0.3)}},
        // u = 1 rejects x = 0 in both tests and takes a new uniform; x = -100
        // makes 1 + cx negative and takes a new normal.
        {{2}, {1.0, 0.0, 0.5, -100, -100, 0.1}, {{'u', 1}, {'n', 1}, {'u', 1}, {'n', 1}, {'n', 1}, {'n', 1}},
         {firstPassValue(2, 0.1)}},
        // x = 2: the squeeze needs u < 0.4704, the log test takes u = 0.5.
        {{3}, {0.5, 2.0}, {{'u', 1}, {'n', 1}}, {firstPassValue(3, 2.0)}},
        // Elements draw in index order, each with its own shape.
        {{5, 0.5, 0, 2}, {0.5, 0.1, 0.5, 0.6, 0.2, 0.5, 0.3}, {{'u', 1}, {'n', 1}, {'u', 2}, {'n', 1}, {'u', 1}, {'n', 1}},
         {firstPassValue(5, 0.1), firstPassValue(0.5, 0.2, 0.6), 0, firstPassValue(2, 0.3)}},
        // Special shapes draw nothing.
        {{0, -1, nan, inf}, {}, {}, {0, nan, nan, inf}},
    };
    for (const Case& c : cases) {
        auto s = script(c.script);
        DefaultStreamScope scope(s);
        Owned a = zvhost::matrixOf<double>(c.shapes.size() == 1 ? 1 : 2, (c.shapes.size() + 1) / 2,
                                           std::span<const double>(c.shapes));
        const auto v = drawOf({a.get()});
        ASSERT_EQ(v.size(), c.values.size());
        for (size_t i = 0; i < v.size(); ++i) {
            if (std::isnan(c.values[i])) {
                // Negative and NaN shapes give the one NaN of the library, not the input's.
                uint64_t bits;
                std::memcpy(&bits, &v[i], 8);
                EXPECT_EQ(bits, 0xFFF8000000000000ull);
            } else if (v[i] != c.values[i]) {
                EXPECT_NEAR(v[i], c.values[i], 1e-13) << c.shapes[0];
            }
        }
        EXPECT_EQ(zvtest::requestsOf(*s), c.requests) << c.shapes[0];
    }
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
        DefaultStreamScope scope(script(numbers(1000000, true)));
        EXPECT_NEAR(drawOf({a.get()})[0], 4 - 1.0 / 3.0, 1e-14);
    }
    auto s = script(numbers(1000001, false));
    DefaultStreamScope scope(s);
    zvtest::LeakCheck leaks;
    EXPECT_EQ(idOf(randg, 1, {a.get()}), "stats:randg:IterLimitExceeded");
    EXPECT_EQ(s->requests().size(), 1u + 1000001u + 1000000u);
    EXPECT_EQ(s->requests().back().kind, 'n');
}

TEST(Randg, OutputClassFollowsTheShapeTheNameOrThePrototype) {
    Owned a = zvhost::matrixOf<double>(1, 3, {0.5, 2.0, 7.0}), af = zvhost::matrixOf<float>(1, 3, {0.5f, 2.0f, 7.0f});
    Owned one = zvhost::scalar(1), three = zvhost::scalar(3);
    Owned dbl = zvhost::text("double"), sgl = zvhost::text("single"), like = zvhost::text("LiKe");
    Owned stringDouble(zvhost::createStringObject(u"double"));
    Owned pd = zvhost::scalar(1), ps = zvhost::matrixOf<float>(2, 2);
    struct Case {
        std::vector<const ndArray*> inputs;
        ndClassID cls;
        size_t count;
    };
    const Case cases[] = {
        {{a.get()}, ndDOUBLE_CLASS, 3},
        {{af.get()}, ndSINGLE_CLASS, 3},
        {{a.get(), sgl.get()}, ndSINGLE_CLASS, 3},
        {{af.get(), dbl.get()}, ndDOUBLE_CLASS, 3},
        {{af.get(), stringDouble.get()}, ndDOUBLE_CLASS, 3},
        {{a.get(), like.get(), ps.get()}, ndSINGLE_CLASS, 3},
        {{af.get(), like.get(), pd.get()}, ndDOUBLE_CLASS, 3},
        {{a.get(), one.get(), three.get(), sgl.get()}, ndSINGLE_CLASS, 3},
        // Without a shape: one draw with shape 1.
        {{}, ndDOUBLE_CLASS, 1},
        {{sgl.get()}, ndSINGLE_CLASS, 1},
        {{like.get(), ps.get()}, ndSINGLE_CLASS, 1},
    };
    Owned ones = zvhost::matrixOf<double>(1, 3, {1, 1, 1});
    zvhost::seedDefaultStream(3);
    const auto reference = drawOf({a.get()});
    zvhost::seedDefaultStream(3);
    const auto unitReference = drawOf({ones.get()});
    for (const Case& c : cases) {
        zvhost::seedDefaultStream(3);
        auto out = zvhost::call(randg, 1, c.inputs);
        ASSERT_EQ(ndGetClassID(out[0].get()), c.cls);
        ASSERT_EQ(ndGetNumberOfElements(out[0].get()), c.count);
        const auto& want = c.count == 3 ? reference : unitReference;
        for (size_t i = 0; i < c.count; ++i) {
            // A single output is the double draw rounded to float.
            if (c.cls == ndSINGLE_CLASS) EXPECT_EQ(zvhost::valuesOf<float>(out[0].get())[i], float(want[i]));
            else EXPECT_EQ(zvhost::valuesOf<double>(out[0].get())[i], want[i]);
        }
    }
}

TEST(Randg, SizeArguments) {
    Owned a = zvhost::scalar(3), zero = zvhost::scalar(0), one = zvhost::scalar(1), two = zvhost::scalar(2),
          three = zvhost::scalar(3);
    Owned vec = zvhost::matrixOf<double>(1, 2, {2, 3}), m23 = zvhost::matrixOf<double>(2, 3);
    Owned m32 = zvhost::matrixOf<double>(3, 2), empty = zvhost::matrixOf<double>(0, 3);
    // A sparse zero stores no value at all, a complex vector interleaves its
    // imaginary parts: both are read by their real values.
    Owned sparseZero(zvhost::createSparse(1, 1, 0));
    Owned complexSizes(zvhost::createComplexMatrix(1, 2));
    double* c = static_cast<double*>(ndGetData(complexSizes.get()));
    c[0] = 2, c[1] = 7, c[2] = 3, c[3] = 9;
    using Dims = std::vector<size_t>;
    const std::pair<std::vector<const ndArray*>, Dims> cases[] = {
        {{a.get(), two.get(), three.get()}, {2, 3}},
        {{a.get(), vec.get()}, {2, 3}},
        {{a.get(), three.get()}, {3, 3}},
        // A non-scalar shape must have the stated size; trailing ones don't count.
        {{m23.get(), two.get(), three.get(), one.get()}, {2, 3}},
        {{a.get(), two.get(), one.get(), three.get(), one.get()}, {2, 1, 3}},
        {{a.get(), complexSizes.get()}, {2, 3}},
        {{a.get(), sparseZero.get(), three.get()}, {0, 3}},
    };
    zvtest::LeakCheck leaks;
    for (const auto& [inputs, dims] : cases) EXPECT_EQ(dimsOf(zvhost::call(randg, 1, inputs)[0].get()), dims);
    EXPECT_EQ(idOf(randg, 1, {m32.get(), two.get(), three.get()}), "stats:randg:InputSizeMismatch");
    EXPECT_EQ(idOf(randg, 1, {empty.get(), two.get(), three.get()}), "stats:randg:InputSizeMismatch");
    // Past ten sizes the list lives in host scratch; it is compared all the same.
    Owned m22 = zvhost::matrixOf<double>(2, 2);
    std::vector<const ndArray*> eleven{m22.get(), two.get(), two.get()};
    eleven.insert(eleven.end(), 9, one.get());
    EXPECT_EQ(dimsOf(zvhost::call(randg, 1, eleven)[0].get()), (Dims{2, 2}));
    eleven.back() = two.get();
    EXPECT_EQ(idOf(randg, 1, eleven), "stats:randg:InputSizeMismatch");

    // Empty shapes or sizes draw nothing.
    DefaultStreamScope scope(script({}));
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, {empty.get()})[0].get()), 0u);
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, {a.get(), zero.get(), three.get()})[0].get()), 0u);
    EXPECT_EQ(ndGetNumberOfElements(zvhost::call(randg, 1, {empty.get(), zero.get(), three.get()})[0].get()), 0u);
}

TEST(Randg, GpuClassGoesToTheHostFunction) {
    Owned a = zvhost::scalar(2), gpu = zvhost::text("gpuArray"), like = zvhost::text("like");
    Owned proto(zvhost::createHostObject("gpuArray"));
    EXPECT_EQ(idOf(randg, 1, {a.get(), gpu.get()}), "stats:randg:InvalidPrototype");
    EXPECT_EQ(idOf(randg, 1, {a.get(), like.get(), proto.get()}), "stats:randg:InvalidPrototype");

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

TEST(Randg, IdentifiersInOrder) {
    Owned a = zvhost::scalar(2), i32 = zvhost::matrixOf<int32_t>(1, 1), yes = zvhost::logicalScalar(true);
    Owned cplx(zvhost::createComplexMatrix(1, 1)), sparse(zvhost::createSparse(1, 1, 0));
    Owned like = zvhost::text("like"), upperLike = zvhost::text("LIKE"), pd = zvhost::scalar(1);
    Owned capital = zvhost::text("Double"), other = zvhost::text("int32"), m32 = zvhost::matrixOf<double>(3, 2);
    Owned two = zvhost::scalar(2), three = zvhost::scalar(3);
    Owned nonAscii(zvhost::createCharRow(u"lik\u00e9"));
    const std::string p = "stats:randg:";
    EXPECT_EQ(idOf(randg, 2, {i32.get(), like.get(), i32.get()}), p + "TooManyOutputs");
    EXPECT_EQ(idOf(randg, 1, {i32.get(), like.get(), i32.get()}), p + "InvalidPrototype");
    // Class names are compared exactly, "like" in any case.
    EXPECT_EQ(idOf(randg, 1, {i32.get(), capital.get()}), p + "InvalidOutputType");
    EXPECT_EQ(idOf(randg, 1, {a.get(), other.get()}), p + "InvalidOutputType");
    EXPECT_EQ(idOf(randg, 1, {capital.get()}), p + "InvalidOutputType");
    EXPECT_EQ(idOf(randg, 1, {a.get(), upperLike.get(), pd.get()}), "");
    EXPECT_THROW(zvhost::call(randg, 1, {a.get(), nonAscii.get(), pd.get()}), bedrock::ustring::CtypeInvalidCharacter);
    for (const Owned* bad : {&i32, &yes, &cplx, &sparse}) EXPECT_EQ(idOf(randg, 1, {bad->get()}), p + "BadInputType");
    EXPECT_EQ(idOf(randg, 1, {i32.get(), two.get(), three.get()}), p + "BadInputType");
    EXPECT_EQ(idOf(randg, 1, {m32.get(), two.get(), three.get()}), p + "InputSizeMismatch");
    // A last-but-one text other than "like" leaves every input in place: here
    // "int32" and 2 become size arguments, which the host refuses.
    EXPECT_NE(idOf(randg, 1, {a.get(), other.get(), two.get()}), "");
}

}  // namespace
