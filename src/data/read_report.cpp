// What READ says: faults with their place, counts, missing codes, the sample.

#include <algorithm>

#include "data/data.h"
#include "data/read_job.h"
#include "data/read_options.h"
#include "data/sample.h"
#include "engine/output.h"

namespace korvel {
namespace {

// The beginning of a text of the data, fit for a message: control characters are blanks.
std::string shown_text(std::string_view text, std::size_t most) {
  std::string shown(text.substr(0, most));
  std::ranges::replace_if(
      shown, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, ' ');
  return shown;
}

// The line that tells where a value could not be read and what stood there.
void show_place(const ReadJob& job) {
  const std::int64_t line = job.first_line + job.read.line;
  if (job.formatted) {  // the record that holds the field
    constexpr std::size_t SHOWN = 60;
    const std::string record = shown_text(job.read.bad_text, SHOWN);
    if (job.stream) return say<"(' ...NOTE..LINE ', I0, ': ', A)">(line, record);
    return say<"(' ...NOTE..FILE ', A, ' LINE ', I0, ': ', A)">(job.shown, line, record);
  }
  const std::string bad = shown_text(job.read.bad_text, NAMELEN);
  if (job.stream) {
    say<"(' ...NOTE..LINE ', I0, ': ', A, ' IS NOT A NUMBER')">(line, bad);
  } else {
    say<"(' ...NOTE..FILE ', A, ' LINE ', I0, ': ', A, ' IS NOT A NUMBER')">(job.shown, line, bad);
  }
}

void report_cell(const ReadJob& job) {
  const std::int64_t line = job.first_line + job.read.line;
  const std::string_view file = job.where();
  const std::string_view advice = cell_advice(job);
  if (job.read.end == RowEnd::bad_count) {
    fail<"(' ...ERROR..FILE ', A, ' LINE ', I0, ': ', I0, ' CELLS EXPECTED, ', I0, ' FOUND')">(
        file, line, job.read.cells_wanted, job.read.cells);
    if (!advice.empty()) say(advice);
    return;
  }
  const std::string_view name =
      job.matrix ? job.items[0].key()
                 : std::string_view(job.items[static_cast<std::size_t>(job.read.bad_value)].name);
  const std::string bad = shown_text(job.read.bad_text, NAMELEN);
  fail<"(' ...ERROR..FILE ', A, ' LINE ', I0, ' COLUMN ', A, ': CELL ', A, ' IS NOT A NUMBER')">(
      file, line, name, bad);
  if (!advice.empty()) say(advice);
}

// One note on missing codes, by variable.
void note_missing(const ReadJob& job) {
  if (!OCOM.OPUT) return;
  int on_line = 0;
  bool noted = false;
  constexpr int PER_LINE = 5;
  std::string line;
  const auto add = [&](std::string_view name, std::size_t n) {
    if (n == 0) return;
    if (!noted) say(" ...NOTE..MISSING DATA WERE READ (SET SKIPMISS SKIPS SUCH OBSERVATIONS):");
    noted = true;
    if (on_line == PER_LINE) {
      say<"(A)">(line);
      line.clear();
      on_line = 0;
    }
    line += "  ";
    line += name;
    line += ' ';
    line += std::to_string(n);
    ++on_line;
  };
  if (job.matrix || job.container) {
    for (const ReadItem& item : job.items) {
      if (item.var <= 0 || INFO(job.ws, item.var).ITYPE >= STRING5) continue;
      add(item.key(), count_equal(elements(job.ws, item.var), MACOM.XMISS));
    }
  } else {
    for (std::size_t k = 0; k < job.items.size(); ++k) {
      if (job.items[k].word) continue;
      const auto all = elements(job.ws, job.items[k].var);  // may be shorter: a container's series
      const std::size_t first = std::min(static_cast<std::size_t>(job.beg - 1), all.size());
      const auto read =
          all.subspan(first, std::min(static_cast<std::size_t>(job.count), all.size() - first));
      add(job.items[k].key(), count_equal(read, MACOM.XMISS));
    }
  }
  if (on_line > 0) say<"(A)">(line);
}

}  // namespace

bool report_fault(ReadJob& job) {
  if (job.read.end == RowEnd::stopped) {
    put_back_old(job);
    mark_failed();
    return false;
  }
  if (job.read.end == RowEnd::bad_value || job.read.end == RowEnd::bad_count) {
    if (job.plan.delimited) {
      report_cell(job);
    } else if (job.plan.layout == Layout::Triangle) {
      fail(" ...ERROR..READ ERROR IN LOWER TRIANGLE OF MATRIX");
      show_place(job);
    } else if (job.matrix) {
      fail<"(' ...ERROR..READ ERROR IN ROW', I7, ' COLUMN', I7)">(job.beg + job.read.groups,
                                                                  job.colb + job.read.bad_value);
      show_place(job);
    } else {
      const std::int64_t k =
          job.plan.layout == Layout::ByVariable ? job.read.groups : job.read.bad_value;
      fail<"(' ...ERROR..READ ERROR IN VARIABLE', I4, 2X, A)">(
          k + 1, job.items[static_cast<std::size_t>(k)].name);
      show_place(job);
    }
    if (job.read.groups == 0 && job.read.partial == 0) {
      put_back_old(job);
      drop_new_variables(job);
      return false;
    }
    fill_rest(job, MACOM.XMISS);
    put_back_old(job);
    if (job.from_data && job.plan.layout == Layout::ByObservation) {
      trim_storage(job, job.read.groups + (job.read.partial > 0 ? 1 : 0));
    }
    return false;
  }
  if (job.read.end == RowEnd::count) return true;
  // The data ended early: rows that are not there are zero, or, when the data give the count, not
  // counted.
  const bool incomplete = job.read.partial > 0 || !job.from_data;
  fill_rest(job, 0.0);
  if (job.from_data && job.plan.layout == Layout::ByObservation) {
    trim_storage(job, job.read.groups + (job.read.partial > 0 ? 1 : 0));
  }
  if (incomplete) fail(" ...ERROR..LESS DATA FOUND THAN EXPECTED..ZEROS USED");
  return true;
}

void report_success(const ReadJob& job) {
  if (job.reported) return;
  if (job.matrix) {
    const std::int64_t cols = job.container                         ? job.cols
                              : job.plan.layout == Layout::Triangle ? job.count
                                                                    : job.plan.values;
    if (OCOM.OPUT) {
      say<"(' ...NOTE..', I8, ' ROWS AND    ', I8, ' COLUMNS, BEGINNING AT ROW', I8)">(
          job.count, cols, job.beg);
    }
    return note_missing(job);
  }
  if (OCOM.OPUT) {
    say<"(' ...NOTE..', I5, ' VARIABLES AND ', I8, ' OBSERVATIONS STARTING AT OBS', I8)">(
        static_cast<int>(job.items.size()), job.count, job.beg);
  }
  note_missing(job);
  if (job.read.cut > 0 && OCOM.OPUT) {
    say<"(' ...NOTE..', I0, ' WORDS OF TEXT WERE CUT TO 8 CHARACTERS')">(job.read.cut);
  }
  const int last = static_cast<int>(job.beg - 1 + job.count);
  DATCOM.MAXOB = std::max(DATCOM.MAXOB, last);
  if (DATCOM.IEND >= 1) return;
  DATCOM.IEND = last;
  DATCOM.NOBS = DATCOM.IEND - DATCOM.IBEG + 1;
  set_sample_size(job.ws);
  if (OCOM.OPUT) {
    say<"(' ...NOTE..SAMPLE RANGE IS NOW SET TO:', 2I10)">(DATCOM.IBEG, DATCOM.IEND);
  }
}

}  // namespace korvel
