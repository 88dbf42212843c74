// Demo of the frame: the size checker, and an error as the host sees it.
#include <cstdio>

#include "demo/demo.hpp"

namespace zvdemo {

namespace {

void demoFrame(const Session& s) {
    heading("statsizechkBIF: common size of parameters");
    auto np = zvhost::scalar(2);
    auto a = zvhost::matrixOf<double>(2, 3);
    auto b = zvhost::scalar(5);
    auto r = s.call("statsizechkBIF", 3, {np.get(), a.get(), b.get()});
    std::printf("  params 2x3 and scalar      -> flag %g, size [%g %g], %g elements\n",
                ndGetScalar(r[0].get()), zvhost::valuesOf<double>(r[1].get())[0],
                zvhost::valuesOf<double>(r[1].get())[1], ndGetScalar(r[2].get()));
    auto c = zvhost::matrixOf<double>(3, 2);
    r = s.call("statsizechkBIF", 3, {np.get(), a.get(), c.get()});
    std::printf("  params 2x3 and 3x2         -> flag %g, size empty, %g elements\n",
                ndGetScalar(r[0].get()), ndGetScalar(r[2].get()));

    heading("An error, as the host receives it");
    try {
        s.call("pdistbif", 1, {a.get()});
    } catch (const bedrock::core::except::IMsgIDException& e) {
        std::printf("  pdistbif with one input raises \"%s\"\n", e.GetID().c_str());
    }
}

}  // namespace

ZV_DEMO_SECTION(10, demoFrame);

}  // namespace zvdemo
