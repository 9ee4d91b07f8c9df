// PRINTX: PRINT and LIST show variables, matrices and temporaries on the output channel.
//   reads SCNCOM, OPTCOM, the sample words and SKIP$; sets MBEG, MEND and the failure flags.

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "data/data.h"
#include "data/print_job.h"
#include "data/read_options.h"
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

// ---- Where to
// ------------------------------------------------------------------------------------

// Only the output channel: files and units, and the forms that need one, aren't for this routine.
bool output_channel() {
  const int unit = SCNCOM.INPAR > 0 ? SCNCOM.INPAR : integer_option(READOPT.place("UNIT"));
  if (!SCNCOM.file && (unit == 2 || unit == 3 || unit == 8)) {
    fail<"(' ...ERROR..UNIT', I2, ' IS RESERVED FOR INTERNAL USE')">(unit);
    return false;
  }
  if (SCNCOM.file || (unit > 0 && unit != IOCOM.L6)) {
    fail(" ...ERROR..PRINT TO A UNIT OR FILE IS NOT AVAILABLE ON THIS SYSTEM");
    return false;
  }
  for (const int place :
       {READOPT.place("BINARY"), READOPT.place("SBINARY"), READOPT.place("KORVEL"),
        READOPT.place("DIF"), READOPT.place("TSP"), READOPT.place("DB"), READOPT.place("CRYPT")}) {
    if (logical_option(place)) {
      fail(" ...ERROR..DATA FILE FORMS ARE NOT AVAILABLE ON THE OUTPUT CHANNEL");
      return false;
    }
  }
  return true;
}

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
    XXIT(-3);
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

bool choose_form(PrintJob& job) {
  const NameOption& option = OPTCOM.VOPT[READOPT.place("FORMAT")];
  if (option.text.empty() || option.text == "FREE") return true;
  if (option.text == "DUMP") {
    job.form = PrintForm::dump;
    return true;
  }
  if (option.text == "TAB" || option.text == "COMMA") {
    job.form = PrintForm::separated;
    job.separator = option.text == "TAB" ? '\t' : ',';
    return true;
  }
  if (option.text == "BINARY") {
    fail(" ...ERROR..DATA FILE FORMS ARE NOT AVAILABLE ON THE OUTPUT CHANNEL");
    return false;
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
    x.columns = std::max(place.N2, 1);
    x.rows = place.rows();
  } else if (x.triangle()) {
    x.rows = place.N2;
  }
  job.items.push_back(x);
  return true;
}

// The listed variables; without a list all series, then all matrices.
bool take_list(PrintJob& job) {
  if (SCNCOM.NF > DATCOM.MAXVAR) {
    fail<"(' ...ERROR..MORE THAN', I3, ' VARIABLES SPECIFIED')">(DATCOM.MAXVAR);
    return false;
  }
  if (SCNCOM.NF > 0) {
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

// The rows of each item. A range that the command names must be there; otherwise a variable is
// printed as far as it goes, and a scalar always. The sample is none of the business of a matrix.
bool set_rows(PrintJob& job, const Wanted& w) {
  for (PrintItem& x : job.items) {
    if (x.type == 0 || x.text()) continue;
    const bool ranged = x.rows > 1 && (x.series() || w.given);
    x.first = ranged ? w.beg : 1;
    x.last = ranged ? std::min(w.end, x.rows) : x.rows;
    const bool beyond = w.beg > x.rows || (w.end < NO_LIMIT && w.end > x.rows);
    if (ranged && w.given && beyond) {
      fail(" ...ERROR..REQUESTED RANGE EXCEEDS VARIABLE LENGTH");
      return false;
    }
    if (!x.series()) x.last = std::min(x.last, w.matrix_rows);
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
  if (skipping()) job.skip = skip_vector(job.ws);
  job.skip_missing = OSCOM.OSMISS;
}

// Records of the output channel.
constexpr auto to_output = [](std::string_view record) {
  Line row;
  row.text(record);
  OUTLINE();
  return !stop_requested();
};

}  // namespace

void PRINTX(Workspace ws) {
  const Trace trace("PRINTX");
  // 1. Data that came from an encrypted file are never shown.
  if (OCOM.OCRY) return;
  // 2. Options.
  OPTION_START(READOPT.view());
  OPTCOM.LOPT[READOPT.place("NAMES")] = true;
  OPTCOM.LOPT[READOPT.place("WIDE")] = OSCOM.OWIDE;
  OPTCOM.IOPT[READOPT.place("ROWS")] = static_cast<int>(NO_LIMIT);
  OPTION_SCAN(ws, READOPT.view());
  if (OCOM.ODONT || OSCOM.OSCAN) return;
  // 3. Channel, form and range; nothing is printed before all of them are known to be right.
  PrintJob job{.ws = ws, .out = to_output};
  Wanted wanted;
  if (!output_channel() || !choose_form(job) || !take_list(job)) return;
  if (job.items.empty()) return;
  if (!find_range(wanted) || !set_rows(job, wanted)) return;
  // 4. Layout. Separated values are tables unless the command says BYVAR.
  job.wide = logical_option(READOPT.place("WIDE"));
  job.names = logical_option(READOPT.place("NAMES"));
  job.newline = logical_option(READOPT.place("NEWLINE"));
  const auto series =
      std::ranges::count_if(job.items, [](const PrintItem& x) { return x.series(); });
  job.byvar = series == 1 ? job.form != PrintForm::separated : OSCOM.OBYV;
  if (logical_given(READOPT.place("BYVAR"))) job.byvar = logical_option(READOPT.place("BYVAR"));
  if (logical_option(READOPT.place("ASCII"))) job.byvar = true;
  if (job.form == PrintForm::format && !format_fits(job)) {
    return bad_format(job.format.text());
  }
  // 5. Missing data and skipped observations.
  check_missing(job);
  if (OCOM.ODONT) return;
  // 6. A command with "?" in front is silent; SET NOOUTPUT leaves PRINT alone.
  if (!OCOM.OPUT && OSCOM.OOPUT) return;
  if (logical_option(READOPT.place("NEWPAGE"))) to_output("\f");
  print_data(job);
}

}  // namespace korvel
