// Rows of values as lines of text, edited by all threads and handed on in order.
//
// A row is a set of cells: value k of row i stands at base + i*stride of cell k. A scalar has
// stride 0, a matrix column or a series stride 1. The bytes do not depend on the number of threads,
// and the memory in use is a few MB whatever the number of rows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "data/format.h"
#include "platform/progress.h"

namespace korvel {

enum class PrintForm : std::uint8_t {
  rows,       // (1X, 5G15.7), or 8 under WIDE
  dump,       // (1X, 5E25.17): every bit of a value
  format,     // the user's format
  separated,  // shortest decimals that read back, with a separator between
};

inline constexpr std::size_t RECORD_LIMIT = std::size_t{1} << 20;  // columns of a record of a file

// How a row becomes lines.
struct RowForm {
  PrintForm form = PrintForm::rows;
  int per_line = 5;  // values a line of rows and dumps
  char separator = ',';
  int limit = 0;                 // columns that a separated line may have; 0: any number
  FormatView format{};           // of the user, for `format`
  std::size_t columns = 0;       // of its longest record
  std::size_t row_bytes = 0;     // the most that a row of the other forms gives
  Progress* progress = nullptr;  // told of the values that have been handed on
  void done(std::size_t values) const {
    if (progress != nullptr) progress->add(values);
  }
  int cell_width() const { return form == PrintForm::dump ? 25 : 15; }
};

struct RowCell {
  const double* base = nullptr;
  std::int64_t stride = 1;
  bool text = false;  // words of 8 characters
};

// Fills in the sizes of `form` for rows of n values. False when a record of the user's format would
// have more than `most` columns, or it has no data descriptor to go on with.
bool measure_rows(RowForm& form, std::size_t n, std::size_t most);

// A view of a callable that takes the text piece by piece, in order; false ends the work.
using TextSink = RecordSink;

// Edits rows first..last (in units of the cells' strides) but those for which `skipped` is true.
// False when the sink asked to stop.
struct RowBlock {
  std::span<const RowCell> cells{};
  std::int64_t first = 0, last = -1;
  bool (*skipped)(const void* context, std::int64_t row) = nullptr;
  const void* context = nullptr;
};
bool send_rows(const RowForm& form, const RowBlock& block, const TextSink& sink);

// One row of any length under a list form (rows, dump): lines of per_line values.
bool send_list(const RowForm& form, std::span<const double> values, const TextSink& sink);

// One separated row of any length, with its line end.
bool send_separated(const RowForm& form, std::span<const double> values, const TextSink& sink);

}  // namespace korvel
