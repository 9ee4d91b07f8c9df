// What PRINT and WRITE share: the command as it is to be carried out, and its layouts.
//
// PRINTX fills a PrintJob from the options, checks every listed variable, and hands the job to
// print_data, which edits records into one line and gives each finished one to `out`. Where the
// records go is up to the caller: the output channel for PRINT.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "data/run_format.h"
#include "engine/options.h"
#include "engine/workspace.h"

namespace korvel {

enum class PrintForm : std::uint8_t {
  rows,       // (1X, 5G15.7), or 8 under WIDE
  dump,       // (1X, 5E25.17): every bit of a value
  format,     // the user's format
  separated,  // shortest decimals that read back, with a separator between
};

// A listed variable and the part of it that is printed.
struct PrintItem {
  int var = 0;             // number, compound index or temporary
  int type = 0;            // TYPE; SERIES for one column or element; 0 a temporary
  std::int64_t rows = 0;   // observations, or rows of a matrix
  int columns = 1;         // columns of a matrix
  std::int64_t first = 1;  // rows first..last are printed, none when last is below first
  std::int64_t last = 0;
  std::string_view name;
  std::span<const double> data{};
  bool series() const { return type == SERIES; }
  bool triangle() const { return type == SYMMETRIC || type == TRIANGLE; }
  bool text() const { return type == STRING5 || type == CHARVAR; }
};

// The command as it is to be carried out.
struct PrintJob {
  Workspace ws;
  std::vector<PrintItem> items{};
  PrintForm form = PrintForm::rows;
  bool wide = false;     // 8 values a line
  bool byvar = false;    // one variable after the other
  bool names = true;     // name and heading lines
  bool newline = false;  // an empty line between blocks
  char separator = ',';
  RunFormat format{};
  std::span<const double> skip{};  // skip vector, empty when nothing is skipped
  bool skip_missing = false;       // SKIPMISS: nor is a missing value shown in a block of its own
  RecordSink out;                  // false asks to stop

  bool skipped(std::int64_t i) const {
    return i <= static_cast<std::int64_t>(skip.size()) && skip[static_cast<std::size_t>(i - 1)] > 0;
  }
};

// Sends everything. False when it was cut short: the sink asked to stop, or no room for work space
// (reported).
bool print_data(PrintJob& job);

// True when every record that the format would give fits into 130 columns.
bool format_fits(const PrintJob& job);

// True when series are printed side by side.
bool side_by_side(const PrintJob& job);

// Rows first..last that series in columns have in common: those of the shortest that is longer
// than 1.
struct PrintRange {
  std::int64_t first = 1, last = 0;
};
PrintRange common_range(std::span<const PrintItem> items);

}  // namespace korvel
