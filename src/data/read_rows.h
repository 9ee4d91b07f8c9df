// Rows of numbers in free form and in comma- or tab-separated form: the readers under READ.
//
// A block of data is a text and a plan. The plan says how many groups of values there are (rows, or
// variables when the data come one variable after the other, or rows of a triangle), how wide each
// is, and in which form; the target says where the values go. There are two readers with one
// meaning: read_rows goes by lines and knows every rule, read_bulk goes over large regular blocks
// with all threads and stops in front of the first row that is not plain, so that read_rows can go
// on there.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/progress.h"
#include "platform/text_input.h"

namespace korvel {

inline constexpr std::int64_t UNKNOWN = -1;

// The lines of a text one after the other. With a feed, lines are taken from there as they are
// wanted and kept in `hold`, which the text then is.
struct LineCursor {
  std::string_view text;
  std::size_t at = 0;
  std::int64_t line = 0;  // lines passed
  TextInput* feed = nullptr;
  std::string* hold = nullptr;
  const TextInput* source = nullptr;  // whose rest() the text is: passed parts are given back
  Progress* progress = nullptr;       // is told of passed characters

  bool next(std::string_view& out);  // without the line end; false at the end
  void back();                       // makes the line just read the next one again
  // Lengthens the line just read, which `out` holds, by the next one.
  bool join(std::string_view& out);
  // Moves on by n characters that have been dealt with.
  void pass(std::size_t n) {
    at += n;
    told_ = at;
  }
  // A part of the text has been dealt with.
  void done_with(std::string_view part) const;

 private:
  std::size_t before_ = 0;
  std::size_t told_ = 0;  // how far done_with has been called
};

enum class Layout : std::uint8_t { ByObservation, ByVariable, Triangle };

// How a number may be written.
enum class Numbers : std::uint8_t {
  point,   // decimal point
  comma,   // decimal comma; a point too, but not where it may part thousands (1.234)
  points,  // decimal point; a comma too, but not where it may part thousands (1,234)
  either,  // decimal point or comma
  dump,    // decimal point; NaN and Inf as well
};

struct RowPlan {
  Layout layout = Layout::ByObservation;
  bool delimited = false;        // cells between separators, one row a line
  char separator = ',';          // of a delimited block: comma, tab or semicolon
  bool ends_at_command = false;  // a line that begins with a letter ends the block
  bool surplus_is_dropped =
      true;  // false: a line with more values than wanted is left to read_rows
  std::int64_t groups = UNKNOWN;
  std::int64_t values = UNKNOWN;  // of one group; a triangle has as many as the row's number
  int skip_columns = 0;           // leading values of each group that are passed over
  int trailing = 0;               // empty cells that may stand behind the last one of a row
  double missing = 0;             // what an empty cell becomes
  Numbers numbers = Numbers::point;
  std::span<const char> words{};  // 1: this variable takes words of 8 characters; empty: none does

  std::int64_t width(std::int64_t g) const { return layout == Layout::Triangle ? g + 1 : values; }
  bool word(std::int64_t g, std::int64_t k) const {
    if (words.empty()) return false;
    return words[static_cast<std::size_t>(layout == Layout::ByVariable ? g : k)] != 0;
  }
};

// Where values go: element 0 of each column; a triangle has one column, packed by rows.
struct RowTarget {
  std::vector<double*> column;
  double& place(Layout layout, std::int64_t g, std::int64_t k) const {
    switch (layout) {
      case Layout::ByObservation:
        return column[static_cast<std::size_t>(k)][g];
      case Layout::ByVariable:
        return column[static_cast<std::size_t>(g)][k];
      case Layout::Triangle:
        break;
    }
    return column[0][g * (g + 1) / 2 + k];
  }
};

enum class RowEnd : std::uint8_t {
  count,       // all groups of the plan
  terminator,  // END (passed over), or a line that is a command (not passed over)
  end_of_text,
  bad_value,  // group `groups`, value `bad_value` (from 0): `bad_text`
  bad_count,  // a row of cells with `cells` cells instead of `cells_wanted`
  stopped,
};

struct RowsRead {
  std::int64_t groups = 0;   // complete groups
  std::int64_t partial = 0;  // values of the incomplete group behind them
  RowEnd end = RowEnd::count;
  std::int64_t bad_value = 0;
  std::int64_t cells = 0, cells_wanted = 0;
  std::int64_t line = 0;  // line of the fault, counted as LineCursor does
  std::string_view bad_text;
  bool open_quote = false;  // the row holds a quote that is not closed
  std::int64_t cut = 0;     // words that had more than 8 characters
};

// Asked when a value is bad: true to have it entered again. `group` counts from 0.
using Reenter = bool (*)(void* context, std::int64_t group);

// Reads groups `from` .. plan.groups-1. Without a target values are counted only, and looked at
// only when `reenter` is given.
RowsRead read_rows(LineCursor& cursor, const RowPlan& plan, const RowTarget* target,
                   std::int64_t from = 0, Reenter reenter = nullptr, void* context = nullptr);

// What a line is to the block that it stands in.
enum class LineKind : std::uint8_t { blank, data, end_word, command };
LineKind line_kind(std::string_view line, const RowPlan& plan);

// The next value of a line in free form: false at its end. Blanks, tabs and commas part values, and
// double quotes around one are taken off.
bool next_value(std::string_view line, std::size_t& at, std::string_view& value);
// The next cell: at passes its separator. `more` is false behind the last one.
struct Cell {
  std::string_view text;  // without blanks and quotes around it
  bool well_formed = true;
  bool open = false;  // its quote is not closed in this line
};
Cell next_cell(std::string_view line, std::size_t& at, char separator, bool& more);
// Cells of a line; `open` tells that the last one goes on in the next line.
std::int64_t count_cells(std::string_view line, char separator, bool* open = nullptr);
// The next row of cells: lines that a quoted cell reaches over are joined, up to a limit.
bool next_record(LineCursor& cursor, char separator, std::string_view& record);
std::int64_t count_values(std::string_view line);

// A number that takes the whole text; false when it is none.
bool whole_number(std::string_view text, Numbers form, double& value);
// The same for a cell, in which infinities may stand as well (inf, -Inf).
bool cell_number(std::string_view text, Numbers form, double& value);
// 1,234 or 1.234.567: digits that `mark` may part into thousands.
bool grouped_thousands(std::string_view text, char mark);
// The first 8 characters of a text as a word of a character variable, doubled quotes undone; a
// character of several bytes is not cut. `cut` tells that there were more.
double text_word(std::string_view text, bool& cut);
// Empty, NA, N/A, NaN, "." or "**".
bool missing_cell(std::string_view text);

// ---- Large blocks
// --------------------------------------------------------------------------------

// A piece of the block between two line ends.
struct Section {
  std::size_t begin = 0, end = 0;
  std::int64_t rows = 0;   // lines with data
  std::int64_t lines = 0;  // all lines
  std::int64_t first_row = 0;
  std::int64_t first_line = 0;
};
struct BlockScan {
  std::vector<Section> sections;
  std::int64_t rows = 0;
};

// Cuts the text behind the cursor into sections up to the end of the block or until `most` rows are
// covered (UNKNOWN: no limit).
BlockScan scan_block(const LineCursor& cursor, const RowPlan& plan, std::int64_t most);

// Reads the scanned rows, at most `most`, into rows 0, 1, ... of the target, and moves the cursor
// to the first row that was not read. Returns the rows read.
std::int64_t read_bulk(LineCursor& cursor, const BlockScan& scan, const RowPlan& plan,
                       const RowTarget& target, std::int64_t most);

}  // namespace korvel
