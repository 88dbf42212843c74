// The 23 inputs of classregtree::growTree from plain values, with the
// defaults of a full tree on all rows and predictors.
#pragma once

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include "gateway_declarations.hpp"
#include "zvhost/arrays.hpp"
#include "zvhost/control.hpp"

namespace zvtest {

struct GrowTreeInputs {
    ndClassID xClass = ndDOUBLE_CLASS, yClass = ndDOUBLE_CLASS, wClass = ndDOUBLE_CLASS;
    size_t N = 0, P = 0;
    std::vector<double> x, y, w;   // w empty: all ones
    std::vector<double> rows;      // empty: 0..N-1
    std::vector<bool> categorical;
    std::vector<double> numBins;   // empty: no binned predictors
    std::string criterion = "gini";
    std::vector<std::string> customFunctions;  // set: a custom criterion
    double minLeaf = 1, minParent = 2, maxSplits = 1e9, numVarsToSample = -1, numSurrogates = 0;
    std::vector<double> cost;      // K by K, column-major
    double relativeTolerance = 0;
    bool quartileSearch = false, serial = false;
    double verbose = 0;
    uint32_t seed = 1;

    std::vector<zvhost::Owned> build() const {
        using zvhost::Owned;
        const auto as = [](ndClassID cls, size_t m, size_t n, const std::vector<double>& v) {
            Owned a(ndCreateNumericMatrix(m, n, cls, ndREAL));
            for (size_t i = 0; i < v.size() && i < m * n; ++i) {
                void* d = ndGetData(a.get());
                if (cls == ndDOUBLE_CLASS) static_cast<double*>(d)[i] = v[i];
                else if (cls == ndINT32_CLASS) static_cast<int32_t*>(d)[i] = int32_t(v[i]);
                else static_cast<float*>(d)[i] = float(v[i]);
            }
            return a;
        };
        std::vector<double> allRows = rows, weights = w;
        if (allRows.empty())
            for (size_t i = 0; i < N; ++i) allRows.push_back(double(i));
        if (weights.empty()) weights.assign(N, 1.0);
        Owned flags(ndCreateLogicalMatrix(1, P));
        for (size_t p = 0; p < P && p < categorical.size(); ++p) ndGetLogicals(flags.get())[p] = categorical[p];
        Owned crit;
        if (customFunctions.empty()) crit = zvhost::text(criterion);
        else {
            crit = Owned(ndCreateCellMatrix(1, customFunctions.size()));
            for (size_t k = 0; k < customFunctions.size(); ++k)
                ndSetCell(crit.get(), k, ndCreateString(customFunctions[k].c_str()));
        }
        const size_t K = size_t(std::sqrt(double(cost.size())) + 0.5);
        std::vector<Owned> in;
        in.push_back(as(xClass, N, P, x));
        in.push_back(as(yClass, N, 1, y));
        in.push_back(as(wClass, N, 1, weights));
        in.push_back(as(ndDOUBLE_CLASS, allRows.size(), 1, allRows));
        in.push_back(zvhost::logicalScalar(quartileSearch));
        in.push_back(std::move(flags));
        in.push_back(as(ndDOUBLE_CLASS, numBins.empty() ? 0 : P, numBins.empty() ? 0 : 1, numBins));
        in.push_back(std::move(crit));
        for (double v : {minLeaf, minParent, maxSplits, numVarsToSample < 0 ? double(P) : numVarsToSample,
                         numSurrogates, 10.0, 0.0})
            in.push_back(zvhost::scalar(v));
        in.push_back(as(ndDOUBLE_CLASS, K, K, cost));
        in.push_back(zvhost::scalar(relativeTolerance));
        for (int k = 0; k < 3; ++k) in.push_back(zvhost::logicalScalar(false));
        in.push_back(Owned(zvhost::createStreamObject(zvhost::makeStream(seed))));
        in.push_back(zvhost::logicalScalar(serial));
        in.push_back(zvhost::scalar(verbose));
        return in;
    }
};

// growTree on prepared inputs (which a test may have changed), `numOutputs` fields.
inline std::vector<zvhost::Owned> growTreeOn(const std::vector<zvhost::Owned>& args, int numOutputs = 24) {
    std::vector<const ndArray*> raw;
    for (const auto& a : args) raw.push_back(a.get());
    return zvhost::call(classregtree::growTree, numOutputs, raw);
}

}  // namespace zvtest
