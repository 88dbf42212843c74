// The quasi-random gateways as the tests call them, and small array builders.
#pragma once

#include <initializer_list>
#include <vector>

#include "support/gateways.hpp"
#include "gateway_declarations.hpp"

namespace zvtest {

// A 1-by-k cell of double rows; a null entry leaves its slot empty.
inline zvhost::Owned cellOfRows(const std::vector<std::vector<double>>& rows, const std::vector<bool>& empty = {}) {
    zvhost::Owned cell(ndCreateCellMatrix(1, rows.size()));
    for (size_t i = 0; i < rows.size(); ++i) {
        if (i < empty.size() && empty[i]) continue;
        ndSetCell(cell.get(), i, zvhost::matrixOf<double>(1, rows[i].size(), std::span<const double>(rows[i])).release());
    }
    return cell;
}

}  // namespace zvtest
