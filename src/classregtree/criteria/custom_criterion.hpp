// A split criterion written in the host's language: `parent` (and `kids`,
// when named) are host functions called with class vectors as K-by-1 doubles.
// Calls into the host stay on the calling thread, so growth goes serial.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "classregtree/criteria/split_criterion.hpp"
#include "frame/message_ids.hpp"
#include "host/callback.hpp"
#include "host/matrix.hpp"

namespace zv::classregtree {

template <class W>
class CustomClassificationSplitCriterion final : public ClassificationSplitCriterion<W> {
public:
    CustomClassificationSplitCriterion(std::string parentFunction, std::string kidsFunction)
        : parentFunction_(std::move(parentFunction)), kidsFunction_(std::move(kidsFunction)) {}

    W parent(std::span<const W> p) const override {
        namespace ids = stats::classreg::learning::treeutils::CustomClassificationSplitCriterion::parent;
        auto in = column(p);
        const ndArray* inputs[1] = {in.get()};
        return call<ids::BadUserFunctionCall, ids::TypeMismatch>(parentFunction_, 1, inputs);
    }
    W kids(std::span<const W> left, std::span<const W> right) const override {
        if (kidsFunction_.empty()) return parent(left) + parent(right);
        namespace ids = stats::classreg::learning::treeutils::CustomClassificationSplitCriterion::kids;
        auto l = column(left), r = column(right);
        const ndArray* inputs[2] = {l.get(), r.get()};
        return call<ids::BadUserFunctionCall, ids::TypeMismatch>(kidsFunction_, 2, inputs);
    }
    bool isThreadSafe() const override { return false; }
    // The host function still sees a value for every class.
    void restrictToClasses(std::span<const uint64_t> classes, uint64_t numClasses) override {
        classes_.assign(classes.begin(), classes.end());
        numClasses_ = numClasses;
    }

private:
    matrix::unique_nd_ptr column(std::span<const W> p) const {
        const bool restricted = !classes_.empty();
        matrix::unique_nd_ptr a(ndCreateDoubleMatrix(restricted ? numClasses_ : p.size(), 1, ndREAL));
        double* d = static_cast<double*>(ndGetData(a.get()));
        for (size_t i = 0; i < p.size(); ++i) d[restricted ? classes_[i] : i] = double(p[i]);
        return a;
    }

    template <class BadCall, class Mismatch>
    static W call(const std::string& name, int numInputs, const ndArray** inputs) {
        ndArray* result = nullptr;
        const int status = hostCallFunction(1, &result, numInputs, inputs, name.c_str(), 1);
        matrix::unique_nd_ptr owned(result);
        if (status != 0) ndErrMsgId(BadCall(name.c_str()));
        if (!result || ndGetClassID(result) != ndDOUBLE_CLASS) ndErrMsgId(Mismatch(name.c_str(), "double"));
        // An empty result has no first element: it scores as NaN, which no split prefers.
        if (ndGetNumberOfElements(result) == 0) return std::numeric_limits<W>::quiet_NaN();
        return W(static_cast<const double*>(ndGetData(result))[0]);
    }

    std::string parentFunction_, kidsFunction_;
    std::vector<uint64_t> classes_;
    uint64_t numClasses_ = 0;
};

}  // namespace zv::classregtree
