// What commands leave of matrices and vectors: variables under the names that options give, and
// lower triangles on the page.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "engine/options.h"
#include "engine/output.h"
#include "engine/workspace.h"
#include "expr/kernels/packed.h"

namespace korvel {

// Makes the variable of a name option: `length` elements, N2 columns of a matrix or rows of a
// symmetric one. `NAME:n` is column n of a matrix for a series; it may have more elements than the
// result, which are missing then. 0 when the option was not given, after an error of the command,
// and when there is no room (reported).
int make_result(Workspace ws, const NameOption& option, VarType type, std::int64_t length, int N2);

// A vector of value(i), i from 0. Its variable number, or 0 as above.
template <class F>
int store_vector(Workspace ws, const NameOption& option, std::size_t length, F&& value) {
  const int var = make_result(ws, option, SERIES, static_cast<std::int64_t>(length), 1);
  if (var == 0) return 0;
  const std::span<double> to = elements(ws, var);
  for (std::size_t i = 0; i < std::min(length, to.size()); ++i) to[i] = value(static_cast<int>(i));
  return var;
}

// The same from values in a row; nothing when there are none.
void store_vector(Workspace ws, const NameOption& option, std::span<const double> values);

// A symmetric matrix from its packed lower triangle. Its variable number, or 0 as above.
int store_symmetric(Workspace ws, const NameOption& option, std::span<const double> a, int order);

// A lower triangle by rows, `a_line` values in a line, VALUE editing one. Rows begin with their
// name, and below stand the names of the columns, HEADING editing one to the same width.
// name(i) from 0, value(i, j) from 1.
template <FixedText VALUE, FixedText HEADING, class Name, class Value>
void print_triangle(int order, int a_line, Name&& name, Value&& value) {
  for (int i = 1; i <= order + 1; ++i) {
    Line row;
    if (i <= order)
      row.put<"(1X, A8)">(name(i - 1));
    else
      row.column(10);
    for (int j = 1; j <= std::min(i, order); ++j) {
      if (j > 1 && (j - 1) % a_line == 0) {
        OUTLINE();
        row = Line();
        row.column(10);
      }
      if (i <= order)
        row.put<VALUE>(value(i, j));
      else
        row.put<HEADING>(name(j - 1));
    }
    OUTLINE();
    if (stop_requested()) return;
  }
}

// The two widths of the system: covariances, and correlations, whose values lie in -1 to 1.
template <class Name, class Value>
void print_covariances(int order, Name&& name, Value&& value) {
  print_triangle<"(G13.5)", "(5X, A8)">(order, OSCOM.OWIDE ? 8 : 5, name, value);
}
template <class Name, class Value>
void print_correlations(int order, Name&& name, Value&& value) {
  print_triangle<"(F9.4)", "(1X, A8)">(order, OSCOM.OWIDE ? 12 : 7, name, value);
}

// A triangle without names, each line behind `indent` blanks.
void print_bare_triangle(std::span<const double> a, int order, int a_line, int indent,
                         double factor = 1.0);

}  // namespace korvel
