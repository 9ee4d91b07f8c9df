// One READ while it runs: what was asked for, where the text stands, what has been made.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/read_rows.h"
#include "engine/units.h"
#include "data/run_format.h"
#include "engine/workspace.h"

namespace korvel {

// A variable to be filled.
struct ReadItem {
  int var = 0;                   // 0: new; a column is folded in
  int column = 0;                // of a new matrix
  std::int64_t old_length = -1;  // elements before this READ
  std::string name;              // up to 24 characters; the first 8 are what commands know it by
  std::string_view key() const { return std::string_view(name).substr(0, KEYLEN); }
};

struct ReadJob {
  Workspace ws;
  // Source.
  bool stream = true;           // data stand in the command stream
  DataUnit* unit = nullptr;     // else the file
  std::string shown;            // its name for messages, the last part when it is long
  std::int64_t first_line = 0;  // lines of the source before the text
  std::string hold;             // lines of a source that isn't in memory as a whole
  bool gathered_all = false;    // they reach to the end of the block
  LineCursor cursor;
  // Form.
  RowPlan plan;
  bool formatted = false;
  RunFormat format;
  // Contents.
  std::vector<ReadItem> items;
  bool matrix = false;
  int matrix_type = 0;           // MATRIX2, SYMMETRIC, TRIANGLE (SERIES for one column)
  std::int64_t beg = 1;          // first observation or row
  std::int64_t count = UNKNOWN;  // observations or rows
  std::int64_t most = UNKNOWN;   // no more than that when the data give the count
  std::int64_t cols = 0, colb = 1;
  bool from_data = false;  // the data give the count
  RowTarget target;

  // Text, line and values of the fault, or of the end.
  RowsRead read;
};

// Names of a NAMES row, made into names that commands can spell: letters, digits and "_" only, the
// first 8 characters different from one another. Changed ones are listed.
void read_names(ReadJob& job, std::string_view line);
// Leading names that belong to columns which SKIPCOLS passes over.
void drop_skipped_names(ReadJob& job, std::string_view names_line);

// Rows of a READ with a format, by the rules of read_rows.
RowsRead read_formatted(LineCursor& cursor, const ReadJob& job, const RowPlan& plan,
                        const RowTarget* target, std::int64_t from);

// Brings the lines of a source that isn't in memory there, so that they can be read like any text.
void gather(ReadJob& job);
// Reads the rows into variables. False when the command is at its end.
bool read_data(ReadJob& job);
// What follows the last value read: `value` in every place up to the count.
void fill_rest(ReadJob& job, double value);

// Faults of the data; false when one ends the command.
bool report_fault(ReadJob& job);
// The note on what was read, and the sample when there was none.
void report_success(const ReadJob& job);

// Makes the variables of the job long enough for job.count and points the target at them. False
// after the failure has been reported.
bool make_storage(ReadJob& job);
// Takes new variables away again when nothing was read into them.
void drop_new_variables(ReadJob& job);
// Gives back the length beyond `rows` when the data were fewer than the storage made for them.
void trim_storage(ReadJob& job, std::int64_t rows);
// The matrix that is asked for, or the series of a list: shape checks before anything is read.
bool plan_matrix(ReadJob& job);
bool plan_series(ReadJob& job);

}  // namespace korvel
