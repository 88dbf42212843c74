// Fuzz templates: gamma random numbers, weighted sampling without replacement,
// Halton permutations, the Sobol gateways, the size-argument checker and the
// host-function probe.
#include <random>

#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

ZV_FUZZ_TEMPLATES("randg", randgCalls) {
    t.add("no inputs", 1, [] { return args(); });
    t.add("scalar shape", 1, [] { return args(scalar(2.5)); });
    t.add("double shapes", 1, [] { return args(dense<double>(2, 3, {0.5, 1, 2, 0, 7, 0.01})); });
    t.add("single shapes", 1, [] { return args(dense<float>(1, 4, {0.3f, 1.5f, 4, 9})); });
    t.add("scalar, sizes 2, 3", 1, [] { return args(scalar(0.7), scalar(2), scalar(3)); });
    t.add("scalar, size vector", 1, [] { return args(scalar(3), dense<double>(1, 3, {2, 1, 2})); });
    t.add("shapes, matching sizes", 1, [] { return args(dense<double>(2, 2, {1, 2, 3, 4}), scalar(2), scalar(2), scalar(1)); });
    t.add("\"single\"", 1, [] { return args(dense<double>(1, 3, {0.5, 2, 5}), text("single")); });
    t.add("sizes, \"double\"", 1, [] { return args(single(2), scalar(3), text("double")); });
    t.add("only \"single\"", 1, [] { return args(text("single")); });
    t.add("\"like\" single", 1, [] { return args(scalar(4), scalar(2), text("like"), single(1)); });
    t.add("\"LIKE\" double", 1, [] { return args(single(0.5), text("LIKE"), dense<double>(2, 2)); });
}

ZV_FUZZ_TEMPLATES("wswor", wsworCalls) {
    t.add("default stream", 1, [] { return args(dense<double>(1, 6, {1, 0, 2, 3, 0.5, 4}), scalar(3)); });
    t.add("column of weights, all drawn", 1, [] { return args(dense<double>(5, 1, {1, 2, 3, 4, 5}), scalar(5)); });
    t.add("stream object", 1, [] {
        return args(Owned(zvhost::createStreamObject(zvhost::makeStream(7))), randomMatrix<double>(1, 150, 3, 0, 1),
                    scalar(120));
    });
    t.add("one item", 1, [] { return args(scalar(2), scalar(1)); });
}

ZV_FUZZ_TEMPLATES("haltonset::computeRR2Perm", haltonCalls) {
    t.add("bases", 1, [] { return args(dense<double>(1, 5, {2, 3, 5, 7, 11})); });
    t.add("base from a table", 1, [] {
        return args(scalar(5), cell(args(dense<double>(1, 2, {0, 1}), dense<double>(1, 4, {0, 2, 1, 3}),
                                         dense<double>(1, 8, {0, 4, 2, 6, 1, 5, 3, 7}))));
    });
}

// scipy's first four dimensions: x (m = 1), then x + 1, x^2 + x + 1, x^3 + x + 1.
std::vector<Owned> directionNumberInputs() {
    return args(cell(args(dense<double>(1, 1, {1}), dense<double>(1, 1, {1}), dense<double>(1, 2, {1, 3}),
                          dense<double>(1, 3, {1, 3, 1}))),
                dense<double>(1, 4, {2, 3, 7, 11}));
}

// d-by-53 direction numbers, 53-bit words from a fixed seed.
Owned directionTable(size_t d) {
    std::mt19937_64 gen(5);
    std::vector<uint64_t> v(d * 53);
    for (auto& w : v) w = gen() >> 11;
    return dense<uint64_t>(d, 53, v);
}

ZV_FUZZ_TEMPLATES("sobolset::computeDN", computeDNCalls) {
    t.add("four dimensions", 1, [] { return directionNumberInputs(); });
}

ZV_FUZZ_TEMPLATES("sobolset::sobolSequenceBIF", sobolSequenceCalls) {
    for (bool gray : {false, true}) {
        const std::string g = gray ? "gray" : "natural";
        t.add(g + ", leap 0", 1, [=] { return args(directionTable(3), scalar(5), scalar(0), scalar(40), logical(gray)); });
        t.add(g + ", leap 3", 1, [=] { return args(directionTable(3), scalar(2), scalar(3), scalar(30), logical(gray)); });
        t.add(g + ", last point", 1, [=] {
            return args(directionTable(3), scalar(9), scalar(0), scalar(20), logical(gray),
                        dense<uint64_t>(1, 3, {11, 22, 33}));
        });
        t.add(g + ", empty last point", 1, [=] {
            return args(directionTable(2), scalar(0), scalar(1), scalar(10), logical(gray), dense<uint64_t>(0, 0));
        });
    }
}

ZV_FUZZ_TEMPLATES("sobolset::sobolIndexedBIF", sobolIndexedCalls) {
    for (bool gray : {false, true})
        t.add(gray ? "gray" : "natural", 1, [=] {
            return args(directionTable(4), dense<double>(5, 1, {0, 3, 17, 1000, 2}), logical(gray));
        });
}

ZV_FUZZ_TEMPLATES("sobolset::sobolPoint", sobolPointCalls) {
    for (bool gray : {false, true})
        t.add(gray ? "gray" : "natural", 1, [=] { return args(directionTable(5), scalar(123), logical(gray)); });
}

ZV_FUZZ_TEMPLATES("sobolset::sobolNetBIF", sobolNetCalls) {
    for (bool gray : {false, true})
        t.add(gray ? "gray" : "natural", 1, [=] { return args(directionTable(3), scalar(13), logical(gray)); });
}

ZV_FUZZ_TEMPLATES("sobolset::convertToDouble", convertToDoubleCalls) {
    t.add("words", 1, [] { return args(dense<uint64_t>(2, 3, {0, 1, 2, 1ull << 52, (1ull << 53) - 1, 7})); });
}

ZV_FUZZ_TEMPLATES("sobolset::DNToMatrix", dnToMatrixCalls) {
    t.add("five words", 1, [] { return args(dense<uint64_t>(1, 5, {1, 3, 5, 15, 31})); });
}

ZV_FUZZ_TEMPLATES("sobolset::MatrixToDN", matrixToDNCalls) {
    t.add("4-by-4 bits", 1, [] {
        return args(dense<double>(4, 4, {1, 0, 0, 1, 0, 1, 1, 0, 1, 1, 0, 1, 0, 0, 0, 1}));
    });
}

ZV_FUZZ_TEMPLATES("sobolset::matrixBitXorBIF", matrixBitXorCalls) {
    t.add("shift", 1, [] { return args(dense<uint64_t>(3, 2, {1, 2, 3, 4, 5, 6}), dense<uint64_t>(1, 2, {7, 1ull << 52})); });
}

ZV_FUZZ_TEMPLATES("statsizechkBIF", statsizechkCalls) {
    t.add("parameters agree", 3, [] { return args(scalar(3), dense<double>(2, 3), scalar(4), dense<double>(2, 3)); });
    t.add("parameters disagree", 3, [] { return args(scalar(2), dense<double>(2, 3), dense<double>(3, 2)); });
    t.add("size scalars", 3, [] { return args(scalar(1), dense<double>(2, 3), scalar(2), scalar(3), scalar(1)); });
    t.add("size vector", 2, [] { return args(scalar(1), single(5), dense<double>(1, 3, {2, 4, 1})); });
    t.add("one output", 1, [] { return args(scalar(2), dense<int32_t>(1, 4), logicals({true, false, true, true}, false)); });
}

ZV_FUZZ_TEMPLATES("probeCallFunction", probeCalls) {
    t.add("pdist", 1, [] { return args(text("pdist"), randomMatrix<double>(4, 3, 9)); });
    t.add("pdist, metric", 1, [] { return args(text("pdist"), randomMatrix<double>(5, 2, 10), text("cityblock")); });
    t.add("pdist2", 1, [] { return args(text("pdist2"), randomMatrix<double>(3, 2, 11), randomMatrix<double>(4, 2, 12)); });
}

}  // namespace
