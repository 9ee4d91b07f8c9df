// The fit one row at a time: recursive coefficients and residuals.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/gsreg.h"
#include "expr/kernels/packed.h"
#include "expr/kernels/recursive.h"
#include "regress/ols_parts.h"

namespace korvel {

void print_coefficient_row(int obs, std::span<const double> b) {
  constexpr std::size_t a_line = 5;
  Line row;
  row.put<"(1X, I7)">(obs);
  for (std::size_t j = 0; j < b.size(); ++j) {
    if (j > 0 && j % a_line == 0) {
      OUTLINE();
      row = Line();
      row.column(9);
    }
    row.put<"(G13.5)">(b[j]);
  }
  OUTLINE();
}

bool print_recursive(Workspace ws, const FitData& data, FitRoom& room) {
  const Trace trace("LSREG");
  const int NF = OLSCOM.NF;
  const int K = NF - 1;
  // 1. The first K rows determine the coefficients.
  ColumnList start = data.x;
  start.rows = K;
  const int IFAULT = GSREG(start, room.work, room.factor, NF, {}, {});
  if (IFAULT != 0) {
    MATINV(IFAULT, "RECURSIVE REGRESSION");
    warn(" ...WARNING..THE FIRST OBSERVATIONS DO NOT DETERMINE THE COEFFICIENTS");
    temporary(temporary_place("ERR")) = 6017;
    return false;
  }
  room.factor[packed(NF, NF)] = 0.0;  // K rows fit exactly
  if (!OCOM.OPUT) return true;
  // 2. A line for every further row.
  say(" RECURSIVE COEFFICIENT ESTIMATES");
  if (OLSCOM.DUMP) say(" DUMP: OB, VT, FT, REC-RES, SSET");
  const auto columns = static_cast<std::size_t>(NF);
  const std::span<double> row = room.row.first(columns);
  const std::span<double> b = room.row.subspan(columns, columns - 1);
  KeptRows rows(ws, OLSCOM.blocks);
  while (rows.next()) {
    if (rows.row < K) continue;
    if (stop_requested()) return false;
    const double root = data.x.root == nullptr ? 1.0 : data.x.root[rows.row];
    for (std::size_t k = 0; k < columns; ++k) row[k] = data.x.at(k, rows.row) * root;
    const RecursiveStep step = add_row(room.factor, NF, row);
    gs_coefficients(room.factor, NF, b);
    print_coefficient_row(rows.obs, b);
    if (OLSCOM.DUMP) {
      say<"(1X, I7, 4G13.5)">(rows.obs, step.error, step.variance, step.residual(),
                              room.factor[packed(NF, NF)]);
    }
  }
  return true;
}

}  // namespace korvel
