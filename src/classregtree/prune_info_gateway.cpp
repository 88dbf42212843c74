// classregtree::computePruneInfo: the prune level of every node of a tree
// record and the alpha at which each level begins.
#include <limits>
#include <optional>
#include <string>

#include "classregtree/criteria/criteria_factory.hpp"
#include "classregtree/prune_info.hpp"
#include "frame/gateway.hpp"
#include "frame/host_values.hpp"

namespace {

using namespace zv::classregtree;
namespace ids = stats::classreg::learning::treeutils::computePruneInfo;

// An empty array of any class names no criterion; a non-empty one that is
// not text is no name the factory knows.
std::string criterionName(const ndArray* a) {
    if (ndIsEmpty(a)) return {};
    if (ndGetClassID(a) != ndCHAR_CLASS)
        ndErrMsgId(stats::classreg::learning::treeutils::SplitCriteriaFactory::make::BadCriterion());
    return matrix::get_string(a);
}

// Node probabilities and risks through the named criterion, corrected by
// the cost matrix if there is one. A cost matrix that is not K by K is read
// as it is: classes past it cost nothing and keep their weight.
template <class T>
struct CriterionRisks {
    zv::Scratch<T> correctedProb, risk;

    CriterionRisks(const std::string& name, const ndArray** inputs, size_t K, size_t n, const T* nodeProb)
        : correctedProb(n), risk(n) {
        const CriterionKind kind = parseCriterion(name);
        const ndArray* costArg = inputs[1];
        std::optional<zv::HostValues<double>> costValues;
        CostView cost;
        if (!ndIsEmpty(costArg)) {
            cost.rows = ndGetM(costArg);
            cost.columns = ndGetN(costArg);
            costValues.emplace(zv::HostValues<double>::matrix(costArg, cost.rows, cost.columns, 0.0));
            cost.data = costValues->data();
        }
        const auto criteria = makeSplitCriteria<T, T>(kind, costValues ? &cost : nullptr, "", "");
        zv::raiseIf<ids::BadClassificationCrit>(!criteria.classification);
        const auto classProb =
            zv::HostValues<T>::matrix(inputs[0], K, n, std::numeric_limits<T>::quiet_NaN());
        criterionRisks(*criteria.classification, classProb.data(), K, n, nodeProb, correctedProb.get(), risk.get());
    }
};

// Lengths are the caller's to get right: a per-node input that holds fewer
// than n values reads NaN (probabilities, risks), false (flags) or 0 (no
// child) past its end.
template <class T>
void computePruneInfoTyped(int numOutputs, ndArray** outputs, const ndArray** inputs) {
    constexpr T missing = std::numeric_limits<T>::quiet_NaN();
    const size_t K = ndGetM(inputs[0]), n = ndGetN(inputs[0]);
    const zv::HostValues<T> nodeProb(inputs[2], n, missing);
    const zv::HostValues<bool> unrouted(inputs[4], n, false);
    const auto children = zv::HostValues<double>::matrix(inputs[5], 2, n, 0.0);
    const bool verbose = zv::HostValues<uint64_t>(inputs[7], 1, 0)[0] > 0;

    PruneRecord<T> record{n, nodeProb.data(), nullptr, reinterpret_cast<const uint8_t*>(unrouted.data()),
                          children.data()};
    std::optional<CriterionRisks<T>> fromCriterion;
    std::optional<zv::HostValues<T>> givenRisk;
    if (const std::string name = criterionName(inputs[6]); !name.empty()) {
        fromCriterion.emplace(name, inputs, K, n, nodeProb.data());
        record.nodeProb = fromCriterion->correctedProb.get();
        record.risk = fromCriterion->risk.get();
    } else {
        givenRisk.emplace(inputs[3], n, missing);
        record.risk = givenRisk->data();
    }

    auto pruneLevel = zv::createMatrix<double>(n, 1);
    zv::Scratch<T> alphas(n + 1);
    const size_t levels = computePruneLevels(record, verbose, zv::dataOf<double>(pruneLevel.get()), alphas.get());
    auto alphaList = zv::createMatrix<T>(levels, 1);
    std::copy(alphas.get(), alphas.get() + levels, zv::dataOf<T>(alphaList.get()));
    zv::handOver(outputs, numOutputs, std::move(pruneLevel), std::move(alphaList));
}

}  // namespace

namespace classregtree {

ZV_DEFINE_GATEWAY(computePruneInfo) {
    zv::raiseIf<ids::BadNumberOfInputArgs>(numInputs != 8, 8L);
    zv::raiseIf<ids::BadNumberOfOutputArgs>(numOutputs > 2, 2L);
    if (numOutputs <= 0) return;
    // The class probabilities choose the precision: double only when they are double.
    if (ndGetClassID(inputs[0]) == ndDOUBLE_CLASS) computePruneInfoTyped<double>(numOutputs, outputs, inputs);
    else computePruneInfoTyped<float>(numOutputs, outputs, inputs);
}

}  // namespace classregtree
