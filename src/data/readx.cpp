// READ: data from the command stream or a file into variables.

#include <algorithm>
#include <cstring>

#include "data/data.h"
#include "data/format.h"
#include "data/read_job.h"
#include "data/read_options.h"
#include "data/sample.h"
#include "engine/commands.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::size_t SHOWN_NAME = 60;  // characters of a file name in messages

std::string_view format_option() {
  return OPTCOM.VOPT[static_cast<std::size_t>(READOPT.place("FORMAT"))].text;
}

bool incompatible() {
  fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
  return false;
}
bool not_available(std::string_view what) {
  fail<"(' ...ERROR..READ OF ', A, ' IS NOT AVAILABLE ON THIS SYSTEM')">(what);
  return false;
}

// ---- Source
// --------------------------------------------------------------------------------------

bool ends_with(std::string_view name, std::string_view tail) {
  if (name.size() < tail.size()) return false;
  return std::ranges::equal(name.substr(name.size() - tail.size()), tail,
                            [](char a, char b) { return upper(a) == b; });
}
bool begins_with(std::string_view name, std::string_view head) {
  return name.size() >= head.size() && ends_with(name.substr(0, head.size()), head);
}

// Forms that are told by the name of the file or by an option.
bool check_form(std::string_view file) {
  struct Option {
    int place;
    std::string_view what;
  };
  for (const Option& o :
       {Option{READOPT.place("BINARY"), "BINARY FILES"},
        Option{READOPT.place("SBINARY"), "BINARY FILES"}, Option{READOPT.place("DIF"), "DIF FILES"},
        Option{READOPT.place("TSP"), "TSP DATABANKS"}, Option{READOPT.place("DB"), "TSP DATABANKS"},
        Option{READOPT.place("KORVEL"), "KORVDATA FILES"},
        Option{READOPT.place("CRYPT"), "ENCRYPTED FILES"},
        Option{READOPT.place("CHARSTR"), "CHARACTER DATA"},
        Option{READOPT.place("CHARVAR"), "CHARACTER DATA"}}) {
    if (logical_option(o.place)) return not_available(o.what);
  }
  if (integer_option(READOPT.place("CHARVARS")) > 0) return not_available("CHARACTER DATA");
  if (format_option() == "BINARY") return not_available("BINARY FILES");
  for (const std::string_view head : {"HTTP://", "HTTPS://", "FTP://"}) {
    if (begins_with(file, head)) return not_available("FILES BY URL");
  }
  if (ends_with(file, ".DIF")) return not_available("DIF FILES");
  if (ends_with(file, ".DB")) return not_available("TSP DATABANKS");
  for (const std::string_view tail : {".XLS", ".XLSX", ".XLSM", ".ODS", ".WK1", ".WKS"}) {
    if (ends_with(file, tail)) return not_available("SPREADSHEET FILES (SAVE IT AS .CSV)");
  }
  return true;
}

// The unit or file that is read, and its text from the place where this READ begins.
bool open_source(ReadJob& job) {
  const bool by_option = integer_given(READOPT.place("UNIT"));
  const int unit = by_option          ? integer_option(READOPT.place("UNIT"))
                   : SCNCOM.INPAR > 0 ? SCNCOM.INPAR
                                      : IOCOM.INDATA;
  job.stream = !SCNCOM.file && unit == IOCOM.L5;
  if (!SCNCOM.file && !job.stream &&
      (unit < 1 || unit == 2 || unit == 3 || unit == 6 || unit == 8)) {
    fail<"(' ...ERROR..INVALID READ UNIT ', I0)">(unit);
    return false;
  }
  TextInput* source = nullptr;
  if (job.stream) {
    source = &command_stream();
  } else {
    const bool rewind = logical_option(READOPT.place("REWIND"));
    job.unit = open_data_unit(SCNCOM.file ? 0 : unit, SCNCOM.file_name, rewind);
    if (job.unit == nullptr) return false;
    source = job.unit->text.get();
    if (logical_option(READOPT.place("BACKSPAC"))) job.unit->backspace();
    job.shown = job.unit->path;
    if (job.shown.size() > SHOWN_NAME) job.shown.erase(0, job.shown.size() - SHOWN_NAME);
  }
  job.first_line = source->line_number();
  if (source->whole()) {
    job.cursor.text = source->rest();
  } else {
    job.cursor.feed = source;
    job.cursor.hold = &job.hold;
  }
  const std::string_view magic = job.cursor.text.substr(0, 8);
  if (!job.stream && (magic == "KORVDATA" || magic == "KORVBIN ")) {
    return not_available("KORVDATA AND KORVBIN FILES");
  }
  return true;
}

// Leaves the source where the reading stopped.
void leave_source(ReadJob& job) {
  if (job.cursor.feed == nullptr && job.hold.empty() && job.cursor.at > 0) {
    if (job.stream) {
      command_stream().skip(job.cursor.at, job.cursor.line);
    } else {
      job.unit->pass(job.cursor.at, job.cursor.line);
    }
  }
  if (job.unit != nullptr && logical_option(READOPT.place("CLOSE"))) close_data_unit(job.unit);
}

// Passes over the data of the command stream up to END or the next command. A row of names begins
// with a letter, as a command does, but belongs to the data.
void pass_block(TextInput& stream, bool names) {
  RowPlan plan;
  plan.ends_at_command = true;
  std::string_view line;
  while (stream.line(line)) {
    const LineKind kind = line_kind(line, plan);
    if (names && kind != LineKind::blank) {
      names = false;
      continue;
    }
    if (kind == LineKind::command) stream.unread();
    if (kind == LineKind::command || kind == LineKind::end_word) return;
  }
}

// ---- Form
// ----------------------------------------------------------------------------------------

// Cells are parted by commas or tabs, or by semicolons when the first line holds one outside
// quotes.
void find_separator(ReadJob& job) {
  job.plan.delimited = false;
  const std::string_view format = format_option();
  const bool tab = format == "TAB" || (format.empty() && ends_with(SCNCOM.file_name, ".TSV"));
  const bool comma = format == "COMMA" || (format.empty() && ends_with(SCNCOM.file_name, ".CSV"));
  if (!tab && !comma) return;
  job.plan.delimited = true;
  job.plan.separator = tab ? '\t' : ',';
  if (tab) return;
  LineCursor ahead = job.cursor;
  std::string_view line;
  if (ahead.feed != nullptr) {
    if (!job.cursor.next(line)) return;
    job.cursor.back();
  } else if (!ahead.next(line)) {
    return;
  }
  bool quoted = false;
  for (const char c : line) {
    if (c == '"') quoted = !quoted;
    if (c == ';' && !quoted) job.plan.separator = ';';
  }
}

bool find_format(ReadJob& job) {
  const std::string_view name = format_option();
  for (const std::string_view word : {"", "FREE", "TAB", "COMMA", "DUMP"}) {
    if (name == word) return true;
  }
  const std::string text = stored_format(job.ws, name);
  if (text.empty()) {
    fail(" ...ERROR..NO FORMAT CURRENTLY EXISTS");
    return false;
  }
  const FormatFault fault = job.format.parse(text);
  if (fault == FormatFault::too_long) {
    XXIT(-3);
    return false;
  }
  if (fault != FormatFault::none) {
    bad_format(text);
    return false;
  }
  if (OCOM.OPUT) {
    say(" ...NOTE..READ USES FORMAT:");
    say<"(1X, A)">(job.format.text().substr(0, 120));
  }
  job.formatted = true;
  return true;
}

// Lines before the data, and the row of names.
bool read_head(ReadJob& job) {
  std::string_view line;
  for (int n = integer_option(READOPT.place("SKIPLINE")); n > 0; --n) job.cursor.next(line);
  find_separator(job);
  job.plan.ends_at_command = job.stream;
  job.plan.missing = MACOM.XMISS;
  job.plan.skip_columns = std::max(integer_option(READOPT.place("SKIPCOLS")), 0);
  if (!logical_option(READOPT.place("NAMES"))) return true;
  do {
    if (!job.cursor.next(line)) {
      fail(" ...ERROR..NO DATA FOUND");
      return false;
    }
  } while (trimmed(line).empty());
  const std::string names_line(line);
  read_names(job, names_line);
  drop_skipped_names(job, names_line);
  if (job.items.empty()) {
    fail(" ...ERROR..THE ROW OF NAMES HOLDS NO NAMES");
    return false;
  }
  if (job.items.size() > static_cast<std::size_t>(DATCOM.MAXVAR)) {
    fail<"(' ...ERROR..READ COMMAND ALLOWS ONLY', I4, ' VARIABLES')">(DATCOM.MAXVAR);
    return false;
  }
  for (ReadItem& item : job.items) {
    item.var = VARNUM(job.ws, item.key());
    if (item.var > 0) warn<"(' ...WARNING..VARIABLE:', A, ' CURRENTLY EXISTS')">(item.name);
  }
  return true;
}

// The variables of the list.
bool take_list(ReadJob& job) {
  const bool names = logical_option(READOPT.place("NAMES"));
  if (names && SCNCOM.NF > 0) {
    fail(" ...ERROR..WITH NAMES OPTION, DO NOT LIST VARIABLES");
    return false;
  }
  if (!names && SCNCOM.NF == 0) {
    fail(" ...ERROR..NO VARIABLES LISTED..LIST THEM OR USE THE NAMES OPTION");
    return false;
  }
  for (const ListItem& item : SCNCOM.list()) {
    if (item.var < 0 || item.lag != 0 || item.group || item.var == DATCOM.MCON) {
      fail(" ...ERROR..SYNTAX ERROR");
      return false;
    }
    job.items.push_back({item.var, item.column, -1, std::string(item.name)});
  }
  return true;
}

// Rows, variables or a matrix: what the groups of values are.
bool plan_layout(ReadJob& job) {
  constexpr int BYVAR = READOPT.place("BYVAR");
  if (!plan_matrix(job)) return false;
  const bool names = logical_option(READOPT.place("NAMES"));
  if (job.matrix && names) return incompatible();
  if (logical_option(READOPT.place("SYMAT")) && logical_option(READOPT.place("TRIMAT"))) {
    return incompatible();
  }
  if (job.matrix && job.formatted && job.plan.layout == Layout::Triangle) return incompatible();
  if (job.matrix) return true;
  bool by_variable = job.items.size() == 1 ? !names : OSCOM.OBYV;
  if (logical_given(BYVAR)) by_variable = logical_option(BYVAR);
  if (logical_option(READOPT.place("ASCII"))) by_variable = true;
  if (job.plan.delimited) {
    if (by_variable && logical_given(BYVAR)) return incompatible();
    by_variable = false;
  }
  job.plan.layout = by_variable ? Layout::ByVariable : Layout::ByObservation;
  job.plan.values = static_cast<std::int64_t>(job.items.size());
  return true;
}

// Passes over SKIPROWS rows of data: lines when a variable fills many.
void skip_rows(ReadJob& job) {
  const int rows = integer_option(READOPT.place("SKIPROWS"));
  if (rows <= 0) return;
  RowPlan plan = job.plan;
  plan.layout = Layout::ByObservation;
  plan.groups = rows;
  if (job.plan.layout != Layout::ByObservation) plan.values = 1;
  if (plan.delimited) {  // rows of any shape
    std::string_view line;
    for (int n = 0; n < rows && job.cursor.next(line);) n += trimmed(line).empty() ? 0 : 1;
  } else if (job.formatted) {
    read_formatted(job.cursor, job, plan, nullptr, 0);
  } else {
    read_rows(job.cursor, plan, nullptr);
  }
}

// The values that were read, as PRINT shows them.
void list_data(ReadJob& job) {
  const auto room = SCNCOM.INLIST;
  const std::size_t n = std::min(job.items.size(), room.size());
  for (std::size_t k = 0; k < n; ++k) {
    room[k] = ListItem{.var = job.items[k].var, .name = job.items[k].key()};
  }
  SCNCOM.NF = static_cast<int>(n);
  SCNCOM.NOPS = 0;
  SCNCOM.file = false;
  SCNCOM.INPAR = 0;
  PRINTX(job.ws);
}

// The whole command up to its end or its failure.
void read_command(ReadJob& job) {
  // 1. Source, form, variables.
  if (!check_form(SCNCOM.file_name) || !open_source(job) || !take_list(job)) return;
  if (!find_format(job) || !read_head(job)) return;
  // 2. Shape and count.
  if (!plan_layout(job)) return;
  if (job.formatted && job.plan.delimited) return static_cast<void>(incompatible());
  skip_rows(job);
  if (job.plan.layout == Layout::Triangle && OCOM.OPUT) say(" LOWER TRIANGLE OF MATRIX");
  // 3. The data.
  if (job.cursor.feed != nullptr) {
    job.plan.groups = job.count;
    gather(job);
  }
  if (!read_data(job)) return;
  // 4. What came of it.
  if (!report_fault(job)) return;
  report_success(job);
  if (logical_option(READOPT.place("LIST"))) list_data(job);
}

}  // namespace

void READX(Workspace ws) {
  const Trace trace("READX");
  // 1. Options. In scan mode they are checked and the data have been passed over already.
  OPTION_START(READOPT.view());
  OPTCOM.LOPT[READOPT.place("REWIND")] = true;
  OPTCOM.LOPT[READOPT.place("WIDE")] = OSCOM.OWIDE;
  OPTION_SCAN(ws, READOPT.view());
  if (OSCOM.OSCAN && !OCOM.ODONT) return;
  // 2. The command.
  ReadJob job;
  job.ws = ws;
  if (!OCOM.ODONT) read_command(job);
  // 3. After a failure in a batch run the data lines that are left are passed over: they are no
  //    commands.
  const bool in_stream = job.stream && !SCNCOM.file && SCNCOM.INPAR == 0;
  if (OCOM.ODONT && OSCOM.OSCAN && in_stream) {
    if (job.cursor.at == 0 && job.hold.empty()) {
      skip_stream_data(ws);
    } else if (!job.hold.empty()) {
      if (!job.gathered_all) pass_block(command_stream(), false);
    } else if (job.read.end != RowEnd::terminator) {
      leave_source(job);
      return pass_block(command_stream(), false);
    }
  }
  leave_source(job);
}

void skip_stream_data(Workspace) {
  bool names = false;
  for (int i = 1; i <= SCNCOM.NOPS; ++i) {
    const std::string_view word = TOKCOM.token[static_cast<std::size_t>(i)].text;
    names = names || (!word.empty() && std::string_view("NAMES").substr(0, word.size()) == word);
  }
  pass_block(command_stream(), names);
}

}  // namespace korvel
