#include "stats/stats_results.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "engine/output.h"
#include "expr/kernels/packed.h"

namespace korvel {

std::span<double> result_variable(Workspace ws, const NameOption& option, VarType type,
                                  std::int64_t length, int columns) {
  std::string_view name = option.typed;
  if (name.empty() || OCOM.ODONT || length < 1) return {};
  int column = 0;
  if (const auto colon = name.find(':'); colon != std::string_view::npos) {
    if (type == SERIES) column = static_cast<int>(FSUMS(name.substr(colon + 1)).whole);
    name = name.substr(0, colon);
  }
  const int var = NEWVAR(ws, name, {.ITYPE = type, .LEN = length, .N2 = columns, .column = column});
  if (var == 0) return {};
  const std::span<double> to = elements(ws, var);
  const std::span<double> all = to.first(std::min(to.size(), static_cast<std::size_t>(length)));
  std::ranges::fill(all, MACOM.XMISS);
  return all;
}

void store_result(Workspace ws, const NameOption& option, VarType type,
                  std::span<const double> values, int columns) {
  const std::span<double> to =
      result_variable(ws, option, type, static_cast<std::int64_t>(values.size()), columns);
  for (std::size_t i = 0; i < to.size(); ++i) {
    to[i] = std::isfinite(values[i]) ? values[i] : MACOM.XMISS;
  }
}

void print_packed(std::span<const double> a, int order, std::string_view (*name)(const void*, int),
                  const void* names) {
  const int a_line = OSCOM.OWIDE ? 8 : 5;
  for (int i = 1; i <= order + 1; ++i) {
    Line row;
    if (i <= order)
      row.put<"(1X, A8)">(name(names, i - 1));
    else
      row.column(10);
    const int last = std::min(i, order);
    for (int j = 1; j <= last; ++j) {
      if (j > 1 && (j - 1) % a_line == 0) {
        OUTLINE();
        row = Line();
        row.column(10);
      }
      if (i <= order) {
        const double v = a[packed(i, j)];
        row.put<"(G13.5)">(std::isfinite(v) ? v : MACOM.XMISS);
      } else {
        row.put<"(5X, A8)">(name(names, j - 1));
      }
    }
    OUTLINE();
    if (stop_requested()) return;
  }
}

std::int64_t free_words() { return std::int64_t{ADDCOM.SCRTOP} - ADDCOM.LASADD; }

}  // namespace korvel
