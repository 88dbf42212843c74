// Criterion names to criterion objects. A cost matrix wraps every
// classification criterion but "error" (which becomes the cost criterion
// itself) in the average-cost correction.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "classregtree/criteria/average_cost_correction.hpp"
#include "classregtree/criteria/classif_error.hpp"
#include "classregtree/criteria/cost.hpp"
#include "classregtree/criteria/custom_criterion.hpp"
#include "classregtree/criteria/deviance.hpp"
#include "classregtree/criteria/gini.hpp"
#include "classregtree/criteria/mse.hpp"
#include "classregtree/criteria/twoing.hpp"
#include "frame/message_ids.hpp"
#include "frame/options.hpp"

namespace zv::classregtree {

enum class CriterionKind { Error, Gini, Deviance, Twoing, Custom, MSE };

inline constexpr OptionName<CriterionKind> kCriterionNames[] = {
    {"error", CriterionKind::Error},       {"gini", CriterionKind::Gini},     {"gdi", CriterionKind::Gini},
    {"deviance", CriterionKind::Deviance}, {"twoing", CriterionKind::Twoing}, {"custom", CriterionKind::Custom},
    {"mse", CriterionKind::MSE},
};

inline CriterionKind parseCriterion(std::string_view name) {
    return parseOption<stats::classreg::learning::treeutils::SplitCriteriaFactory::make::BadCriterion>(
        kCriterionNames, name);
}

// Exactly one of the two is set.
template <class Y, class W>
struct SplitCriteria {
    std::unique_ptr<ClassificationSplitCriterion<W>> classification;
    std::unique_ptr<RegressionSplitCriterion<Y, W>> regression;
};

// `cost` is null without a cost matrix. The regression criterion takes no
// correction: a cost matrix handed with "mse" is ignored.
template <class Y, class W>
SplitCriteria<Y, W> makeSplitCriteria(CriterionKind kind, const CostView* cost, std::string parentFunction = {},
                                      std::string kidsFunction = {}) {
    SplitCriteria<Y, W> made;
    std::unique_ptr<ClassificationSplitCriterion<W>> inner;
    switch (kind) {
    case CriterionKind::MSE: made.regression = std::make_unique<MSE<Y, W>>(); return made;
    case CriterionKind::Error:
        if (cost) made.classification = std::make_unique<Cost<W>>(*cost);
        else made.classification = std::make_unique<ClassifError<W>>();
        return made;
    case CriterionKind::Gini: inner = std::make_unique<Gini<W>>(); break;
    case CriterionKind::Deviance: inner = std::make_unique<Deviance<W>>(); break;
    case CriterionKind::Twoing: inner = std::make_unique<Twoing<W>>(); break;
    case CriterionKind::Custom:
        inner = std::make_unique<CustomClassificationSplitCriterion<W>>(std::move(parentFunction),
                                                                         std::move(kidsFunction));
        break;
    }
    if (cost) made.classification = std::make_unique<AverageCostCorrection<W>>(std::move(inner), *cost);
    else made.classification = std::move(inner);
    return made;
}

}  // namespace zv::classregtree
