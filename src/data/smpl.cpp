// The sample and the calendar: SAMPLE, SMPL and TIME.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include "data/data.h"
#include "data/sample.h"
#include "engine/bodies.h"
#include "engine/commands.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {

std::span<double> skip_vector(Workspace ws) {
  if (DATCOM.LSKIP <= 0) return {};
  const auto n = static_cast<std::size_t>(std::max(ws.DATA(DATCOM.LSKIP - 1), 0.0));
  return ws.words(DATCOM.LSKIP + std::int64_t{1}, n);
}

bool skipping() { return (OSCOM.OSKIP || OSCOM.OSMPL || OSCOM.OSMISS) && DATCOM.LSKIP > 0; }

int marks_wanted(int last) {
  const int highest = std::max(DATCOM.MAXOB, last);
  return highest < ADDCOM.MAXADD ? highest : last;
}

bool make_skip_vector(Workspace ws, int n) {
  const int var = NEWVAR(ws, SKIPNAME, {.LEN = n, .fill = 0.0});
  if (var == 0) return false;
  DATCOM.LSKIP = ws.KADD(var) + 3;
  return true;
}

void set_sample_size(Workspace ws) {
  const std::span<double> skip = skip_vector(ws);
  const auto last = std::min(skip.size(), static_cast<std::size_t>(std::max(DATCOM.IEND, 0)));
  // The count begins at element 1, not at IBEG.
  const auto lost = std::ranges::count_if(skip.first(last), [](double v) { return v > 0.0; });
  temporary(temporary_place("N")) = DATCOM.NOBS - static_cast<double>(lost);
}

namespace {

constexpr int MAXPERIODS = MAXWORDS;

// The error of SAMPLE and TIME, and a second line that names the cause.
void syntax_error(std::string_view cause, std::string_view word = {}) {
  error_line(" ...ERROR..SYNTAX ERROR IN ABOVE COMMAND");
  say<"(' ...NOTE..', A, 1X, A)">(cause, word.substr(0, NAMELEN));
  mark_failed();
}

bool begins_name(std::string_view word) {
  return !word.empty() && (NAMCHK(word[0]) == 1 || word[0] == '$' || word[0] == '_');
}

// A word of SAMPLE: a number, a date, a name, or NAME:n, whose colon may stand apart.
struct SampleWord {
  std::string_view name;
  std::string_view column;  // empty: none
  bool colon = false;
};

// Takes the next word off the command's words; `at` is the last token used.
SampleWord next_word(int& at) {
  const auto token = [](int i) {
    return i <= SCNCOM.NWORDS ? TOKCOM.token[static_cast<std::size_t>(i)].text : std::string_view();
  };
  SampleWord w{token(++at), {}, false};
  auto colon = w.name.find(':');
  if (colon == std::string_view::npos) {
    const std::string_view next = token(at + 1);
    if (next.empty() || next[0] != ':') return w;
    w.column = next.substr(1);
    ++at;
  } else {
    w.column = w.name.substr(colon + 1);
    w.name = w.name.substr(0, colon);
  }
  w.colon = true;
  if (w.column.empty()) w.column = token(++at);
  return w;
}

// The observation that a word means; false after the error lines.
bool observation(Workspace ws, const SampleWord& w, int& obs) {
  double value = 0;
  if (begins_name(w.name)) {
    std::array<char, std::size_t{2} * NAMELEN> text{};
    std::size_t n = std::min<std::size_t>(w.name.size(), NAMELEN);
    std::memcpy(text.data(), w.name.data(), n);
    if (w.colon) {
      const Number column = FSUMS(w.column);
      const bool whole = column.used == static_cast<int>(w.column.size()) && !column.point;
      if (!whole || column.value < 1 || column.value > DATCOM.MXCOL) {
        syntax_error("NO SUCH COLUMN:", w.column);
        return false;
      }
      text[n++] = ':';
      const std::size_t m = std::min<std::size_t>(w.column.size(), NAMELEN - 1);
      std::memcpy(text.data() + n, w.column.data(), m);
      n += m;
    }
    const Scalar s = scalar_value(ws, {text.data(), n}, true);
    if (!s.ok) {
      syntax_error("NO VALUE FOR", w.name);
      return false;
    }
    value = std::trunc(s.value);
  } else {
    const Number number = FSUMS(w.name);
    if (w.colon || number.used == 0 || number.used != static_cast<int>(w.name.size())) {
      syntax_error("NOT A NUMBER:", w.name);
      return false;
    }
    value = number.value;
    if (number.point) {
      const DateObs date = date_observation(number);
      if (!date.ok) {
        syntax_error(DATCOM.ITIME2 == 0 ? "NO TIME COMMAND IN FORCE FOR DATE"
                                        : "DATE IS BEFORE THAT OF THE TIME COMMAND:",
                     w.name);
        return false;
      }
      value = date.obs;
    }
  }
  if (!(value > -2147483648.0 && value < 2147483648.0)) {
    syntax_error("NOT AN OBSERVATION:", w.name);
    return false;
  }
  obs = static_cast<int>(value);
  return true;
}

bool in_gap(double mark) { return mark > 1.0 && mark != SKIP_MISSING; }

// Takes the old gap marks away; SKIPIF and SKIPMISS marks stay.
void clear_gaps(std::span<double> skip) {
  for (double& v : skip) {
    if (in_gap(v)) v -= SKIP_GAP;
  }
}

// Marks elements from..to (from 1). The mark of SKIPMISS lasts for one command only and would
// uncover the gap when it goes, so the gap takes its place.
void mark_gap(std::span<double> skip, int from, int to) {
  for (double& v :
       skip.subspan(static_cast<std::size_t>(from - 1), static_cast<std::size_t>(to - from + 1))) {
    v = v == SKIP_MISSING ? SKIP_GAP : v + SKIP_GAP;
  }
}

// Gaps of the sample in front of the loop or procedure that changes it, as first and last
// observation of each.
struct KeptGaps {
  bool kept = false, OSMPL = false;
  std::vector<std::pair<int, int>> gaps;
};
KeptGaps& kept_gaps() {
  static KeptGaps k;
  return k;
}

void keep_gaps(Workspace ws) {
  KeptGaps& keep = kept_gaps();
  if (keep.kept) return;
  keep.kept = true;
  keep.OSMPL = OSCOM.OSMPL;
  keep.gaps.clear();
  const std::span<const double> skip = skip_vector(ws);
  for (std::size_t i = 0; i < skip.size(); ++i) {
    if (!in_gap(skip[i])) continue;
    const int obs = static_cast<int>(i) + 1;
    if (i == 0 || !in_gap(skip[i - 1])) keep.gaps.emplace_back(obs, obs);
    keep.gaps.back().second = obs;
  }
}

// SAMPLE beg end [beg end ...]. Everything is checked before anything is changed, so that a refused
// command leaves the sample as it was.
//   reads the words; sets IBEG, IEND, NOBS, MAXOB, SKIP$, OSMPL, KTEST, $N.
void sample_command(Workspace ws) {
  // 1. The words, in pairs.
  if (SCNCOM.NWORDS == 0) return say(" COMMAND STRUCTURE: SAMPLE beg end beg end ...");
  std::array<SampleWord, MAXPERIODS> words;
  int count = 0;
  for (int at = 0; at < SCNCOM.NWORDS && count < MAXPERIODS;) {
    words[static_cast<std::size_t>(count++)] = next_word(at);
  }
  if (count % 2 != 0) {
    return fail<"(' ...ERROR..ONLY', I4, ' SAMPLE PERIODS..USE EVEN NUMBER')">(count);
  }
  if (OSCOM.OSCAN) return;
  // 2. Their observations, which must not fall; ranges leave a gap.
  std::array<int, MAXPERIODS> obs{};
  for (int k = 0; k < count; ++k) {
    const auto i = static_cast<std::size_t>(k);
    if (!observation(ws, words[i], obs[i])) return;
    if (obs[i] < 1) return syntax_error("OBSERVATIONS BEGIN AT 1:", words[i].name);
    if (k > 0 && obs[i] < obs[i - 1]) return syntax_error("OUT OF ORDER:", words[i].name);
    if (k > 0 && k % 2 == 0 && obs[i] < obs[i - 1] + 2) {
      return syntax_error("NO GAP BEFORE RANGE THAT BEGINS AT", words[i].name);
    }
  }
  const int first = obs[0], last = obs[static_cast<std::size_t>(count - 1)];
  const int highest = std::max(DATCOM.MAXOB, last);
  // 3. Room for the marks of gaps.
  const bool gaps = count > 2;
  if (gaps && static_cast<std::int64_t>(skip_vector(ws).size()) <= last) {
    if (!make_skip_vector(ws, marks_wanted(last))) return;
  }
  // 4. The new sample. That of the command line comes back when its loop or procedure ends.
  if (!levels().empty()) keep_gaps(ws);
  clear_estimate();
  DATCOM.IBEG = first;
  DATCOM.IEND = last;
  DATCOM.NOBS = last - first + 1;
  DATCOM.MAXOB = highest;
  if (OSCOM.ODMMP) say<"(' SMPL', 2I10)">(first, last);
  const std::span<double> skip = skip_vector(ws);
  clear_gaps(skip);
  OSCOM.OSMPL = gaps;
  for (int k = 1; k + 1 < count; k += 2) {
    const auto i = static_cast<std::size_t>(k);
    mark_gap(skip, obs[i] + 1, obs[i + 1] - 1);
  }
  set_sample_size(ws);
}

// Makes the series of dates of TIME: year + period/d, correctly rounded, so that 1980.1 there
// equals a typed 1980.1.
void make_dates(Workspace ws, std::string_view name) {
  if (DATCOM.IEND < 1) {
    return fail<"(' ...ERROR..SAMPLE RANGE HAS NOT BEEN DEFINED FOR: ', A)">(name);
  }
  if (NAMCHK(name[0]) != 1) return syntax_error("NOT A NAME:", name);
  const int var = NEWVAR(ws, name, {.LEN = DATCOM.IEND});
  if (var == 0) return;
  clear_estimate();
  DATCOM.MAXOB = std::max(DATCOM.MAXOB, DATCOM.IEND);
  say<"('  VARIABLE ', A, ' CREATED WITH ', I0, ' OBSERVATIONS')">(name, DATCOM.IEND);
  const double d = DATCOM.ITIME3 < 10 ? 10.0 : DATCOM.ITIME3 < 100 ? 100.0 : 1000.0;
  double year = DATCOM.ITIME1;
  int sub = DATCOM.ITIME2;
  for (double& v : elements(ws, var)) {
    v = (year * d + sub) / d;
    if (++sub > DATCOM.ITIME3) {
      sub = 1;
      year += 1.0;
    }
  }
}

// TIME beg freq [var]. Sets ITIME1, ITIME2, ITIME3.
void time_command(Workspace ws) {
  const auto word = [](int i) { return TOKCOM.token[static_cast<std::size_t>(i)].text; };
  // 1. The words.
  if (SCNCOM.NWORDS == 0) return say(" COMMAND STRUCTURE: TIME beg freq var");
  if (SCNCOM.NWORDS > 3) return syntax_error("TOO MANY WORDS:", word(4));
  // 2. Start and frequency.
  const Number beg = FSUMS(word(1));
  if (beg.used == 0 || beg.used != static_cast<int>(word(1).size()) ||
      !(std::fabs(beg.whole) < 1e9) || beg.fraction > 999999999) {
    return syntax_error("NOT A DATE:", word(1));
  }
  double freq = 1;
  if (SCNCOM.NWORDS > 1) {
    const Scalar s = scalar_value(ws, word(2), true);
    if (!s.ok || !(std::fabs(s.value) < 1e9)) return syntax_error("NOT A FREQUENCY:", word(2));
    freq = s.value;
  }
  if (OSCOM.OSCAN) return;
  DATCOM.ITIME1 = static_cast<int>(beg.whole);
  DATCOM.ITIME2 = std::max(static_cast<int>(beg.fraction), 1);
  DATCOM.ITIME3 = std::max(static_cast<int>(freq), 1);
  // 3. A series of dates.
  if (SCNCOM.NWORDS > 2) make_dates(ws, word(3).substr(0, KEYLEN));
}

}  // namespace

void restore_gaps(Workspace ws) {
  KeptGaps& keep = kept_gaps();
  if (!keep.kept) return;
  keep.kept = false;
  clear_gaps(skip_vector(ws));
  OSCOM.OSMPL = false;
  if (keep.gaps.empty()) return;
  const int last = keep.gaps.back().second;
  if (static_cast<std::int64_t>(skip_vector(ws).size()) < last &&
      !make_skip_vector(ws, marks_wanted(last))) {
    return;
  }
  OSCOM.OSMPL = keep.OSMPL;
  for (const auto& [from, to] : keep.gaps) mark_gap(skip_vector(ws), from, to);
}

void forget_gaps() { kept_gaps().kept = false; }

void SMPL(Workspace ws) {
  const Trace trace("SMPL");
  if (INPCOM.IKOD == K_TIME) return time_command(ws);
  sample_command(ws);
}

}  // namespace korvel
