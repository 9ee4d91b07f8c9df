// GETDB: databanks of one variable a file, NAME.DB, for READ and WRITE / DB and for SET DB.
//
//   "cCREATED BY KORVEL FOR  VARIABLE: X       "
//   I4    periods a year, 0 without a calendar          I4  rows     of a matrix
//   F8.2  first date, year.period, or observation       I4  columns
//   F8.2  last date                                     values column by column
//   values in free form
//
// A matrix is told from a series by the line of columns, which has no decimal point. Where a bank
// lies is set by BANKNAME (folder or first part of the path), BANKTYPE (suffix, .DB by itself) and
// BANKFORM (DB, or a container: KORVEL, BINARY, SBINARY).

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <memory>

#include "data/container_parts.h"
#include "data/read_options.h"
#include "engine/files.h"
#include "engine/host.h"
#include "engine/output.h"
#include "engine/set.h"
#include "expr/operators.h"

namespace korvel {
namespace {

constexpr std::string_view OWN_HEAD = "\"cCREATED BY KORVEL FOR  VARIABLE: ";
constexpr int MANY_PERIODS = 100;  // from here on a date has three decimals
constexpr int MOST_PERIODS = 999;

// ---- Places
// --------------------------------------------------------------------------------------

bool is_folder(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
bool is_file(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// The part of the path in front of the name of a variable.
std::string bank_folder() {
  const std::string_view name = trimmed(word_setting("BANKNAME"));
  std::string folder = name.empty() ? std::string{} : resolve_write_name(name);
  if (!folder.empty() && folder.back() != '/' && is_folder(folder)) folder += '/';
  return folder;
}
std::string bank_suffix() {
  const std::string type(trimmed(word_setting("BANKTYPE")));
  if (type.empty()) return ".DB";
  return type[0] == '.' ? type : "." + type;
}
std::string in_lower_case(std::string text) {
  LCUC(text.data(), -static_cast<int>(text.size()));
  return text;
}

// The file of a variable, its name in capitals or in small letters; empty when there is none. Names
// of variables hold nothing that leads out of the folder.
std::string bank_file(std::string_view name) {
  if (!legal_name(name) || name.find('$') != std::string_view::npos) return {};
  const std::string path = bank_folder();
  const std::string suffix = bank_suffix(), key(name);
  for (const std::string& leaf :
       {key + suffix, in_lower_case(key) + in_lower_case(suffix), in_lower_case(key) + suffix}) {
    if (is_file(path + leaf)) return path + leaf;
  }
  if (!path.empty()) return {};
  const std::string beside = resolve_read_name(key + suffix);  // beside the script
  return is_file(beside) ? beside : std::string{};
}

// ---- Reading one file
// ----------------------------------------------------------------------------

bool bad_line(const ReadJob& job) {
  fail<"(' ...ERROR..READ ERROR IN .DB FILE AT LINE', I6)">(job.first_line + job.cursor.line);
  say<"(' ...NOTE..FILE ', A)">(job.shown);
  return false;
}

bool whole_line(std::string_view line, std::int64_t& value) {
  line = trimmed(line);
  const auto read = std::from_chars(line.data(), line.data() + line.size(), value);
  return read.ec == std::errc{} && read.ptr == line.data() + line.size();
}

// A date or an observation: the whole part and the decimals behind the point.
struct BankDate {
  std::int64_t whole = 0;
  std::int64_t period = 1;
};

// 1980.04 and 1980.4 quarterly are the fourth quarter, 1980.1 monthly is October: two decimals are
// meant, but with fewer than 10 periods a lone first one is the period. An undated series has
// observations here.
bool bank_date(std::string_view line, std::int64_t frequency, BankDate& date) {
  line = trimmed(line);
  const auto point = line.find('.');
  if (point == std::string_view::npos || !whole_line(line.substr(0, point), date.whole)) {
    return false;
  }
  std::string digits(line.substr(point + 1));
  for (const char c : digits) {
    if (NAMCHK(c) != 0) return false;
  }
  if (frequency == 0) return true;
  const std::size_t wanted = frequency >= MANY_PERIODS ? 3 : 2;
  digits.resize(std::max(digits.size(), wanted), '0');
  if (digits.find_first_not_of('0', wanted) != std::string::npos) return false;
  std::int64_t period = 0;
  for (std::size_t k = 0; k < wanted; ++k) period = period * 10 + (digits[k] - '0');
  if (frequency < 10 && wanted == 2 && digits[1] == '0') period = digits[0] - '0';
  date.period = std::max<std::int64_t>(period, 1);
  return date.period <= frequency;
}

struct BankHead {
  std::string name;            // by the first line, when KORVEL wrote it
  std::int64_t frequency = 0;  // or rows of a matrix
  std::int64_t columns = 0;    // of a matrix, 0 for a series
  BankDate first, last;
  std::int64_t count = 0;
};

bool read_bank_head(ReadJob& job, BankHead& head) {
  std::string_view line;
  // 1. Comments.
  do {
    if (!job.cursor.next(line)) return bad_line(job);
    if (line.substr(0, OWN_HEAD.size()) == OWN_HEAD) {
      const std::string_view name = line.substr(OWN_HEAD.size());
      head.name = trimmed(name.substr(0, name.find('"')));
    }
    line = trimmed(line);
  } while (!line.empty() && line[0] == '"');
  // 2. Series or matrix.
  if (!whole_line(line, head.frequency) || !job.cursor.next(line)) return bad_line(job);
  if (trimmed(line).find('.') == std::string_view::npos) {
    if (!whole_line(line, head.columns) || head.columns < 1 || head.frequency < 1 ||
        !checked_product(head.frequency, head.columns, head.count)) {
      return bad_line(job);
    }
    return true;
  }
  const bool frequency = head.frequency >= 0 && head.frequency <= MOST_PERIODS;
  if (!frequency || !bank_date(line, head.frequency, head.first)) return bad_line(job);
  if (!job.cursor.next(line) || !bank_date(line, head.frequency, head.last)) return bad_line(job);
  constexpr std::int64_t FAR = 1000000000;
  for (const std::int64_t whole : {head.first.whole, head.last.whole}) {
    if (whole < -FAR || whole > FAR) return bad_line(job);
  }
  head.count = head.frequency == 0 ? head.last.whole - head.first.whole + 1
                                   : (head.last.whole - head.first.whole) * head.frequency +
                                         head.last.period - head.first.period + 1;
  if (head.count < 1 || (head.frequency == 0 && head.first.whole < 1)) return bad_line(job);
  return true;
}

void note_bank(const BankHead& head) {
  if (!OCOM.OPUT) return;
  if (head.columns > 0) {
    return say<"(' .DB FILE CONTAINS MATRIX WITH', I5, ' ROWS AND', I4, ' COLUMNS')">(
        head.frequency, head.columns);
  }
  say<"(' FREQUENCY OF DATA IN  .DB FILE=', I4)">(head.frequency);
  if (head.frequency > 0) {
    say<"('  .DB FILE CONTAINS DATA FROM ', I4, '.', I3, ' TO ', I4, '.', I3)">(
        head.first.whole, head.first.period, head.last.whole, head.last.period);
  } else {
    say<"('  .DB FILE CONTAINS OBSERVATIONS FROM ', I4, ' TO ', I5)">(head.first.whole,
                                                                      head.last.whole);
  }
}

// The observation at which a series begins here; 0 when it doesn't agree with the calendar.
std::int64_t bank_begin(const BankHead& head) {
  if (DATCOM.ITIME2 < 1) return head.frequency == 0 ? head.first.whole : 1;
  if (head.frequency != DATCOM.ITIME3) return 0;
  const std::int64_t beg =
      (head.first.whole - DATCOM.ITIME1) * head.frequency + head.first.period - DATCOM.ITIME2 + 1;
  return beg < 1 || !fits32(beg + head.count) ? 0 : beg;
}

// Reads the file that the job stands on into the item.
bool read_bank(ReadJob& job, ReadItem& item) {
  BankHead head;
  if (!read_bank_head(job, head)) return false;
  if (item.name.empty()) item.name = head.name;
  if (!head.name.empty() && !same_name(head.name, item.name)) {
    fail(" WRONG VARIABLE IN DATABANK");
    say<"(' ...NOTE..FILE ', A, ' HOLDS ', A)">(
        job.shown, legal_name(head.name) ? std::string_view(head.name) : "ANOTHER VARIABLE");
    return false;
  }
  if (!legal_name(item.name)) return bad_line(job);
  note_bank(head);
  Arrival what{.ITYPE = head.columns > 1 ? MATRIX2 : SERIES, .LENGTH = head.count, .N2 = 1};
  what.taken = head.count;
  if (head.columns > 1) what.N2 = static_cast<int>(head.columns);
  if (head.columns == 0) {
    what.beg = bank_begin(head);
    if (what.beg < 1) {
      fail(" ...ERROR..DB FILE INCONSISTENT WITH TIME COMMAND");
      return false;
    }
    what.part = what.beg > 1;
  }
  const auto left = static_cast<std::int64_t>(job.cursor.text.size() - job.cursor.at);
  if (head.count > left / 2 + 1) {  // every value takes a digit and a separator
    job.cursor.at = job.cursor.text.size();
    return bad_line(job);
  }
  Landing landing(job.ws, item, what, false);
  if (!landing) return false;
  if (!scan_values(job.cursor, landing.words(), true)) return bad_line(job);
  if (!landing.keep()) return false;
  if (head.columns == 0 && head.frequency > 0) {
    take_calendar(static_cast<int>(head.first.whole), static_cast<int>(head.first.period),
                  static_cast<int>(head.frequency));
  }
  job.beg = what.beg;
  return true;
}

// Opens the file and reads the item from it, whichever form it has.
bool read_bank_file(ReadJob& job, const std::string& path, ReadItem& item) {
  DataUnit* const unit = open_data_unit(0, path, true);
  if (unit == nullptr) return false;
  ReadJob one;
  one.ws = job.ws;
  one.unit = unit;
  one.stream = false;
  one.shown = unit->path;
  one.cursor.text = unit->rest();
  bool good = !source_failed(one);
  const FileForm form = form_by_magic(one.cursor.text);
  if (!good) {
    // Reported already.
  } else if (form == FileForm::text) {
    good = read_bank(one, item);
  } else {
    one.items.push_back(item);
    good = read_containers(one, form, Naming::equal);
    item = one.items[0];
  }
  good = good && !source_failed(one);
  job.beg = one.beg;
  close_data_unit(unit);
  return good;
}

bool incompatible() {
  fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
  return false;
}

}  // namespace

bool read_databank(ReadJob& job) {
  // 1. One file that was named, or one for each variable.
  for (const int place : {READOPT.place("BEG"), READOPT.place("END"), READOPT.place("OBS")}) {
    if (integer_given(place)) return incompatible();  // the files say where their series belong
  }
  const bool one_file = job.unit != nullptr;
  if (one_file && job.items.size() > 1) return incompatible();
  if (one_file && job.items.empty()) job.items.emplace_back();
  if (job.items.empty()) {
    fail(" ...ERROR..NO VARIABLES LISTED..LIST THEM OR USE THE NAMES OPTION");
    return false;
  }
  // 2. The files.
  if (one_file) {
    gather_all(job);
    if (!read_bank(job, job.items[0])) return false;
  } else {
    for (ReadItem& item : job.items) {
      std::string path = bank_file(item.key());
      if (path.empty()) path = bank_folder() + std::string(item.key()) + bank_suffix();
      if (!read_bank_file(job, path, item)) return false;
      if (stop_requested()) {
        mark_failed();
        return false;
      }
    }
  }
  if (job.items.size() > 1) job.beg = 1;
  describe_arrivals(job);
  return true;
}

int load_from_databank(Workspace ws, std::string_view name) {
  const std::string path = bank_file(name);
  if (path.empty() || !file_allowed(path)) return 0;
  ReadJob job;
  job.ws = ws;
  ReadItem item;
  item.name = name;
  if (!read_bank_file(job, path, item)) return -1;
  if (INFO(ws, item.var).ITYPE == SERIES) define_sample(ws, INFO(ws, item.var).LEN);
  return item.var;
}

namespace {

// Whether the name that ends here is assigned to: NAME = or NAME:n =, but not NAME ==.
bool is_target(std::string_view formula, std::size_t end) {
  const auto look = [&] { return end < formula.size() ? formula[end] : '\0'; };
  const auto pass_blanks = [&] {
    while (look() == ' ') ++end;
  };
  pass_blanks();
  if (look() == ':') {
    ++end;
    pass_blanks();
    while (NAMCHK(look()) == 0) ++end;
    pass_blanks();
  }
  if (look() != '=') return false;
  ++end;
  return look() != '=';
}

}  // namespace

void load_formula_names(Workspace ws, std::string_view formula) {
  const auto word_character = [](char c) { return NAMCHK(c) >= 0 || c == '_' || c == '$'; };
  for (std::size_t at = 0; at < formula.size();) {
    const char c = formula[at];
    if (c == '\'' || c == '"') {  // text
      const auto close = formula.find(c, at + 1);
      if (close == std::string_view::npos) return;
      at = close + 1;
      continue;
    }
    std::size_t end = at;
    while (end < formula.size() && word_character(formula[end])) ++end;
    if (end == at) {
      ++at;
      continue;
    }
    const std::string_view word = formula.substr(at, end - at);
    const bool between_points = at > 0 && formula[at - 1] == '.';  // .EQ. and its like
    at = end;
    if (NAMCHK(word[0]) != 1 || between_points) continue;
    if (is_target(formula, end)) continue;
    const std::size_t next = formula.find_first_not_of(' ', end);
    const bool bracket = next != std::string_view::npos && formula[next] == '(';
    if (bracket && find_function(word, true) != 0) continue;
    const std::string_view name = word.substr(0, KEYLEN);
    if (VARNUM(ws, name) != 0) continue;
    load_from_databank(ws, name);
    if (OCOM.ODONT) return;
  }
}

// ---- WRITE
// ---------------------------------------------------------------------------------------

namespace {

template <FixedText FMT, class... Args>
void put_record(FileOutput& file, const Args&... args) {
  std::array<char, LINELEN> line;
  line.fill(' ');
  const int n = compose<FMT>(line.data(), LINELEN, 0, args...);
  file.write({line.data(), static_cast<std::size_t>(n)});
  file.write("\n");
}

void put_count(FileOutput& file, std::int64_t value) {
  constexpr std::int64_t MOST_IN_I4 = 9999;
  if (value <= MOST_IN_I4) return put_record<"(I4)">(file, value);
  put_record<"(I0)">(file, value);
}

// year.period, or an observation.
void put_date(FileOutput& file, double value, bool three) {
  constexpr double MOST_IN_F8 = 99999.0;
  if (three) return put_record<"(F9.3)">(file, value);
  if (value <= MOST_IN_F8) return put_record<"(F8.2)">(file, value);
  put_record<"(F14.2)">(file, value);
}

void put_value(FileOutput& file, double value) {
  const auto room = file.room(EXACT_ROOM + 1);
  char* const end = put_exact(room.data(), value, true);
  *end = '\n';
  file.advance(static_cast<std::size_t>(end + 1 - room.data()));
}

// Packed matrices are written as the square that they stand for.
void put_square(FileOutput& file, const PrintItem& x) {
  for (std::int64_t j = 1; j <= x.last; ++j) {
    for (std::int64_t i = 1; i <= x.last; ++i) {
      const std::int64_t row = std::max(i, j), column = std::min(i, j);
      const double value = x.data[static_cast<std::size_t>(row * (row - 1) / 2 + column - 1)];
      put_value(file, i < j && x.type == TRIANGLE ? 0.0 : value);
    }
  }
}

bool write_bank(const PrintJob& job, const PrintItem& x, FileOutput& file) {
  ContainerHead head;
  if (!item_head(job, x, head)) return false;
  if (head.text()) return incompatible();
  put_record<"('\"cCREATED BY KORVEL FOR  VARIABLE: ', A8, '\"')">(file, head.name);
  if (head.TYPE() != SERIES) {
    put_count(file, head.rows());
    put_count(file, head.COLUMNS());
  } else if (head.word[H_TIME2] > 0) {
    const CalendarStart end = calendar_at(x.first - 1 + head.LENGTH());
    const bool three = DATCOM.ITIME3 >= MANY_PERIODS;
    const double size = three ? 1000.0 : 100.0;
    put_count(file, DATCOM.ITIME3);
    put_date(file, head.word[H_TIME1] + head.word[H_TIME2] / size, three);
    put_date(file, end.year + end.period / size, three);
  } else {
    const bool gaps = head.LENGTH() != x.last - x.first + 1;
    const std::int64_t first = gaps || x.type == 0 ? 1 : x.first;
    put_count(file, 0);
    put_date(file, static_cast<double>(first), false);
    put_date(file, static_cast<double>(first - 1 + head.LENGTH()), false);
  }
  if (x.triangle()) {
    put_square(file, x);
  } else {
    item_runs(job, x, [&](std::span<const double> run) {
      for (const double value : run) put_value(file, value);
    });
  }
  return true;
}

}  // namespace

bool write_databank(const PrintJob& job, std::string_view typed_file) {
  // 1. Form and place.
  std::string form = word_setting("BANKFORM");
  LCUC(form.data(), static_cast<int>(form.size()));
  const bool binary = form == "BINARY" || form == "SBINARY";
  if (!form.empty() && form != "DB" && form != "TSP" && form != "KORVEL" && !binary) {
    fail<"(' ...ERROR..BANKFORM=', A, ' IS NOT DB, KORVEL, BINARY OR SBINARY')">(
        std::string_view(form).substr(0, 60));
    return false;
  }
  const bool one_file = !typed_file.empty();
  if (one_file && job.items.size() > 1) return incompatible();
  // 2. A file for each variable, complete before the next one is begun.
  for (const PrintItem& x : job.items) {
    std::string path(typed_file);
    if (!one_file) {
      const std::string_view key = right_trimmed(x.name.substr(0, KEYLEN));
      if (!legal_name(key) || key.find('$') != std::string_view::npos) return incompatible();
      path = bank_folder() + std::string(key) + bank_suffix();
    }
    PrintJob one{.ws = job.ws, .out = job.out};
    one.items.push_back(x);
    one.byvar = true;
    one.skip = job.skip;
    FileOutput file;
    if (!open_output_file(file, 0, path, WriteMode::replace)) return false;
    const bool good = binary             ? write_korvbin(one, file, form == "SBINARY")
                      : form == "KORVEL" ? write_korvdata(one, file)
                                         : write_bank(one, x, file);
    if (!good || !commit_output_file(file)) return false;
    tell_host("FILE_WRITE=", file.path());
  }
  return true;
}

}  // namespace korvel
