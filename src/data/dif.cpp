// DIF, the data interchange format: a header of three-line items, then cells of two lines each.
//
//   TABLE / 0,1 / "title"   VECTORS / 0,columns / ""   TUPLES / 0,rows / ""   DATA / 0,0 / ""
//   -1,0 / BOT              begins a row;  -1,0 / EOD ends the data
//   0,number / V            a number; any other word than V (NA, ERROR) makes it missing
//   1,0 / "text"            a string: a name in the row of names, else a missing value
//
// A file is read twice: the first time finds every fault and the counts, so that the second one,
// which stores, can't fail.

#include <charconv>
#include <cstring>
#include <vector>

#include "data/container_parts.h"
#include "data/read_options.h"
#include "engine/output.h"

namespace korvel {
namespace {

// ---- Cells
// ---------------------------------------------------------------------------------------

enum class CellKind : std::uint8_t { row, end, number, text, bad };

struct DifCell {
  CellKind kind = CellKind::bad;
  double value = 0;
  std::string_view text;
};

// "a,b": the type in front of the comma and what stands behind it.
bool split_pair(std::string_view line, int& type, std::string_view& value) {
  const auto comma = line.find(',');
  if (comma == std::string_view::npos) return false;
  const std::string_view head = trimmed(line.substr(0, comma));
  const auto read = std::from_chars(head.data(), head.data() + head.size(), type);
  value = trimmed(line.substr(comma + 1));
  return read.ec == std::errc{} && read.ptr == head.data() + head.size();
}

std::string_view unquoted(std::string_view text) {
  text = trimmed(text);
  if (!text.empty() && text.front() == '"') text.remove_prefix(1);
  if (!text.empty() && text.back() == '"') text.remove_suffix(1);
  return trimmed(text);
}

DifCell next_dif_cell(LineCursor& cursor) {
  DifCell cell;
  std::string_view first, second, value;
  int type = 0;
  if (!cursor.next(first) || !split_pair(first, type, value) || !cursor.next(second)) return cell;
  const std::string_view word = trimmed(second);
  if (type == -1) {
    if (word == "BOT") cell.kind = CellKind::row;
    if (word == "EOD") cell.kind = CellKind::end;
  } else if (type == 1) {
    cell = {CellKind::text, MACOM.XMISS, unquoted(second)};
  } else if (type == 0) {
    cell = {CellKind::number, MACOM.XMISS, value};
    if (word == "V") {
      const char* p = value.data();
      const char* const end = p + value.size();
      if (!scan_exact(p, end, cell.value) || p != end) cell.kind = CellKind::bad;
    }
  }
  return cell;
}

// ---- READ
// ----------------------------------------------------------------------------------------

struct DifScan {
  LineCursor data;  // behind the header
  std::int64_t columns = UNKNOWN;
  std::int64_t rows = 0;  // groups of BOT, the row of names among them
  std::vector<std::string> names;
};

bool bad_dif(const LineCursor& cursor, const ReadJob& job) {
  fail<"(' ...ERROR..BAD DIF FILE NEAR LINE', I6)">(job.first_line + cursor.line);
  return false;
}

bool scan_header(ReadJob& job, DifScan& scan) {
  for (;;) {
    std::string_view keyword, pair, title, value;
    int type = 0;
    if (!job.cursor.next(keyword) || !job.cursor.next(pair) || !split_pair(pair, type, value) ||
        !job.cursor.next(title)) {
      return bad_dif(job.cursor, job);
    }
    keyword = trimmed(keyword);
    if (keyword == "VECTORS") {
      const char* p = value.data();
      double columns = 0;
      if (!scan_number(p, value.data() + value.size(), columns) || !(columns >= 1) ||
          columns > 2147483647.0) {
        return bad_dif(job.cursor, job);
      }
      scan.columns = static_cast<std::int64_t>(columns);
    }
    if (keyword == "DATA") break;
  }
  scan.data = job.cursor;
  return true;
}

// Counts the rows and checks every cell. The rows that there are decide, whatever TUPLES says.
bool scan_rows(ReadJob& job, bool with_names, DifScan& scan) {
  std::int64_t cells = 0;
  for (;;) {
    const DifCell cell = next_dif_cell(job.cursor);
    const bool boundary = cell.kind == CellKind::row || cell.kind == CellKind::end;
    if (cell.kind == CellKind::bad) return bad_dif(job.cursor, job);
    if (!boundary) {
      if (scan.rows == 0) return bad_dif(job.cursor, job);
      if (with_names && scan.rows == 1) {
        scan.names.emplace_back(cell.kind == CellKind::text ? cell.text : std::string_view{});
      }
      ++cells;
      continue;
    }
    if (scan.rows > 0) {
      if (scan.columns == UNKNOWN) scan.columns = cells;
      if (cells != scan.columns) return bad_dif(job.cursor, job);
    }
    if (cell.kind == CellKind::end) return true;
    cells = 0;
    ++scan.rows;
    if (stop_requested()) {
      mark_failed();
      return false;
    }
  }
}

// The names become variables by the rules of any row of names.
void name_items(ReadJob& job, const DifScan& scan, std::size_t skipped) {
  std::string line;
  for (std::size_t k = skipped; k < scan.names.size(); ++k) {
    if (k > skipped) line += '\t';
    for (const char c : scan.names[k]) line += c == '\t' || c == '"' ? ' ' : c;
  }
  const RowPlan plan = job.plan;
  job.plan.delimited = true;
  job.plan.separator = '\t';
  job.plan.skip_columns = 0;
  read_names(job, line);
  job.plan = plan;
  for (ReadItem& item : job.items) {
    item.var = VARNUM(job.ws, item.key());
    if (item.var > 0) warn<"(' ...WARNING..VARIABLE:', A, ' CURRENTLY EXISTS')">(item.name);
  }
}

void note_dif(const ReadJob& job, std::int64_t columns, std::int64_t rows, bool names) {
  if (!OCOM.OPUT) return;
  say<"(' ...NOTE..DIF FILE HAS', I4, ' COLUMNS AND', I6, ' ROWS')">(columns, rows);
  if (!names) return;
  say(" DIF FILE CONTAINS VARIABLES: ");
  WordRows words(8);
  for (const ReadItem& item : job.items) words.add(item.key());
  words.end();
}

// Series, or one matrix under ROWS or COLS. The file gives the counts.
bool plan_dif(ReadJob& job, std::int64_t columns, std::int64_t rows) {
  constexpr int COLS = READOPT.place("COLS"), ROWS = READOPT.place("ROWS");
  if (logical_option(READOPT.place("SYMAT")) || logical_option(READOPT.place("TRIMAT"))) {
    fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
    return false;
  }
  OPTCOM.LOPT[READOPT.place("EOF")] = true;
  if (integer_given(ROWS) && !integer_given(COLS)) {
    OPTCOM.IOPT[COLS] = static_cast<int>(columns);
    OPTCOM.igiven[COLS] = true;
  }
  if (!plan_matrix(job)) return false;
  if (!job.matrix) job.plan.values = static_cast<std::int64_t>(job.items.size());
  if (job.plan.values != columns) {
    fail<"(' ...ERROR..DIF FILE HAS ', I4, ' VARS, NOT ', I4, ' VARS')">(columns, job.plan.values);
    return false;
  }
  if (job.most == UNKNOWN || job.most > rows) job.most = rows;
  if (job.count == UNKNOWN || job.count > job.most) job.count = job.most;
  job.from_data = true;
  return true;
}

void store_dif(ReadJob& job, LineCursor cursor, std::int64_t skip_rows, std::int64_t skip_columns) {
  std::int64_t row = -1 - skip_rows, column = 0;
  for (;;) {
    const DifCell cell = next_dif_cell(cursor);
    if (cell.kind == CellKind::row) {
      if (++row == job.count) return;
      column = -skip_columns;
      continue;
    }
    if (cell.kind == CellKind::end || cell.kind == CellKind::bad) return;
    if (row >= 0 && column >= 0) {
      job.target.column[static_cast<std::size_t>(column)][row] = cell.value;
    }
    ++column;
  }
}

}  // namespace

bool read_dif(ReadJob& job) {
  gather_all(job);
  // 1. The whole file: its structure and every value.
  const bool names = logical_option(READOPT.place("NAMES"));
  DifScan scan;
  if (!scan_header(job, scan) || !scan_rows(job, names, scan)) return false;
  const std::int64_t skip_rows =
      std::max(integer_option(READOPT.place("SKIPROWS")), 0) + (names ? 1 : 0);
  const std::int64_t skip_columns = std::max(integer_option(READOPT.place("SKIPCOLS")), 0);
  const std::int64_t rows = scan.rows - skip_rows, columns = scan.columns - skip_columns;
  if (rows < 1 || columns < 1) {
    fail(" ...ERROR..NO DATA FOUND");
    return false;
  }
  // 2. The variables.
  if (names && !job.items.empty()) {
    fail(" ...ERROR..WITH NAMES OPTION, DO NOT LIST VARIABLES");
    return false;
  }
  if (names) name_items(job, scan, static_cast<std::size_t>(skip_columns));
  note_dif(job, columns, rows, names);
  if (job.items.empty()) {
    fail(" ...ERROR..NO VARIABLES LISTED..LIST THEM OR USE THE NAMES OPTION");
    return false;
  }
  if (std::ssize(job.items) > DATCOM.MAXVAR) {
    fail<"(' ...ERROR..READ COMMAND ALLOWS ONLY', I4, ' VARIABLES')">(DATCOM.MAXVAR);
    return false;
  }
  // 3. Their storage, and the values.
  if (!plan_dif(job, columns, rows) || !make_storage(job)) return false;
  store_dif(job, scan.data, skip_rows, skip_columns);
  return true;
}

// ---- WRITE
// ---------------------------------------------------------------------------------------

namespace {

void put_cell(FileOutput& file, double value) {
  const auto room = file.room(EXACT_ROOM + 8);
  char* end = room.data();
  const auto put = [&](std::string_view text) {
    std::memcpy(end, text.data(), text.size());
    end += text.size();
  };
  put("0,");
  if (value == MACOM.XMISS) {
    put("0\nNA\n");
  } else {
    end = put_exact(end, value, true);
    put("\nV\n");
  }
  file.advance(static_cast<std::size_t>(end - room.data()));
}

void put_group(FileOutput& file, std::string_view keyword, std::int64_t count,
               std::string_view title) {
  std::array<char, EXACT_ROOM> digits;
  const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), count).ptr;
  file.write(keyword);
  file.write("\n0,");
  file.write({digits.data(), static_cast<std::size_t>(end - digits.data())});
  file.write("\n\"");
  file.write(title);
  file.write("\"\n");
}

// Row i and column j of a matrix; a packed one is written as the square that it stands for.
double matrix_element(const PrintItem& x, std::int64_t i, std::int64_t j) {
  if (!x.triangle()) return x.data[static_cast<std::size_t>((j - 1) * x.rows + i - 1)];
  if (j > i && x.type == TRIANGLE) return 0.0;
  if (j > i) std::swap(i, j);
  return x.data[static_cast<std::size_t>(i * (i - 1) / 2 + j - 1)];
}

struct DifRange {
  std::int64_t first = 1, last = 1;
};

// Rows that the series have in common; matrices must have just as many.
bool dif_range(const PrintJob& job, DifRange& range) {
  const PrintRange common = common_range(job.items);
  range = {common.first, common.last};
  bool series = false;
  for (const PrintItem& x : job.items) series = series || (x.series() && x.rows > 1);
  for (const PrintItem& x : job.items) {
    const bool matrix = x.type == MATRIX2 || x.triangle();
    if (matrix && !series) {
      range = {x.first, x.last};
      series = true;
    }
    if (x.text() || (matrix && (x.first != range.first || x.last != range.last))) {
      fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
      return false;
    }
  }
  return true;
}

std::int64_t width(const PrintItem& x) {
  return x.triangle() ? x.rows : x.type == MATRIX2 ? x.columns : 1;
}

void put_names(const PrintJob& job, FileOutput& file) {
  file.write("-1,0\nBOT\n");
  for (const PrintItem& x : job.items) {
    for (std::int64_t j = 1; j <= width(x); ++j) {
      file.write("1,0\n\"");
      file.write(x.name);
      if (width(x) > 1) file.write(":" + std::to_string(j));
      file.write("\"\n");
    }
  }
}

void put_row(const PrintJob& job, std::int64_t i, FileOutput& file) {
  file.write("-1,0\nBOT\n");
  for (const PrintItem& x : job.items) {
    if (x.type == 0) {
      put_cell(file, TEMCOM.TEMVAL[static_cast<std::size_t>(-x.var - 1)]);
    } else if (x.series()) {
      put_cell(file, x.data[static_cast<std::size_t>(x.rows == 1 ? 0 : i - 1)]);
    } else {
      for (std::int64_t j = 1; j <= width(x); ++j) put_cell(file, matrix_element(x, i, j));
    }
  }
}

}  // namespace

bool write_dif(const PrintJob& job, FileOutput& file) {
  // 1. Shape.
  DifRange range;
  if (!dif_range(job, range)) return false;
  std::int64_t columns = 0, rows = 0;
  for (const PrintItem& x : job.items) columns += width(x);
  const auto skipped = [&](std::int64_t i) { return range.last > range.first && job.skipped(i); };
  for (std::int64_t i = range.first; i <= range.last; ++i) rows += skipped(i) ? 0 : 1;
  if (rows < 1) {
    fail<"(' ...ERROR..THERE IS NO DATA ON VARIABLE ', A)">(job.items[0].name);
    return false;
  }
  // 2. Header.
  put_group(file, "TABLE", 1, "KORVEL");
  put_group(file, "VECTORS", columns, "");
  put_group(file, "TUPLES", rows, "");
  put_group(file, "DATA", 0, "");
  // 3. The row of names, which TUPLES doesn't count, and the data.
  if (job.names) put_names(job, file);
  for (std::int64_t i = range.first; i <= range.last; ++i) {
    if (!skipped(i)) put_row(job, i, file);
    if (file.error() != 0) break;
    if (stop_requested()) {
      mark_failed();
      return false;
    }
  }
  file.write("-1,0\nEOD\n");
  return true;
}

}  // namespace korvel
