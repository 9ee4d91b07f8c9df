// READ: data from the command stream or a file into variables.

#include <algorithm>

#include "data/containers.h"
#include "data/data.h"
#include "data/format.h"
#include "data/read_job.h"
#include "data/read_options.h"
#include "data/sample.h"
#include "engine/commands.h"
#include "engine/files.h"
#include "engine/input.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/set.h"

namespace korvel {
namespace {

bool incompatible() {
  fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
  return false;
}
// Passes over the data of the command stream up to END or the next command. A row of names begins
// with a letter, as a command does, but belongs to the data; in character data every line does.
void pass_block(TextInput& stream, bool names, bool characters) {
  RowPlan plan;
  plan.ends_at_command = !characters;
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
    end_unless_talking(-3);
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

bool character_data() {
  return logical_option(READOPT.place("CHARSTR")) || logical_option(READOPT.place("CHARVAR")) ||
         integer_option(READOPT.place("CHARVARS")) > 0;
}

// Lines before the data, and the row of names.
bool read_head(ReadJob& job) {
  std::string_view line;
  for (int n = integer_option(READOPT.place("SKIPLINE")); n > 0; --n) job.cursor.next(line);
  job.plan.ends_at_command = job.stream && !character_data();
  job.plan.missing = MACOM.XMISS;
  job.plan.skip_columns = std::max(integer_option(READOPT.place("SKIPCOLS")), 0);
  if (format_option() == "DUMP") job.plan.numbers = Numbers::dump;
  if (!find_dialect(job)) return false;
  if (!logical_option(READOPT.place("NAMES"))) return true;
  const auto next = [&] {
    return job.plan.delimited ? next_record(job.cursor, job.plan.separator, line)
                              : job.cursor.next(line);
  };
  do {
    job.names_line = job.first_line + job.cursor.line + 1;
    if (!next()) {
      if (source_failed(job)) return false;
      fail(" ...ERROR..NO DATA FOUND");
      return false;
    }
  } while (trimmed(line).empty());
  const std::string names_line(line);
  if (!read_names(job, names_line)) return false;
  drop_skipped_names(job, names_line);
  if (job.items.empty()) {
    fail(" ...ERROR..THE ROW OF NAMES HOLDS NO NAMES");
    return false;
  }
  for (ReadItem& item : job.items) {
    item.var = VARNUM(job.ws, item.key());
    if (item.var > 0) warn<"(' ...WARNING..VARIABLE:', A, ' CURRENTLY EXISTS')">(item.name);
  }
  return true;
}

// The variables of the list.
bool take_list(ReadJob& job, bool container) {
  const bool names = logical_option(READOPT.place("NAMES"));
  if (names && SCNCOM.NF > 0) {
    fail(" ...ERROR..WITH NAMES OPTION, DO NOT LIST VARIABLES");
    return false;
  }
  if (!names && SCNCOM.NF == 0 && !container) {
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
  // 1. Rows or variables, and which variables take characters.
  const bool names = logical_option(READOPT.place("NAMES"));
  bool by_variable = job.items.size() == 1 ? !names : OSCOM.OBYV;
  if (logical_given(BYVAR)) by_variable = logical_option(BYVAR);
  if (logical_option(READOPT.place("ASCII"))) by_variable = true;
  const bool by_cells = by_variable && job.plan.delimited;
  if (by_cells) by_variable = false;
  job.plan.layout = by_variable ? Layout::ByVariable : Layout::ByObservation;
  job.plan.values = static_cast<std::int64_t>(job.items.size());
  if (!choose_words(job)) return false;
  // 2. The shape and the count.
  if (!plan_matrix(job)) return false;
  if (logical_option(READOPT.place("SYMAT")) && logical_option(READOPT.place("TRIMAT"))) {
    return incompatible();
  }
  if (!job.matrix) return !by_cells || !logical_given(BYVAR) || incompatible();
  if (names || !job.plan.words.empty()) return incompatible();
  return !job.formatted || job.plan.layout != Layout::Triangle || incompatible();
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
    for (int n = 0; n < rows && next_record(job.cursor, plan.separator, line);) {
      n += trimmed(line).empty() ? 0 : 1;
    }
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
  // The observations that were read, whatever the sample is.
  const int beg = DATCOM.IBEG, end = DATCOM.IEND;
  if (!job.matrix && !job.container) {
    DATCOM.IBEG = static_cast<int>(job.beg);
    DATCOM.IEND = static_cast<int>(job.beg - 1 + job.count);
  }
  PRINTX(job.ws);
  DATCOM.IBEG = beg;
  DATCOM.IEND = end;
}

// Adjacent commas are one separator in free form: said where they may have meant empty cells.
void warn_of_empty_cells(const ReadJob& job) {
  constexpr std::size_t LOOKED_AT = std::size_t{1} << 16;
  if (job.stream || job.plan.delimited || job.formatted) return;
  const std::string_view head = job.cursor.text.substr(job.cursor.at).substr(0, LOOKED_AT);
  if (head.find(",,") == std::string_view::npos) return;
  warn<"(' ...WARNING..FILE ', A, ' HOLDS EMPTY CELLS (,,), WHICH ONLY FORMAT=COMMA READS')">(
      job.shown);
}

// Variables that come whole, from a container, a DIF file or databanks.
void read_variables(ReadJob& job, FileForm form) {
  if (!take_list(job, true)) return;
  job.container = true;
  bool good = false;
  switch (form) {
    case FileForm::korvdata:
      good = read_korvdata(job);
      break;
    case FileForm::korvbin:
      good = read_korvbin(job);
      break;
    case FileForm::dif:
      good = read_dif(job);
      break;
    case FileForm::databank:
      good = read_databank(job);
      break;
    case FileForm::text:
      break;
  }
  if (!good || source_failed(job)) return;
  report_success(job);
  if (logical_option(READOPT.place("LIST"))) list_data(job);
}

// The whole command up to its end or its failure.
void read_command(ReadJob& job) {
  // 1. Source, form, variables.
  FileForm form = FileForm::text;
  if (!open_source(job, form)) return;
  if (form != FileForm::text) return read_variables(job, form);
  if (!take_list(job, false)) return;
  if (logical_option(READOPT.place("CHARSTR"))) {
    if (character_data() && !logical_option(READOPT.place("NAMES"))) {
      std::string_view line;
      for (int n = integer_option(READOPT.place("SKIPLINE")); n > 0; --n) job.cursor.next(line);
      read_character_strings(job);
      return;
    }
    return static_cast<void>(incompatible());
  }
  if (!find_format(job) || !read_head(job)) return;
  // 2. Shape and count.
  if (!plan_layout(job)) return;
  if (job.formatted && job.plan.delimited) return static_cast<void>(incompatible());
  skip_rows(job);
  study_cells(job);
  if (job.from_data) cut_empty_rows(job);
  note_dialect(job);
  warn_of_empty_cells(job);
  if (job.plan.layout == Layout::Triangle && OCOM.OPUT) say(" LOWER TRIANGLE OF MATRIX");
  // 3. The data.
  if (job.cursor.feed != nullptr) {
    job.plan.groups = job.count;
    gather(job);
    if (source_failed(job)) return;
  }
  // Text is gone over once to count its rows and once to read them. Lines printed at the same
  // terminal would be mixed with the line that tells how far it is.
  Progress progress("READING DATA", 2 * (job.cursor.text.size() - job.cursor.at),
                    OSCOM.OTALK || !main_output().terminal());
  job.cursor.progress = &progress;
  const bool read = read_data(job);
  job.cursor.progress = nullptr;
  if (source_failed(job)) {  // nothing of it is certain
    put_back_old(job);
    drop_new_variables(job);
    return;
  }
  if (!read) return;
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
  if (OCOM.ODONT && OSCOM.OSCAN && !reads_a_file()) {
    const bool characters = character_data();
    if (job.cursor.at == 0 && job.hold.empty()) {
      skip_stream_data(ws);
    } else if (!job.hold.empty()) {
      if (!job.gathered_all) pass_block(command_stream(), false, characters);
    } else if (job.read.end != RowEnd::terminator) {
      leave_source(job);
      return pass_block(command_stream(), false, characters);
    }
  }
  leave_source(job);
}

void skip_stream_data(Workspace) {
  if (!SCNCOM.file && SCNCOM.INPAR == 0 && IOCOM.INDATA != IOCOM.L5) return;
  if (!SCNCOM.file && SCNCOM.INPAR == 0 && !trimmed(word_setting("READFILE")).empty()) return;
  bool names = false, characters = false;
  for (int i = 1; i <= SCNCOM.NOPS; ++i) {
    const std::string_view word = TOKCOM.token[static_cast<std::size_t>(i)].text;
    names = names || (!word.empty() && std::string_view("NAMES").substr(0, word.size()) == word);
    characters = characters || word.substr(0, 4) == "CHAR";
  }
  pass_block(command_stream(), names, characters);
}

}  // namespace korvel
