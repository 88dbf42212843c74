// Every message identifier: its text and its argument form, checked against
// the published list written out here by hand.
#include <map>
#include <set>

#include "frame/message_ids.hpp"
#include "support/gateways.hpp"

namespace {

// namespace path -> ids, as published (142 error classes, 8 values).
const std::map<std::string, std::vector<std::string>> kPublished = {
    {"stats::classreg::learning::fsutils::fsutils", {"UnableToAllocateMemory", "WrongNumberOfInputs", "WrongNumberOfOptionalOutputs", "WrongNumberOfOutputs"}},
    {"stats::classreg::learning::linearutils", {"BadLossFunctionName", "BadNumberOfInputArgs", "BadNumberOfOutputArgs", "InexactNumberOfOutputArgs", "MemoryLessThanXBytes", "TooManyObservations", "TooManyPredictors"}},
    {"stats::classreg::learning::omputils::omp", {"UnableToAllocateMemory"}},
    {"stats::classreg::learning::rkeutils::fwhtbif", {"BadInputType", "OutputTooLarge", "TooFewInputs", "TooManyInputs", "TooManyOutputs"}},
    {"stats::classreg::learning::svmutils", {"BadNumberOfInputArgs", "BadNumberOfOutputArgs", "CacheAccessError", "CacheKXXNotFound", "CacheSizeLessThanTwoColumns", "ConvergenceCriterionNotSpecifiedForHistory", "ConvergenceHistorySizeMismatch", "DoNotRemoveOutliersAndShrink", "ErrorFromUserFun", "KernelProductOfIncorrectSize", "KernelProductOfIncorrectType", "MemoryLessThanXBytes", "ObsNotFound", "SameObsError", "UnknownCachingStrategy", "UnknownCachingStrategySVR", "UnknownPreferredUpdate", "UnknownShrinkingAlgorithm", "UnknownWSS",
                                               "ExitActiveSetOnConvergence", "ExitFullSetOnConvergence", "FailedToReleaseCacheColumns", "IterationLimitExceeded", "ReducingProblem", "ReleaseCacheColumns", "ReleasedCacheColumns"}},
    {"stats::classreg::learning::treeutils::ClassificationNominalSplitFinder::exact", {"TooManyLevels"}},
    {"stats::classreg::learning::treeutils::ClassificationNominalSplitFinder::pca", {"BadDSYEVXInput", "MemoryLessThanXBytes", "BadDSYEVXOutput"}},
    {"stats::classreg::learning::treeutils::CustomClassificationSplitCriterion::kids", {"BadUserFunctionCall", "TypeMismatch"}},
    {"stats::classreg::learning::treeutils::CustomClassificationSplitCriterion::parent", {"BadUserFunctionCall", "TypeMismatch"}},
    {"stats::classreg::learning::treeutils::IndexedColumn::findNominalSplitWithBestGain", {"BadAlgCat"}},
    {"stats::classreg::learning::treeutils::SplitCriteriaFactory::make", {"BadCriterion"}},
    {"stats::classreg::learning::treeutils::Tree::init", {"BadCrit"}},
    {"stats::classreg::learning::treeutils::computePruneInfo", {"BadClassificationCrit", "BadNumberOfInputArgs", "BadNumberOfOutputArgs"}},
    {"stats::classreg::learning::treeutils::findNode", {"BadNumberOfInputArgs", "BadNumberOfOutputArgs"}},
    {"stats::classreg::learning::treeutils::growTree", {"BadNumberOfInputArgs", "BadNumberOfOutputArgs"}},
    {"stats::classreg::regr::getParDep", {"BadNumberOfInputArgs", "BadNumberOfOutputArgs"}},
    {"stats::clustering::ldautils", {"BadNumberOfInputArgs", "BadNumberOfOutputArgs", "MemoryLessThanXBytes", "UnknownSampler", "UnknownSolver"}},
    {"stats::coxmresbif", {"BadInputTypeDouble", "BadInputTypeLogical", "TooFewInputs", "TooManyOutputs"}},
    {"stats::coxsresbif", {"BadInputTypeDouble", "BadInputTypeLogical", "MemoryAllocationFailure", "TooFewInputs", "TooManyOutputs"}},
    {"stats::datasample", {"BinaryTreeAlgorithmFailed", "InputKType", "InputWType", "KTooLarge", "NegativeWeight", "OutputSize", "PosWeights"}},
    {"stats::dbscan", {"TooFewOrManyInputs", "TooManyOutputArguments", "UndefinedFunctionNoComplex", "UndefinedFunctionNoSparse", "UndefinedFunctionOnlyDoubleOrSingle"}},
    {"stats::haltonset", {"NoPermDataForBase", "NumInputsComputeRR2Perm", "OnlyOneBasePerm"}},
    {"stats::linkagebif", {"ForthInputInvalid", "MemEffNotCeMeWa", "ThirdInputInvalid", "ToManyArgumentsForPDIST", "TooManyOutputArguments", "UndefinedFunctionNoComplex", "UndefinedFunctionNoSparse", "UndefinedFunctionOnlyDoubleOrSingle", "UnknownLinkageMethod", "datSizeTooLarge", "dataSizeTooLarge"}},
    {"stats::pdist2bif", {"BadInputType", "MemoryLessThanXBytes", "MixedInputTypes", "OutputTooLarge", "SparseOrComplexInput", "TooFewInputs", "TooManyOutputs", "XYDimsMismatch", "numDistsTooSmall"}},
    {"stats::pdistbif", {"BadInputType", "MemoryLessThanXBytes", "MixedInputTypes", "OutputTooLarge", "TooFewInputs", "TooManyOutputs"}},
    {"stats::randg", {"BadInputType", "InputSizeMismatch", "InvalidOutputType", "InvalidPrototype", "IterLimitExceeded", "TooManyOutputs"}},
    {"stats::silhouette", {"BadInputType", "IncorrectNumInputs", "IncorrectNumOutputs"}},
    {"stats::sobolset", {"InputClassConvertToDouble", "InputSizesComputeDN", "InputSizesMatrixBitXor", "InvalidDirectionNumbers", "InvalidGrayCodeFlag", "InvalidInitialMValues", "InvalidLastX", "NumInputsComputeDN", "NumInputsConvertToDouble", "NumInputsMatrixBitXor", "NumInputsSobolIndexed", "NumInputsSobolNet", "NumInputsSobolPoint", "NumInputsSobolSequence"}},
    {"stats::statsizechk", {"BadNParams", "TooFewInputs", "TooManyOutputs", "WrongNumInputs"}},
    {"stats::tsnebif", {"BadInputType", "MemoryLessThanXBytes", "TooFewInputsGrad", "TooFewInputsLoss", "TooManyOutputs"}},
};

// Argument forms by class name, as published.
const std::map<std::string, std::string> kForms = {
    {"MemoryLessThanXBytes", "L"}, {"UnableToAllocateMemory", "L"}, {"BadNumberOfInputArgs", "L"},
    {"WrongNumberOfInputs", "L"}, {"BadNumberOfOutputArgs", "L"}, {"InexactNumberOfOutputArgs", "L"},
    {"WrongNumberOfOutputs", "L"}, {"WrongNumberOfOptionalOutputs", "LL"}, {"TooManyObservations", "L"},
    {"TooManyPredictors", "L"}, {"TooManyLevels", "L"}, {"BadLossFunctionName", "S"},
    {"ErrorFromUserFun", "S"}, {"BadUserFunctionCall", "S"}, {"TypeMismatch", "SS"},
    {"ExitActiveSetOnConvergence", "S"}, {"ExitFullSetOnConvergence", "S"}, {"IterationLimitExceeded", "L"},
    {"ReducingProblem", "L"}, {"ReleaseCacheColumns", "LL"}, {"ReleasedCacheColumns", "L"},
};

struct Seen {
    std::string component, id, form;
    std::vector<BaseMsgID::Arg> args;
};

// Builds one object of every generated class, with distinct arguments.
std::vector<Seen> everyIdentifier() {
    std::vector<Seen> seen;
    auto add = [&](const BaseMsgID& m, const char* form) { seen.push_back({m.component, m.id, form, m.args}); };
#define ZV_ERROR(NS, NAME) add(NS::NAME(), "");
#define ZV_ERROR_L(NS, NAME) add(NS::NAME(7), "L");
#define ZV_ERROR_LL(NS, NAME) add(NS::NAME(7, 8), "LL");
#define ZV_ERROR_S(NS, NAME) add(NS::NAME("a"), "S");
#define ZV_ERROR_SS(NS, NAME) add(NS::NAME("a", "b"), "SS");
#define ZV_VALUE ZV_ERROR
#define ZV_VALUE_L ZV_ERROR_L
#define ZV_VALUE_LL ZV_ERROR_LL
#define ZV_VALUE_S ZV_ERROR_S
#include "frame/message_ids.def"
#undef ZV_ERROR
#undef ZV_ERROR_L
#undef ZV_ERROR_LL
#undef ZV_ERROR_S
#undef ZV_ERROR_SS
#undef ZV_VALUE
#undef ZV_VALUE_L
#undef ZV_VALUE_LL
#undef ZV_VALUE_S
    return seen;
}

std::string componentOf(std::string path) {
    for (size_t pos; (pos = path.find("::")) != std::string::npos;) path.replace(pos, 2, ":");
    return path;
}

TEST(MessageIds, EveryPublishedIdentifierExistsWithItsTextAndArgumentForm) {
    const auto seen = everyIdentifier();
    EXPECT_EQ(seen.size(), 150u);
    std::set<std::string> generated;
    for (const auto& s : seen) {
        generated.insert(s.component + ":" + s.id);
        auto form = kForms.count(s.id) ? kForms.at(s.id) : "";
        EXPECT_EQ(s.form, form) << s.id;
        ASSERT_EQ(s.args.size(), form.size()) << s.id;
        for (size_t k = 0; k < form.size(); ++k) {
            if (form[k] == 'L') EXPECT_EQ(std::get<long>(s.args[k]), long(7 + k));
            else EXPECT_EQ(std::get<std::string>(s.args[k]), std::string(1, char('a' + k)));
        }
    }
    std::set<std::string> published;
    for (const auto& [path, ids] : kPublished)
        for (const auto& id : ids) published.insert(componentOf(path) + ":" + id);
    EXPECT_EQ(generated, published);
}

TEST(MessageIds, RaisedErrorsCarryTheirTextArgumentsAndExactType) {
    using Wrapped = bedrock::core::except::Exception<stats::pdist2bif::MemoryLessThanXBytes, std::exception, void>;
    try {
        ndErrMsgId(stats::pdist2bif::MemoryLessThanXBytes(4096));
    } catch (const Wrapped& e) {
        EXPECT_EQ(e.GetID(), "stats:pdist2bif:MemoryLessThanXBytes");
        EXPECT_EQ(std::get<long>(e.GetBaseMsgIDObj().args[0]), 4096);
        std::unique_ptr<bedrock::core::except::IException> copy(e.clone());
        EXPECT_THROW(copy->rethrow(), Wrapped);
    }
    // Also reachable as a plain std::exception: the base is not ambiguous.
    try {
        ndErrMsgId(stats::pdist2bif::TooFewInputs());
    } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find("stats:pdist2bif:TooFewInputs"), std::string::npos);
    }
    // The odd spellings stay as published.
    EXPECT_EQ(stats::linkagebif::ForthInputInvalid().id, "ForthInputInvalid");
    EXPECT_EQ(stats::linkagebif::ToManyArgumentsForPDIST().id, "ToManyArgumentsForPDIST");
    EXPECT_EQ(stats::pdist2bif::numDistsTooSmall().component, "stats:pdist2bif");
}

}  // namespace
