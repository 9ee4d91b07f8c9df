// Comma- and tab-separated text as people have it: how cells are parted and numbers written, told
// from the first rows, and what to advise where a cell is no number.

#include <algorithm>
#include <array>

#include "data/read_job.h"
#include "data/read_options.h"
#include "engine/output.h"

namespace korvel {
namespace {

// The first rows that are looked at.
constexpr std::size_t STUDIED_BYTES = std::size_t{1} << 16;
constexpr int STUDIED_ROWS = 500;

// Separators in the order in which they are tried: a text of rows with a semicolon each has decimal
// commas at best.
constexpr std::string_view SEPARATORS = ";,\t|";

// The first rows that hold something, up to the end of the block; `separator` parts their cells.
// The first one may begin with a letter when it holds names.
std::vector<std::string_view> first_rows(const ReadJob& job, char separator) {
  std::vector<std::string_view> rows;
  if (job.cursor.feed != nullptr) return rows;
  LineCursor ahead = job.cursor;
  ahead.source = nullptr;
  ahead.progress = nullptr;
  ahead.text = ahead.text.substr(0, ahead.at + STUDIED_BYTES);
  const bool all = ahead.text.size() == job.cursor.text.size();
  const bool names = logical_option(READOPT.place("NAMES")) && job.names_line == 0;
  RowPlan plan = job.plan;
  plan.delimited = true;
  plan.separator = separator;
  std::string_view row;
  for (int n = 0; n < STUDIED_ROWS && next_record(ahead, separator, row); ++n) {
    if (!all && ahead.at >= ahead.text.size()) break;  // cut off
    const LineKind kind = line_kind(row, plan);
    if (kind == LineKind::blank) continue;
    if (kind != LineKind::data && !(names && rows.empty())) break;
    rows.push_back(row);
  }
  return rows;
}

// The separator that cuts every row into the same number of cells, above one; else one that the
// first row has; else the comma.
char best_separator(const ReadJob& job, std::string_view first) {
  for (const char separator : SEPARATORS) {
    const auto rows = first_rows(job, separator);
    if (rows.empty()) break;
    const std::int64_t cells = count_cells(rows[0], separator);
    const bool even = std::ranges::all_of(
        rows, [&](std::string_view row) { return count_cells(row, separator) == cells; });
    if (even && cells > 1) return separator;
  }
  for (const char separator : SEPARATORS) {
    if (count_cells(first, separator) > 1) return separator;
  }
  return ',';
}

// A first line that names the separator, as spreadsheets write it: sep=;
bool names_separator(std::string_view line, char& separator) {
  line = trimmed(line);
  if (line.size() >= 2 && line.front() == '"') line = line.substr(1, line.size() - 2);
  if (line.size() != 5 || upper(line[0]) != 'S' || upper(line[1]) != 'E' || upper(line[2]) != 'P') {
    return false;
  }
  if (line[3] != '=' || SEPARATORS.find(line[4]) == std::string_view::npos) return false;
  separator = line[4];
  return true;
}

// A comma or point with digits on both sides, in a text that is otherwise a number.
bool decimal_with(std::string_view text, char mark) {
  const std::size_t at = text.find(mark);
  double value = 0;
  return at != std::string_view::npos &&
         cell_number(text, mark == ',' ? Numbers::either : Numbers::point, value);
}

// What the first rows show about decimal marks: a cell such as 1,234 shows nothing, for its comma
// may part thousands.
Numbers number_form(const std::vector<std::string_view>& rows, char separator) {
  bool commas = false, sure_commas = false, points = false;
  for (const std::string_view row : rows) {
    bool more = true;
    for (std::size_t at = 0; more;) {
      const Cell cell = next_cell(row, at, separator, more);
      if (decimal_with(cell.text, ',')) {
        commas = true;
        sure_commas = sure_commas || !grouped_thousands(cell.text, ',');
      } else if (decimal_with(cell.text, '.')) {
        points = points || !grouped_thousands(cell.text, '.');
      }
    }
  }
  if (separator == ';') {
    if (commas) return Numbers::comma;
    return points ? Numbers::points : Numbers::either;
  }
  return sure_commas && !points ? Numbers::comma : Numbers::point;
}

bool all_empty_from(std::string_view row, char separator, std::int64_t from) {
  bool more = true;
  std::size_t at = 0;
  for (std::int64_t k = 0; more; ++k) {
    const Cell cell = next_cell(row, at, separator, more);
    if (k >= from && !cell.text.empty()) return false;
  }
  return true;
}

std::string_view separator_name(char separator) {
  switch (separator) {
    case ';':
      return "SEMICOLON";
    case '\t':
      return "TAB";
    case '|':
      return "|";
    default:
      return "COMMA";
  }
}

bool looks_like_date(std::string_view text) {
  int groups = 0, marks = 0;
  bool digits = false;
  for (const char c : text) {
    if (NAMCHK(c) == 0) {
      if (!digits) ++groups;
      digits = true;
    } else if (c == '-' || c == '/' || c == '.' || c == ':') {
      if (!digits) return false;
      ++marks;
      digits = false;
    } else if (c != ' ' && c != 'T') {
      return false;
    } else {
      digits = false;
    }
  }
  return groups >= 2 && marks >= 1;
}

bool holds_any(std::string_view text, std::string_view marks) {
  return text.find_first_of(marks) != std::string_view::npos;
}

}  // namespace

bool find_dialect(ReadJob& job) {
  const std::string_view format = format_option();
  const bool tab = format == "TAB" || (format.empty() && name_ends_with(job.form_name, ".TSV"));
  const bool comma = format == "COMMA" ||
                     (format.empty() && name_ends_with(job.form_name, ".CSV")) ||
                     (format.empty() && job.spreadsheet);
  job.plan.delimited = tab || comma;
  if (!job.plan.delimited) return true;
  job.plan.separator = tab ? '\t' : ',';
  // The first line that holds something.
  std::string_view line;
  LineCursor ahead = job.cursor;
  if (ahead.feed != nullptr) {
    if (!job.cursor.next(line)) return true;
    job.cursor.back();
  } else {
    while (ahead.next(line) && trimmed(line).empty()) {
    }
    char named = 0;
    if (names_separator(line, named)) {
      job.cursor = ahead;
      job.plan.separator = named;
      return true;
    }
  }
  const std::string first(line);
  if (comma && !job.spreadsheet) job.plan.separator = best_separator(job, first);
  return true;
}

void study_cells(ReadJob& job) {
  RowPlan& plan = job.plan;
  if (!plan.delimited) return;
  const auto rows = first_rows(job, plan.separator);
  plan.numbers = number_form(rows, plan.separator);
  if (job.cursor.feed != nullptr && plan.separator == ';') plan.numbers = Numbers::either;
  if (job.matrix || plan.layout != Layout::ByObservation || rows.empty()) return;
  // Every row may end with a separator or more: cells that are empty and without a name.
  const auto wanted = static_cast<std::int64_t>(job.items.size()) + plan.skip_columns;
  std::int64_t most = 0;
  for (const std::string_view row : rows) {
    most = std::max(most, count_cells(row, plan.separator));
    if (!all_empty_from(row, plan.separator, wanted)) return;
  }
  plan.trailing = static_cast<int>(std::max<std::int64_t>(most - wanted, 0));
}

void cut_empty_rows(ReadJob& job) {
  const bool cells = job.plan.delimited;
  if (!(cells || job.formatted) || job.stream || job.cursor.feed != nullptr) return;
  std::string_view& text = job.cursor.text;
  const char separator = cells ? job.plan.separator : ' ';
  const auto nothing = [&](char c) {
    return c == separator || c == ' ' || c == '\t' || c == '\r' || c == '\n';
  };
  std::size_t end = text.size();
  while (end > job.cursor.at && nothing(text[end - 1])) --end;
  if (end == job.cursor.at) return;  // all of it: NO DATA FOUND says so
  end = text.find('\n', end);
  if (end == std::string_view::npos) return;
  job.cut_off = text.size() - (end + 1);
  const std::string_view tail = text.substr(end + 1);
  const bool rows = cells && tail.find(separator) != std::string_view::npos;
  text = text.substr(0, end + 1);
  if (rows && OCOM.OPUT) {
    say<"(' ...NOTE..FILE ', A, ': EMPTY ROWS AT THE END ARE LEFT OUT')">(job.shown);
  }
}

void note_dialect(const ReadJob& job) {
  if (!OCOM.OPUT || !job.plan.delimited) return;
  const std::string_view mark = job.plan.numbers == Numbers::comma ? "COMMA" : "POINT";
  const std::string_view separator = separator_name(job.plan.separator);
  if (job.names_line > 0) {
    say<"(' ...NOTE..FILE ', A, ': CELLS PARTED BY ', A, ', DECIMAL ', A, ', NAMES IN LINE ', I0)">(
        job.where(), separator, mark, job.names_line);
  } else {
    say<"(' ...NOTE..FILE ', A, ': CELLS PARTED BY ', A, ', DECIMAL ', A, ', NO NAMES')">(
        job.where(), separator, mark);
  }
}

std::string_view cell_advice(const ReadJob& job) {
  const RowsRead& read = job.read;
  const bool names = logical_option(READOPT.place("NAMES"));
  const bool first = read.groups == 0;
  if (read.open_quote) return " ...NOTE..A QUOTE IS OPENED THERE THAT DOES NOT CLOSE A CELL";
  if (read.end == RowEnd::bad_count) {
    const bool number = !read.bad_text.empty() && NAMCHK(read.bad_text[0]) != 1;
    if (read.cells_wanted == 1 && read.cells == 2 && number) {
      return " ...NOTE..IN A FILE WITH DECIMAL COMMAS SEMICOLONS MUST PART THE CELLS";
    }
    if (first && names && read.cells > read.cells_wanted) {
      return " ...NOTE..SKIPLINE=n PASSES OVER LINES IN FRONT OF THE NAMES; EVERY COLUMN NEEDS A "
             "NAME";
    }
    if (first && !names && !job.matrix && read.cells != read.cells_wanted) {
      return " ...NOTE..LIST A VARIABLE FOR EACH COLUMN; SKIPCOLS=n PASSES OVER LEADING ONES";
    }
    if (read.cells > read.cells_wanted && job.plan.separator == ',') {
      return " ...NOTE..A CELL WITH A COMMA IN IT MUST STAND IN QUOTES";
    }
    return {};
  }
  const std::string_view bad = read.bad_text;
  const auto last = static_cast<std::int64_t>(job.items.size()) - 1;
  if (first && !names && NAMCHK(bad.empty() ? ' ' : bad[0]) == 1) {
    return " ...NOTE..THE NAMES OPTION TAKES VARIABLE NAMES FROM THE FIRST ROW";
  }
  const bool digits = holds_any(bad, "0123456789");
  if (digits && (holds_any(bad, "%$") || bad.find("\xE2\x82\xAC") != std::string_view::npos ||
                 bad.find("\xC2\xA3") != std::string_view::npos ||
                 bad.find("\xC2\xA5") != std::string_view::npos)) {
    return " ...NOTE..TAKE PER CENT AND CURRENCY SIGNS OUT OF THE NUMBERS";
  }
  if (grouped_thousands(bad, ',') || grouped_thousands(bad, '.') || grouped_thousands(bad, ' ') ||
      grouped_thousands(bad, '\'') || (digits && holds_any(bad, ",") && holds_any(bad, "."))) {
    return " ...NOTE..WRITE THE NUMBERS WITHOUT SEPARATORS OF THOUSANDS";
  }
  if (digits && bad[0] == '(') return " ...NOTE..WRITE NEGATIVE NUMBERS WITH A MINUS SIGN";
  if (read.bad_value == 0 && !job.matrix) {
    if (last == 0 && job.plan.skip_columns == 0 && holds_any(bad, " ")) {
      return " ...NOTE..FORMAT=FREE READS VALUES THAT BLANKS PART";
    }
    return looks_like_date(bad)
               ? " ...NOTE..SKIPCOLS=1 PASSES OVER A FIRST COLUMN OF DATES; TIME GIVES THE CALENDAR"
               : " ...NOTE..SKIPCOLS=1 PASSES OVER THE FIRST COLUMN";
  }
  if (digits && bad.find(',') != std::string_view::npos) {
    return " ...NOTE..DECIMAL COMMAS ARE READ WHERE SEMICOLONS PART THE CELLS";
  }
  if (first && names && integer_option(READOPT.place("SKIPROWS")) == 0) {
    return " ...NOTE..SKIPROWS=1 PASSES OVER A ROW OF UNITS OR LABELS BELOW THE NAMES";
  }
  if (read.bad_value == last && !job.matrix) {
    return " ...NOTE..CHARVARS=1 READS A LAST COLUMN OF TEXT INTO A CHARACTER VARIABLE";
  }
  return " ...NOTE..A MISSING VALUE IS AN EMPTY CELL, NA, N/A, NaN, . OR **";
}

}  // namespace korvel
