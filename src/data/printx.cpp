// PRINTX: PRINT and LIST show variables, matrices and temporaries on the output channel.
// WRITEX: WRITE sends them to a unit or file, in the forms that READ takes.
//   both read SCNCOM, OPTCOM, the sample words and SKIP$; set MBEG, MEND and the failure flags.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "data/data.h"
#include "data/print_job.h"
#include "data/read_options.h"
#include "data/write_target.h"
#include "engine/commands.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::int64_t NO_LIMIT = 999999999;

// The observations that the options ask for.
struct Wanted {
  std::int64_t beg = 1;
  std::int64_t end = NO_LIMIT;
  bool given = false;  // BEG, END or OBS stand in the command: every variable must have them
  std::int64_t matrix_rows = NO_LIMIT;
};

// ---- In which form
// -------------------------------------------------------------------------------

// The user's format: the stored text, parsed.
bool take_format(PrintJob& job, std::string_view name) {
  const std::string text = stored_format(job.ws, name);
  if (text.empty()) {
    if (name == "********" || name == "FORMAT$") {
      fail(" NO FORMAT SUPPLIED WITH FORMAT COMMAND");
    } else {
      fail(" ...ERROR..YOU MUST SPECIFY A FORMAT");
    }
    return false;
  }
  const FormatFault fault = job.format.parse(text);
  if (fault == FormatFault::too_long) {
    end_unless_talking(-3);
    return false;
  }
  // E, D and G without a digit can be read but not written.
  if (fault != FormatFault::none || job.format.summary().zero_digits) {
    bad_format(text);
    return false;
  }
  job.form = PrintForm::format;
  return true;
}

bool choose_form(PrintJob& job, const WriteTarget& target) {
  const NameOption& option = OPTCOM.VOPT[READOPT.place("FORMAT")];
  if (option.text == "FREE" || option.text == "BINARY") return true;
  if (option.text.empty()) {
    const char separator = separator_of(target.name);
    if (separator == '\0' || target.form != FileForm::text) return true;
    job.form = PrintForm::separated;
    job.separator = separator;
    return true;
  }
  if (option.text == "DUMP") {
    job.form = PrintForm::dump;
    return true;
  }
  if (option.text == "TAB" || option.text == "COMMA") {
    job.form = PrintForm::separated;
    job.separator = option.text == "TAB" ? '\t' : ',';
    return true;
  }
  return take_format(job, option.text);
}

// ---- What
// ----------------------------------------------------------------------------------------

// A listed variable with its shape; false, after the line, when there is nothing in it.
bool take_item(PrintJob& job, int var) {
  PrintItem x{.var = var, .name = NAME(job.ws, var)};
  if (var < 0 && var >= -NTEMPS) {
    if (TEMCOM.TEMVAL[static_cast<std::size_t>(-var - 1)] == UNSET) {
      fail<"(' ...ERROR..$', A, ' IS NOT CURRENTLY DEFINED')">(x.name);
      return false;
    }
    x.rows = x.last = 1;
    if (job.to_file) {  // a scalar like any other
      x.type = SERIES;
      x.data =
          std::span<const double>(TEMCOM.TEMVAL).subspan(static_cast<std::size_t>(-var - 1), 1);
    }
    job.items.push_back(x);
    return true;
  }
  const Place place = INFO(job.ws, var);
  if (OCOM.ODONT) return false;  // a column that does not exist
  x.data = elements(job.ws, var);
  if (x.data.empty()) {
    fail<"(' ...ERROR..THERE IS NO DATA ON VARIABLE ', A)">(x.name);
    return false;
  }
  const bool part = var > 2 * DATCOM.MAXVAR;  // one column, or one element of a series
  x.type = part ? static_cast<int>(SERIES) : place.ITYPE;
  x.rows = place.LEN;
  if (x.type == MATRIX2) {
    x.columns = std::max(place.columns(), 1);
    x.rows = place.rows();
  } else if (x.triangle()) {
    x.rows = place.N2;
  }
  x.last = x.rows;
  x.last_column = x.columns;
  job.items.push_back(x);
  return true;
}

// CHARSTR and CHARVAR: the words of the series listed are characters; CHARVARS=n: of the last n.
void mark_characters(PrintJob& job) {
  std::int64_t last = integer_option(READOPT.place("CHARVARS"));
  if (logical_option(READOPT.place("CHARSTR")) || logical_option(READOPT.place("CHARVAR"))) {
    last = static_cast<std::int64_t>(job.items.size());
  }
  for (auto x = job.items.rbegin(); x != job.items.rend() && last > 0; ++x, --last) {
    if (x->series() && x->var > 0) x->type = CHARVAR;
  }
}

// The listed variables; without a list all series, then all matrices.
bool take_list(PrintJob& job, bool write) {
  if (SCNCOM.NF > DATCOM.MAXVAR) {
    fail<"(' ...ERROR..MORE THAN', I3, ' VARIABLES SPECIFIED')">(DATCOM.MAXVAR);
    return false;
  }
  if (SCNCOM.NF > 0) {
    const bool plain = std::ranges::all_of(SCNCOM.list(), [](const ListItem& item) {
      return item.lag == 0 && item.order == 0 && !item.group;
    });
    if (!plain) {
      fail<"(' ...ERROR..LAGS AND GROUPS ARE NOT ALLOWED IN ', A)">(write ? "WRITE" : "PRINT");
      return false;
    }
    job.items.reserve(static_cast<std::size_t>(SCNCOM.NF));
    return std::ranges::all_of(SCNCOM.list(),
                               [&](const ListItem& item) { return take_item(job, item.var); });
  }
  job.items.reserve(static_cast<std::size_t>(DATCOM.NVARS));
  for (const bool matrices : {false, true}) {
    for (int I = 1; I <= DATCOM.NVARS; ++I) {
      if (job.ws.VNAME(I)[0] == ' ' || elements(job.ws, I).empty()) continue;
      const int type = INFO(job.ws, I).ITYPE;
      const bool matrix = type == MATRIX2 || type == SYMMETRIC || type == TRIANGLE;
      if ((matrices ? matrix : type == SERIES) && !take_item(job, I)) return false;
    }
  }
  return true;
}

// ---- Which observations
// --------------------------------------------------------------------------

bool find_range(Wanted& w) {
  const bool whole = logical_option(READOPT.place("ALL")) || logical_option(READOPT.place("EOF"));
  w.matrix_rows = integer_option(READOPT.place("ROWS"));
  if (whole) return true;
  const bool end_given = integer_given(READOPT.place("END"));
  const std::int64_t obs = integer_option(READOPT.place("OBS"));
  w.given = integer_given(READOPT.place("BEG")) || end_given || obs > 0;
  w.beg = integer_option(READOPT.place("BEG"));
  w.end = integer_option(READOPT.place("END"));
  if (obs > 0) {
    w.end = std::min(w.beg + obs - 1, NO_LIMIT);
  } else if (!end_given && DATCOM.IEND < 1) {
    w.end = NO_LIMIT;  // no sample is defined yet
  }
  if (w.beg > w.end || w.beg < 1) {
    fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(w.beg, w.end);
    return false;
  }
  return true;
}

bool beyond_variable() {
  fail(" ...ERROR..REQUESTED RANGE EXCEEDS VARIABLE LENGTH");
  return false;
}

// Columns COLB..COLE of a matrix, or COLS of them.
bool set_columns(PrintItem& x) {
  const int colb = integer_given(READOPT.place("COLB")) ? integer_option(READOPT.place("COLB")) : 1;
  std::int64_t cole = x.columns;
  if (integer_given(READOPT.place("COLE"))) {
    cole = integer_option(READOPT.place("COLE"));
  } else if (integer_given(READOPT.place("COLS"))) {
    cole = std::int64_t{colb} + integer_option(READOPT.place("COLS")) - 1;
  }
  if (colb < 1 || cole < colb || cole > x.columns) return beyond_variable();
  x.first_column = colb;
  x.last_column = static_cast<int>(cole);
  return true;
}

// The rows of each item. A range that the command names must be there; otherwise a variable is
// printed as far as it goes, and a scalar always. The sample is none of the business of a matrix.
bool set_rows(PrintJob& job, const Wanted& w) {
  for (PrintItem& x : job.items) {
    if (x.type == 0 || x.type == STRING5) continue;
    const bool ranged = x.rows > 1 && (x.column() || w.given);
    x.first = ranged ? w.beg : 1;
    x.last = ranged ? std::min(w.end, x.rows) : x.rows;
    const bool beyond = w.beg > x.rows || (w.end < NO_LIMIT && w.end > x.rows);
    if (ranged && w.given && beyond) return beyond_variable();
    if (x.column()) continue;
    x.last = std::min(x.last, w.matrix_rows);
    if (x.type == MATRIX2 && !set_columns(x)) return false;
  }
  return true;
}

// Missing data in the series that are printed: warnings or skip marks. Series are looked at
// together, so that an observation is skipped in all of them.
void check_missing(PrintJob& job) {
  std::vector<ListItem> list;
  list.reserve(job.items.size());
  PrintRange shared{.first = 1, .last = NO_LIMIT};
  std::int64_t longest = 0;
  for (const PrintItem& x : job.items) {
    if (!x.series() || x.rows == 1) continue;
    list.push_back(ListItem{.var = x.var, .name = x.name});
    shared = {.first = x.first, .last = std::min(shared.last, x.last)};
    longest = std::max(longest, x.last);
  }
  const auto check = [&](std::int64_t first, std::int64_t last, std::span<const ListItem> part) {
    if (last < first) return;
    DATCOM.MBEG = static_cast<int>(first);
    DATCOM.MEND = static_cast<int>(last);
    CKSMPL(job.ws, part);
  };
  if (OSCOM.OSMISS || side_by_side(job) || longest == shared.last) {
    if (!list.empty()) check(shared.first, shared.last, list);
  } else {  // warnings alone: each as far as it goes
    std::size_t k = 0;
    for (const PrintItem& x : job.items) {
      if (!x.series() || x.rows == 1) continue;
      check(x.first, x.last, std::span(list).subspan(k++, 1));
    }
  }
}

// Records of the output channel.
constexpr auto to_output = [](std::string_view record) {
  Line row;
  row.text(record);
  OUTLINE();
  return !stop_requested();
};

}  // namespace

namespace {

// BYVAR for one variable, else as SET has it; separated values are tables unless the command says
// BYVAR.
bool by_variable(const PrintJob& job) {
  if (logical_option(READOPT.place("ASCII"))) return true;
  if (logical_given(READOPT.place("BYVAR"))) return logical_option(READOPT.place("BYVAR"));
  const auto columns =
      std::ranges::count_if(job.items, [](const PrintItem& x) { return x.column(); });
  return columns == 1 ? job.form != PrintForm::separated : OSCOM.OBYV;
}

// The containers hold variables whole, or rows of them.
bool whole_columns(const PrintJob& job) {
  const bool part = std::ranges::any_of(job.items, [](const PrintItem& x) {
    return x.type == MATRIX2 && x.last_column - x.first_column + 1 < x.columns;
  });
  if (part) fail(" ...ERROR..INCOMPATIBLE OPTIONS  ");
  return !part;
}

// A matrix of one column, as the matrix language makes it, prints as a series.
void show_column_matrices_as_series(PrintJob& job) {
  for (PrintItem& x : job.items) {
    if (x.type == MATRIX2 && x.columns == 1) x.type = SERIES;
  }
}

void print_command(Workspace ws, bool write) {
  // 1. Data that came from an encrypted file are never shown.
  if (OCOM.OCRY) return;
  // 2. Options.
  OPTION_START(READOPT.view());
  OPTCOM.LOPT[READOPT.place("NAMES")] = !write;
  OPTCOM.LOPT[READOPT.place("REWIND")] = write;
  OPTCOM.LOPT[READOPT.place("WIDE")] = OSCOM.OWIDE;
  OPTCOM.IOPT[READOPT.place("ROWS")] = static_cast<int>(NO_LIMIT);
  OPTION_SCAN(ws, READOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  // 3. Target, form, list and range; nothing is printed before all of them are known to be right.
  PrintJob job{.ws = ws, .out = to_output};
  WriteTarget target;
  Wanted wanted;
  if (!find_target(target, write)) return;
  job.to_file = !target.channel;
  if (!choose_form(job, target) || !take_list(job, write)) return;
  if (job.items.empty()) {
    if (write) fail(" ...ERROR..NO DATA FOUND");  // an old file is not replaced by an empty one
    return;
  }
  if (target.form == FileForm::text) show_column_matrices_as_series(job);
  mark_characters(job);
  if (!find_range(wanted) || !set_rows(job, wanted)) return;
  // 4. Layout.
  job.wide = logical_option(READOPT.place("WIDE"));
  job.names = logical_option(READOPT.place("NAMES"));
  job.newline = logical_option(READOPT.place("NEWLINE"));
  job.byvar = by_variable(job);
  if (target.form != FileForm::text && !whole_columns(job)) return;
  if (job.form == PrintForm::format && !format_fits(job)) return bad_format(job.format.text());
  // 5. Missing data and skipped observations. What is written is never checked for missing data.
  if (!write) check_missing(job);
  if (OCOM.ODONT) return;
  if (skipping()) job.skip = skip_vector(ws);
  job.skip_missing = OSCOM.OSMISS && !write;
  job.marks_fresh = !write;
  // 6. The output channel: a command with "?" in front is silent; SET NOOUTPUT leaves PRINT alone.
  const bool silent = !OCOM.OPUT && OSCOM.OOPUT;
  if (target.channel) {
    if (silent) return;
    if (logical_option(READOPT.place("NEWPAGE"))) to_output("\f");
    print_data(job);
    return;
  }
  // 7. A file; LIST shows what was written.
  write_file(job, target);
  if (OCOM.ODONT || silent || !logical_option(READOPT.place("LIST"))) return;
  job.file = nullptr;
  job.to_file = false;
  job.names = true;
  if (job.form == PrintForm::format && !format_fits(job)) return bad_format(job.format.text());
  print_data(job);
}

}  // namespace

void PRINTX(Workspace ws) {
  const Trace trace("PRINTX");
  print_command(ws, false);
}

void WRITEX(Workspace ws) {
  const Trace trace("WRITEX");
  print_command(ws, true);
}

}  // namespace korvel
