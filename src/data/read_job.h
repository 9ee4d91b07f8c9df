// One READ while it runs: what was asked for, where the text stands, what has been made.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "data/read_rows.h"
#include "data/run_format.h"
#include "engine/units.h"
#include "engine/workspace.h"
#include "platform/progress.h"

namespace korvel {

// A variable to be filled.
struct ReadItem {
  int var = 0;                   // 0: new; a column is folded in
  int column = 0;                // of a new matrix
  std::int64_t old_length = -1;  // elements before this READ
  std::string name;              // up to 24 characters; the first 8 are what commands know it by
  bool word = false;             // takes words of 8 characters: a character variable
  bool arrived = false;          // a container has filled it
  std::string_view key() const { return std::string_view(name).substr(0, KEYLEN); }
};

struct ReadJob {
  Workspace ws;
  // Source.
  bool stream = true;           // data stand in the command stream
  DataUnit* unit = nullptr;     // else the file
  std::string file;             // its name as typed, empty for a unit
  std::string form_name;        // the name by whose end the form is told: without .gz
  std::string shown;            // its name for messages, the last part when it is long
  std::string temporary;        // a plain, fetched or converted copy, deleted at the end
  std::int64_t first_line = 0;  // lines of the source before the text
  std::string hold;             // lines of a source that isn't in memory as a whole
  std::string converted;        // the text with other line ends, of the same length
  std::size_t cut_off = 0;      // characters of rows without content at the end of the text
  bool gathered_all = false;    // they reach to the end of the block
  LineCursor cursor;
  // Form.
  bool spreadsheet = false;  // a converted workbook: cells with commas
  RowPlan plan;
  bool formatted = false;
  RunFormat format;
  std::int64_t names_line = 0;  // line of the row of names, 0 none
  std::vector<char> words;      // plan.words looks at it
  // Contents.
  std::vector<ReadItem> items;
  bool container = false;  // variables came whole, with the shapes that their file gives
  bool reported = false;   // what was read has been told already
  bool matrix = false;
  int matrix_type = 0;           // MATRIX2, SYMMETRIC, TRIANGLE (SERIES for one column)
  std::int64_t beg = 1;          // first observation or row
  std::int64_t count = UNKNOWN;  // observations or rows
  std::int64_t most = UNKNOWN;   // no more than that when the data give the count
  std::int64_t cols = 0, colb = 1;
  bool from_data = false;  // the data give the count
  RowTarget target;
  // What the places of target.column held before, from the first on: put back after a fault.
  std::vector<std::vector<double>> kept;

  // Text, line and values of the fault, or of the end.
  RowsRead read;

  // The file for messages.
  std::string_view where() const { return stream ? std::string_view("INPUT") : shown; }
};

// ---- Source

// The value of the FORMAT option.
std::string_view format_option();
// Whether a name ends with `tail`, which is in capitals, in either case.
bool name_ends_with(std::string_view name, std::string_view tail);
// What carries the data, told by the options, the name of the file and its first bytes.
enum class FileForm : std::uint8_t;
// The unit or file that is read, and its text from the place where this READ begins. False after
// the failure has been reported.
bool open_source(ReadJob& job, FileForm& form);
// Leaves the source where the reading stopped, and deletes a temporary copy.
void leave_source(ReadJob& job);
// A READ of files that the options or settings name, whose data are not in the command stream.
bool reads_a_file();
// True, after a line that says why, when the source could not be read to its end.
bool source_failed(const ReadJob& job);

// ---- Cells

// Whether the text is one of cells, and how they are parted: looks at the first rows. False after a
// failure that has been reported.
bool find_dialect(ReadJob& job);
// What stands in the first rows, once the variables are known: decimal mark, empty last cells.
void study_cells(ReadJob& job);
// Rows of nothing but separators at the end of the text are no observations, nor are blank records.
void cut_empty_rows(ReadJob& job);
// The note on what was taken for what.
void note_dialect(const ReadJob& job);
// What a user can do about the cell or row at which reading stopped; empty when nothing is known.
std::string_view cell_advice(const ReadJob& job);

// ---- Characters

// READ / CHARSTR: lines of text into character strings. False after a reported failure.
bool read_character_strings(ReadJob& job);
// Which items are character variables: CHARVARS, CHARVAR, and the A descriptors of a format.
bool choose_words(ReadJob& job);

// Names of a NAMES row, made into names that commands can spell: letters, digits and "_" only, the
// first 8 characters different from one another. Changed ones are listed. False after a failure.
bool read_names(ReadJob& job, std::string_view line);
// Leading names that belong to columns which SKIPCOLS passes over.
void drop_skipped_names(ReadJob& job, std::string_view names_line);

// Rows of a READ with a format, by the rules of read_rows.
RowsRead read_formatted(LineCursor& cursor, const ReadJob& job, const RowPlan& plan,
                        const RowTarget* target, std::int64_t from);

// Brings the lines of a source that isn't in memory there, so that they can be read like any text.
void gather(ReadJob& job);
// Reads the rows into variables. False when the command is at its end.
bool read_data(ReadJob& job);
// What follows the last value read: `value` in every place up to the count, blanks in words.
void fill_rest(ReadJob& job, double value);

// Faults of the data; false when one ends the command.
bool report_fault(ReadJob& job);
// The note on what was read, and the sample when there was none.
void report_success(const ReadJob& job);

// Makes the variables of the job long enough for job.count and points the target at them. False
// after the failure has been reported.
bool make_storage(ReadJob& job);
// Observations that the variables of the job, all new, have room for; UNKNOWN when it can't be
// told.
std::int64_t room_for_rows(const ReadJob& job);
// After a fault variables that were there before are as they were, in values and length.
void put_back_old(ReadJob& job);
// Takes new variables away again when nothing was read into them.
void drop_new_variables(ReadJob& job);
// Gives back the length beyond `rows` when the data were fewer than the storage made for them.
void trim_storage(ReadJob& job, std::int64_t rows);
// The matrix that is asked for, or the series of a list: shape checks before anything is read.
bool plan_matrix(ReadJob& job);
bool plan_series(ReadJob& job);

}  // namespace korvel
