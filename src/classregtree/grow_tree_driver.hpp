// The typed driver of growTree: criteria, tree, growth, record.
#pragma once

#include <limits>

#include "classregtree/grow_tree.hpp"
#include "classregtree/layered_growth.hpp"
#include "classregtree/tree_record.hpp"
#include "frame/checked.hpp"
#include "frame/host_values.hpp"
#include "host/interrupt.hpp"
#include "host/randstream.hpp"

namespace zv::classregtree {

template <class X, class Y, class W>
void growTreeTyped(const GrowTreeCall& call, int numOutputs, ndArray** outputs) {
    const uint64_t N = call.N, P = call.P;
    const auto x = HostValues<X>::matrix(call.x, N, P, noCutPoint<X>());
    const HostValues<Y> y(call.y, N, std::numeric_limits<Y>::quiet_NaN());
    const HostValues<W> w(call.w, N, W(0));

    const size_t costSize = ndGetN(call.cost);
    std::optional<HostValues<double>> costValues;
    CostView cost;
    if (costSize > 0) {
        costValues.emplace(HostValues<double>::matrix(call.cost, costSize, costSize, 0.0));
        cost = {costValues->data(), costSize, costSize};
    }
    const auto criteria = makeSplitCriteria<Y, W>(call.criterion, costSize > 0 ? &cost : nullptr,
                                                  call.parentFunction, call.kidsFunction);

    std::vector<uint8_t> isCategorical(P);
    HostValues<bool>::copyInto(call.isCategorical, reinterpret_cast<bool*>(isCategorical.data()), P, false);
    std::vector<uint64_t> numBins(P, 0);
    if (ndGetNumberOfElements(call.numBins) > 0) {
        const HostValues<double> bins(call.numBins, P, 0.0);
        for (uint64_t p = 0; p < P; ++p) numBins[p] = checked::toSize(bins[p]);
    }
    // Rows outside the matrix cannot be grown on: they are left out.
    const size_t given = ndGetNumberOfElements(call.rows);
    const HostValues<double> rowValues(call.rows, given, -1.0);
    RowVector rows;
    rows.reserve(given);
    for (size_t k = 0; k < given; ++k)
        if (rowValues[k] >= 0 && rowValues[k] < double(N)) rows.push_back(uint64_t(rowValues[k]));

    TreeData<X, Y, W> data;
    data.x = x.data();
    data.N = N;
    data.P = P;
    data.y = y.data();
    data.w = w.data();
    data.isCategorical = reinterpret_cast<const bool*>(isCategorical.data());
    data.numBins = numBins.data();
    data.classCrit = criteria.classification.get();
    data.regCrit = criteria.regression.get();
    data.options = call.options;
    faultprobe::InterruptState interrupt{hostGetInterruptStateData()};
    data.interrupt = &interrupt;
    if (data.options.numVarsToSample < P) data.stream = GetRandStreamFromArray(call.stream);

    Tree<X, Y, W> tree(std::move(data));
    tree.init();
    tree.grow(rows);
    matrix::unique_nd_ptr made[kTreeRecordFields];
    const bool withBins = std::any_of(numBins.begin(), numBins.end(), [](uint64_t b) { return b != 0; });
    exportTreeRecord(tree, std::max(numOutputs, 1), std::is_same_v<Y, double> && std::is_same_v<W, double>, withBins,
                     made);
    handOver(outputs, numOutputs, made);
}

}  // namespace zv::classregtree
