// Storage of what READ brings in: shapes, variables, memory.

#include <algorithm>

#include "data/read_job.h"
#include "data/read_options.h"
#include "data/sample.h"
#include "engine/options.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr int HEADER = 4;

bool given(int place) { return integer_given(place); }

bool too_large() {
  fail(
      " ...ERROR..TOO MANY ROWS OR COLS REQUESTED OR VARIABLE NAME ALREADY EXISTS. CHECK NAME IS "
      "UNIQUE.");
  return false;
}
bool no_count() {
  fail(" ...ERROR..NUMBER OF OBSERVATIONS NOT SPECIFIED ");
  return false;
}
bool bad_range(std::int64_t beg, std::int64_t end) {
  fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(beg, end);
  return false;
}

Place existing(const ReadJob& job, const ReadItem& item) {
  return item.var > 0 ? INFO(job.ws, item.var) : Place{};
}

// Count of observations from OBS, BEG and END, the sample or the data.
bool plan_count(ReadJob& job) {
  constexpr int OBS = READOPT.place("OBS"), END = READOPT.place("END"), BEG = READOPT.place("BEG");
  job.beg = given(BEG) || !job.matrix ? integer_option(BEG) : 1;
  const bool to_end = logical_option(READOPT.place("EOF")) || logical_option(READOPT.place("ALL"));
  const bool by_sample = !to_end && !job.matrix && DATCOM.IEND >= 1;
  std::int64_t n = UNKNOWN;
  if (given(OBS)) {
    n = integer_option(OBS);
    if (n < 1) return no_count();
  } else if (given(END) || by_sample) {
    const std::int64_t end = given(END) ? integer_option(END) : DATCOM.IEND;
    if (end < job.beg) return bad_range(job.beg, end);
    n = end - job.beg + 1;
  }
  if (job.beg < 1) return bad_range(job.beg, job.beg + std::max<std::int64_t>(n, 1) - 1);
  if (to_end) {
    job.most = n;
  } else {
    job.count = n;
  }
  if (job.count != UNKNOWN && !fits32(job.beg + job.count)) return too_large();
  return true;
}

// The data give the count when nothing else does; a file wants to be told so.
bool count_is_known_or_in_data(ReadJob& job) {
  job.from_data = job.count == UNKNOWN;
  const bool to_end = logical_option(READOPT.place("EOF")) || logical_option(READOPT.place("ALL"));
  if (!job.from_data || job.stream || to_end) return true;
  no_count();
  say(" ...NOTE..GIVE OBS, OR EOF TO READ TO THE END OF THE FILE");
  return false;
}

// Words that new variables of `rows` rows need beyond what is free; 0 when they fit.
std::int64_t words_wanting(const ReadJob& job, std::int64_t rows) {
  if (DATCOM.NDL > 0) return 0;  // holes may serve: NEWVAR will know
  std::int64_t words = 0;
  for (const ReadItem& item : job.items) {
    if (item.var == 0) words += rows + HEADER;
  }
  const std::int64_t room = ADDCOM.SCRTOP - std::int64_t{ADDCOM.LASADD};
  return words > room ? words : 0;
}

bool no_memory(const ReadJob& job, std::int64_t words) {
  if (job.from_data && !job.matrix && !job.items.empty()) {
    const std::int64_t fit = std::max<std::int64_t>(room_for_rows(job), 0);
    error_line<"(' ...ERROR..INSUFFICIENT MEMORY TO PROCEED AFTER ', I8, ' OBS')">(fit);
  } else {
    error_line(" ...ERROR..INSUFFICIENT MEMORY TO ENTER MATRIX");
  }
  ADDCOM.NEED = words + ADDCOM.LASADD + (ADDCOM.MAXADD - ADDCOM.SCRTOP);
  NOCORE();
  return false;
}

void point_at(ReadJob& job, std::size_t k, int var) {
  const Place p = INFO(job.ws, var);
  job.target.column[k] = &job.ws.DATA(p.IADD + std::int64_t{HEADER} + job.beg - 1);
}

// Makes or lengthens one series, or checks the column that is to be filled.
bool store_series(ReadJob& job, std::size_t k) {
  ReadItem& item = job.items[k];
  const std::int64_t last = job.beg - 1 + job.count;
  const Place old = existing(job, item);
  if (item.var > 2 * DATCOM.MAXVAR) {  // a column of a matrix that is there
    if (last > old.LEN) return too_large();
    point_at(job, k, item.var);
    return true;
  }
  const bool skip = item.name == SKIPNAME;
  if (item.old_length < 0) item.old_length = old.LEN;
  // Words of an old character variable go along when it moves; what is not read of it is blank.
  const auto old_words =
      item.word && item.var > 0 ? elements(job.ws, item.var) : std::span<double>();
  const std::vector<double> kept(old_words.begin(), old_words.end());
  bool cut = false;
  NewVar request{.LEN = std::max<std::int64_t>(last, old.LEN), .column = item.column};
  if (item.word) request.ITYPE = old.ITYPE == STRING5 ? STRING5 : CHARVAR;
  if (item.word) request.fill = text_word({}, cut);
  const int var = NEWVAR(job.ws, item.name, request);
  if (var == 0) return false;
  std::ranges::copy(kept, elements(job.ws, var).begin());
  if (skip && DATCOM.LSKIP > 0) DATCOM.LSKIP = job.ws.KADD(var) + 3;
  item.var = var;
  point_at(job, k, var);
  return true;
}

// Copies what the places to be filled hold of variables that were there before: at most `most`
// elements of each column, from the first on.
void keep_old(ReadJob& job, std::int64_t most) {
  if (!job.kept.empty()) return;  // a longer second go: what there was has been copied
  job.kept.resize(job.target.column.size());
  for (std::size_t k = 0; k < job.kept.size(); ++k) {
    const ReadItem& item = job.items[job.matrix ? 0 : k];
    const bool whole = job.matrix || item.var > 2 * DATCOM.MAXVAR;
    const std::int64_t old =
        whole ? (item.old_length == 0 ? 0 : most) : std::min(most, item.old_length - job.beg + 1);
    if (old > 0) job.kept[k].assign(job.target.column[k], job.target.column[k] + old);
  }
}

bool store_matrix(ReadJob& job) {
  ReadItem& item = job.items[0];
  const bool packed = job.matrix_type == SYMMETRIC || job.matrix_type == TRIANGLE;
  const std::int64_t rows = job.beg - 1 + job.count;
  std::int64_t words = 0;
  if (!checked_product(rows, packed ? rows + 1 : job.cols, words)) return too_large();
  if (packed) words /= 2;
  const Place old = existing(job, item);
  if (old.ITYPE == NOTYPE) {
    if (words + HEADER > ADDCOM.SCRTOP - std::int64_t{ADDCOM.LASADD} && DATCOM.NDL == 0) {
      return no_memory(job, words + HEADER);
    }
    const int n2 = static_cast<int>(packed ? rows : job.cols);
    item.old_length = 0;
    item.var = NEWVAR(job.ws, item.name, {.ITYPE = job.matrix_type, .LEN = words, .N2 = n2});
    if (item.var == 0) return false;
  } else if (!packed && rows > old.rows()) {
    return too_large();
  }
  const Place p = INFO(job.ws, item.var);
  double* const base = &job.ws.DATA(p.IADD + std::int64_t{HEADER});
  job.target.column.clear();
  if (packed) {
    job.target.column.push_back(base);
    keep_old(job, words);
    return true;
  }
  for (std::int64_t j = 0; j < job.plan.values; ++j) {
    job.target.column.push_back(base + (job.colb - 1 + j) * p.rows() + job.beg - 1);
  }
  keep_old(job, job.count);
  return true;
}

}  // namespace

std::int64_t room_for_rows(const ReadJob& job) {
  if (DATCOM.NDL > 0 || job.items.empty()) return UNKNOWN;
  const auto n = static_cast<std::int64_t>(job.items.size());
  const std::int64_t room = ADDCOM.SCRTOP - std::int64_t{ADDCOM.LASADD};
  return std::max<std::int64_t>(room / n - HEADER - (job.beg - 1), 0);
}

bool plan_series(ReadJob& job) {
  for (const ReadItem& item : job.items) {
    const Place old = existing(job, item);
    const bool column = item.var > 2 * DATCOM.MAXVAR;
    const bool series = old.ITYPE == SERIES || (old.ITYPE == MATRIX2 && old.N2 == 1);
    if (item.word) {
      if ((old.ITYPE != NOTYPE && old.ITYPE < STRING5) || item.column > 0 || column) {
        return too_large();
      }
      continue;
    }
    if (old.ITYPE != NOTYPE && !series && !(column && old.ITYPE <= MATRIX2)) return too_large();
  }
  return plan_count(job) && count_is_known_or_in_data(job);
}

bool plan_matrix(ReadJob& job) {
  constexpr int ROWS = READOPT.place("ROWS"), COLS = READOPT.place("COLS"),
                COLB = READOPT.place("COLB"), COLE = READOPT.place("COLE");
  const bool symmetric = logical_option(READOPT.place("SYMAT"));
  const bool triangle = logical_option(READOPT.place("TRIMAT"));
  job.matrix = symmetric || triangle || given(ROWS) || given(COLS) || given(COLB) || given(COLE);
  if (!job.matrix) return plan_series(job);
  if (job.items.size() != 1) {
    fail(" ...ERROR..ONLY ONE MATRIX MAY BE READ AT A TIME ");
    return false;
  }
  for (const int place : {ROWS, COLS, COLB, COLE}) {
    if (given(place) && integer_option(place) < 1) return too_large();
  }
  const ReadItem& item = job.items[0];
  const Place old = existing(job, item);
  if (item.var > 2 * DATCOM.MAXVAR || item.column > 0) return too_large();
  if (!plan_count(job)) return false;
  if (given(ROWS)) job.count = integer_option(ROWS);
  if (symmetric || triangle) {
    job.matrix_type = symmetric ? SYMMETRIC : TRIANGLE;
    if (!given(ROWS)) job.count = old.ITYPE == job.matrix_type ? old.N2 : integer_option(COLS);
    if (job.count < 1) return no_count();
    if (given(COLS) && integer_option(COLS) != job.count) return too_large();
    if (old.ITYPE != NOTYPE && (old.ITYPE != job.matrix_type || old.N2 != job.count)) {
      return too_large();
    }
    job.beg = 1;
    job.plan.layout = Layout::Triangle;
    return true;
  }
  const bool is_old = old.ITYPE != NOTYPE;
  job.cols = given(COLS) ? integer_option(COLS) : is_old ? old.N2 : integer_option(COLE);
  if (job.cols < 1) {
    fail(" ...ERROR..NEW MATRIX..COLS OR COL2 MUST BE SPECIFIED ");
    return false;
  }
  job.colb = given(COLB) ? integer_option(COLB) : 1;
  const std::int64_t cole = given(COLE) ? integer_option(COLE) : job.cols;
  if (job.colb > cole || cole > job.cols) return too_large();
  if (is_old && (old.ITYPE > MATRIX2 || old.N2 != job.cols)) return too_large();
  if (job.count == UNKNOWN && is_old && !logical_option(READOPT.place("EOF"))) {
    job.count = old.rows() - job.beg + 1;
    if (job.count < 1) return too_large();
  }
  job.matrix_type = job.cols > 1 ? MATRIX2 : SERIES;
  job.plan.layout = Layout::ByObservation;
  job.plan.values = cole - job.colb + 1;
  return count_is_known_or_in_data(job);
}

bool make_storage(ReadJob& job) {
  if (!fits32(job.beg + job.count)) return too_large();
  clear_estimate();
  if (job.matrix) return store_matrix(job);
  const std::int64_t words = words_wanting(job, job.beg - 1 + job.count);
  if (words > 0) return no_memory(job, words);
  job.target.column.assign(job.items.size(), nullptr);
  for (std::size_t k = 0; k < job.items.size(); ++k) {
    if (!store_series(job, k)) {
      put_back_old(job);
      drop_new_variables(job);
      return false;
    }
  }
  keep_old(job, job.count);
  return true;
}

void put_back_old(ReadJob& job) {
  for (std::size_t k = 0; k < job.kept.size(); ++k) {
    std::ranges::copy(job.kept[k], job.target.column[k]);
  }
  for (const ReadItem& item : job.items) {
    const bool single = item.var > 0 && item.var <= 2 * DATCOM.MAXVAR;
    if (!single || item.old_length <= 0 || job.matrix) continue;
    const Place p = INFO(job.ws, item.var);
    if (p.LEN <= item.old_length) continue;
    NEWVAR(job.ws, item.name, {.ITYPE = p.ITYPE, .LEN = item.old_length, .N2 = p.N2});
  }
}

void drop_new_variables(ReadJob& job) {
  for (std::size_t k = job.items.size(); k-- > 0;) {
    const int var = job.items[k].var;
    if (job.items[k].old_length == 0 && var > 0 && var <= DATCOM.NVARS) free_variable(job.ws, var);
  }
}

void trim_storage(ReadJob& job, std::int64_t rows) {
  if (rows >= job.count) return;
  job.count = std::max<std::int64_t>(rows, 1);
  if (job.matrix) return;
  for (ReadItem& item : job.items) {
    const Place p = INFO(job.ws, item.var);
    const std::int64_t wanted = std::max(job.beg - 1 + job.count, item.old_length);
    if (item.var > 2 * DATCOM.MAXVAR || p.ITYPE == MATRIX2 || p.LEN <= wanted) continue;
    NEWVAR(job.ws, item.name, {.ITYPE = p.ITYPE, .LEN = wanted});
  }
}

}  // namespace korvel
