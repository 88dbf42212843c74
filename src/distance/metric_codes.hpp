// The three-letter codes of the metrics, as every distance gateway reads
// them: the first three letters of the text, compared exactly.
#pragma once

#include <optional>
#include <string_view>

#include "distance/pair_metric.hpp"
#include "frame/gateway.hpp"
#include "frame/options.hpp"

namespace zv::distance {

inline constexpr OptionName<PairMetric> kMetricCodes[] = {
    {"euc", PairMetric::Euclidean},  {"sqe", PairMetric::SquaredEuclidean}, {"seu", PairMetric::SEuclidean},
    {"cit", PairMetric::CityBlock},  {"min", PairMetric::Minkowski},        {"cos", PairMetric::Similarity},
    {"cor", PairMetric::Similarity}, {"spe", PairMetric::Similarity},       {"ham", PairMetric::Hamming},
    {"jac", PairMetric::Jaccard},    {"che", PairMetric::Chebychev},        {"mah", PairMetric::Mahalanobis}};

// None for an unknown code, which each gateway answers in its own way.
inline std::optional<PairMetric> metricOfCode(const ndArray* code) {
    const ShortCode<4> text(code);
    return findOption(kMetricCodes, std::string_view(text.text.data()));
}

}  // namespace zv::distance
