// Fuzz templates: Cox residual sums and the Walsh-Hadamard feature expansion.
#include <cstring>

#include "fuzz/fuzz.hpp"

namespace {

using namespace zvfuzz;

// Six subjects, tied at times 3 and 5.
std::vector<Owned> coxRows(bool withStart) {
    Owned status = logicals({true, false, true, true, false, true});
    Owned start = withStart ? dense<double>(6, 1, {0, 0, 1, 0, 2, 0}) : dense<double>(1, 6);
    return args(std::move(status), std::move(start), dense<double>(6, 1, {2, 3, 3, 5, 5, 7}),
                dense<double>(6, 1, {1, 1, 2, 1, 1, 1}), dense<double>(6, 1, {1.2, 0.8, 1.0, 2.0, 0.5, 1.1}));
}

ZV_FUZZ_TEMPLATES("coxmresbif", coxMartingale) {
    for (int tie : {0, 1})
        for (bool withStart : {false, true})
            t.add("tie " + std::to_string(tie) + (withStart ? " counting" : ""), 1, [=] {
                auto rows = coxRows(withStart);
                rows.push_back(scalar(tie));
                return rows;
            });
}

ZV_FUZZ_TEMPLATES("coxsresbif", coxScore) {
    for (int tie : {0, 1})
        t.add("tie " + std::to_string(tie), 1, [=] {
            auto rows = coxRows(tie == 1);
            rows.insert(rows.begin() + 1, randomMatrix<double>(2, 6, 3));
            rows.push_back(scalar(tie));
            return rows;
        });
}

template <class T>
std::vector<Owned> fwhtCall(size_t L, size_t blocks, double q) {
    Owned perm(ndCreateNumericMatrix(L, blocks, ndINT64_CLASS, ndREAL));
    auto* p = static_cast<int64_t*>(ndGetData(perm.get()));
    for (size_t b = 0; b < blocks; ++b)
        // With L a power of two and 3 odd, i -> 3i + b is a permutation.
        for (size_t i = 0; i < L; ++i) p[b * L + i] = int64_t((i * 3 + b) % L + 1);
    return args(randomMatrix<T>(5, 3, 11), randomMatrix<T>(L, blocks, 12), randomMatrix<T>(L, blocks, 13),
                randomMatrix<T>(L, blocks, 14), std::move(perm), scalar(1.5), scalar(q));
}

ZV_FUZZ_TEMPLATES("rkeutils::fwhtbif", fwht) {
    t.add("double L 4, 2 blocks", 1, [] { return fwhtCall<double>(4, 2, 16); });
    t.add("single L 8, cut to 5", 1, [] { return fwhtCall<float>(8, 1, 5); });
}

}  // namespace
