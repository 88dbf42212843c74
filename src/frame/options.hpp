// Options chosen by name (metrics, methods, criteria, kernels, strategies,
// solvers...): each family keeps one table of name to enum, the gateway
// parses the name once, and engines see only the enum.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "host/host.hpp"

namespace zv {

template <class Enum>
struct OptionName {
    std::string_view name;
    Enum value;
};

// The value `name` stands for in `table`, compared exactly; none if absent.
template <class Enum, size_t N>
constexpr std::optional<Enum> findOption(const OptionName<Enum> (&table)[N], std::string_view name) {
    for (const auto& entry : table)
        if (entry.name == name) return entry.value;
    return std::nullopt;
}

// The same, raising the family's Unknown identifier when `name` is absent.
template <class Unknown, class Enum, size_t N>
Enum parseOption(const OptionName<Enum> (&table)[N], std::string_view name) {
    if (const auto value = findOption(table, name)) return *value;
    ndErrMsgId(Unknown());
}

// The option named by the whole text of a char array.
template <class Unknown, class Enum, size_t N>
Enum parseOption(const OptionName<Enum> (&table)[N], const ndArray* text) {
    return parseOption<Unknown>(table, std::string_view(matrix::get_string(text)));
}

// The name of a value, for displays; empty if the table lacks it.
template <class Enum, size_t N>
constexpr std::string_view optionName(const OptionName<Enum> (&table)[N], Enum value) {
    for (const auto& entry : table)
        if (entry.value == value) return entry.name;
    return {};
}

}  // namespace zv
