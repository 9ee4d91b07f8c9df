// What PRINT and WRITE share: the command as it is to be carried out, and its layouts.
//
// PRINTX and WRITEX fill a PrintJob from the options, check every listed variable, and hand the job
// to print_data, which edits the values and gives the text to the file of the job, or line by line
// to `out`, the output channel.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "data/run_format.h"
#include "data/sample.h"
#include "data/write_rows.h"
#include "engine/options.h"
#include "engine/workspace.h"
#include "platform/file_output.h"

namespace korvel {

// A listed variable and the part of it that is printed.
struct PrintItem {
  int var = 0;             // number, compound index or temporary
  int type = 0;            // TYPE; SERIES for one column or element; 0 a temporary
  std::int64_t rows = 0;   // observations, or rows of a matrix
  int columns = 1;         // columns of a matrix
  std::int64_t first = 1;  // rows first..last are printed, none when last is below first
  std::int64_t last = 0;
  int first_column = 1;  // and of a matrix its columns first_column..last_column
  int last_column = 1;
  std::string_view name;
  std::span<const double> data{};
  bool series() const { return type == SERIES; }
  // Stands in a column beside others: numbers, or words of 8 characters.
  bool column() const { return type == SERIES || type == CHARVAR; }
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
  bool marks_fresh = true;         // the marks of missing data were made for these variables
  bool to_file = false;            // no limit of 130 columns, no lines but data and names
  FileOutput* file = nullptr;      // takes the text of a job to a file
  RecordSink out;                  // takes lines otherwise; false asks to stop

  // Marks of missing data that another command left behind count only where these variables have
  // missing data, too.
  bool skipped(std::int64_t i) const {
    if (i > static_cast<std::int64_t>(skip.size())) return false;
    const double mark = skip[static_cast<std::size_t>(i - 1)];
    if (marks_fresh || mark < SKIP_MISSING) return mark > 0;
    return mark > SKIP_MISSING || (OSCOM.OSMISS && missing_at(i));
  }
  bool missing_at(std::int64_t i) const;
};

// Sends everything. False when it was cut short: the sink asked to stop, the file failed, or there
// is no room for work space (reported).
bool print_data(PrintJob& job);

// True when every record that the user's format would give fits into the columns there are.
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
