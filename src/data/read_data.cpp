// The data of a READ: how many rows there are, room for them, their values.

#include <algorithm>

#include "data/read_job.h"
#include "data/read_options.h"
#include "engine/files.h"
#include "engine/host.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::size_t BULK_BYTES = std::size_t{1} << 16;  // less than this is read line by line

// After the last row that was wanted: an END in the next line belongs to the block. Lines that are
// not there yet are not waited for; END by itself is a command without effect.
void pass_end_word(ReadJob& job) {
  if (job.cursor.feed != nullptr) return;
  LineCursor ahead = job.cursor;
  std::string_view line;
  while (ahead.next(line)) {
    const LineKind kind = line_kind(line, job.plan);
    if (kind == LineKind::blank) continue;
    if (kind == LineKind::end_word) job.cursor = ahead;
    return;
  }
}

RowsRead read_any(ReadJob& job, LineCursor& cursor, const RowPlan& plan, const RowTarget* target,
                  std::int64_t from = 0) {
  return job.formatted ? read_formatted(cursor, job, plan, target, from)
                       : read_rows(cursor, plan, target, from);
}

// A single series with one value a line is read like rows of one value.
RowPlan bulk_plan(const ReadJob& job) {
  RowPlan plan = job.plan;
  if (plan.layout == Layout::ByVariable) {
    plan.layout = Layout::ByObservation;
    plan.values = 1;
    plan.surplus_is_dropped = false;
  }
  return plan;
}

// True when the first rows are plain: each in a line of its own.
bool plain_start(const ReadJob& job, const RowPlan& plan) {
  if (plan.delimited) return true;
  LineCursor ahead = job.cursor;
  std::string_view line;
  for (int n = 0; n < 8 && ahead.next(line);) {
    const LineKind kind = line_kind(line, plan);
    if (kind == LineKind::blank) continue;
    if (kind != LineKind::data) break;
    const std::int64_t values = count_values(line) - plan.skip_columns;
    if (values < plan.values || (!plan.surplus_is_dropped && values > plan.values)) return false;
    ++n;
  }
  return true;
}

bool suits_bulk(const ReadJob& job) {
  if (job.formatted || !job.plan.words.empty() || job.cursor.feed != nullptr ||
      job.plan.layout == Layout::Triangle)
    return false;
  if (job.plan.layout == Layout::ByVariable &&
      (job.items.size() != 1 || job.plan.skip_columns > 0)) {
    return false;
  }
  if (job.cursor.text.size() - job.cursor.at < BULK_BYTES) return false;
  return plain_start(job, bulk_plan(job));
}

bool asks_again(void*, std::int64_t group) {
  say<"(' ...WARNING..RE-ENTER ALL DATA FOR ROW', I4)">(group + 1);
  main_output().flush();
  return true;
}

// What a keyboard is told before it may type.
void prompt(const ReadJob& job) {
  Line row;
  row.text(" TYPE IN YOUR DATA FOR ");
  for (const ReadItem& item : job.items) {
    row.text(item.key());
    row.text(" ");
  }
  OUTLINE();
  say<"(I4, '  VARIABLES--ENTER ', A, ' ON NEW LINE WHEN DONE')">(
      static_cast<int>(job.items.size()), std::string_view(on_host() ? "$END" : "END"));
  main_output().flush();
}

// A text that is large and has far more rows than there is room for is not counted to its end: sets
// job.count to what the rows so far let expect.
bool too_long_for_memory(ReadJob& job, const RowPlan& plan) {
  constexpr std::size_t LARGE = std::size_t{1} << 28;
  const std::size_t size = job.cursor.text.size() - job.cursor.at;
  const std::int64_t room = room_for_rows(job);
  if (size < LARGE || job.matrix || room == UNKNOWN || job.most != UNKNOWN) return false;
  LineCursor head = job.cursor;
  head.text = head.text.substr(0, head.at + size / 8);
  head.progress = nullptr;
  const BlockScan scan = scan_block(head, plan, UNKNOWN);
  if (scan.sections.empty() || scan.rows == 0) return false;
  const double share = static_cast<double>(size) / static_cast<double>(scan.sections.back().end);
  const double rows = static_cast<double>(scan.rows) * share;
  if (rows < 1.5 * static_cast<double>(room)) return false;  // too near: counted to the last row
  job.count = static_cast<std::int64_t>(1.05 * rows);
  return true;
}

// How many rows there are, when the data say so: sets job.count. False after a failure that has
// been reported. With `bulk` the block is cut into sections for the threads.
bool count_rows(ReadJob& job, BlockScan& scan, bool bulk) {
  LineCursor ahead = job.cursor;
  RowPlan plan = job.plan;
  plan.groups = job.most;
  std::int64_t rows = 0;
  if (bulk) {
    plan = bulk_plan(job);
    plan.groups = job.most;
    if (too_long_for_memory(job, plan)) return true;
    scan = scan_block(ahead, plan, job.most);
    rows = scan.rows;
    if (job.most != UNKNOWN) rows = std::min(rows, job.most);
    if (!scan.sections.empty()) ahead.pass(scan.sections.back().end);
    if (rows == job.most) {
      job.count = rows;
      return true;
    }
  }
  const bool by_variable = plan.layout == Layout::ByVariable;
  if (by_variable) {
    plan.groups = 1;
    plan.values = UNKNOWN;
  }
  const RowsRead read = read_any(job, ahead, plan, nullptr, rows);
  if (read.end == RowEnd::stopped) {
    mark_failed();
    return false;
  }
  rows = read.groups + (read.partial > 0 || read.end == RowEnd::bad_count ? 1 : 0);
  if (by_variable) {
    const auto n = static_cast<std::int64_t>(job.items.size());
    // Several variables have equal shares, each beginning in a new line; under a format the end of
    // one can't be told from its last record.
    rows = read.partial / n;
    plan.groups = n;
    plan.values = rows;
    LineCursor again = job.cursor;
    const bool shares = read.partial % n == 0 && !job.formatted;
    if (n > 1 && (!shares || read_rows(again, plan, nullptr).end != RowEnd::count)) {
      fail(" ...ERROR..NUMBER OF OBSERVATIONS NOT SPECIFIED ");
      return false;
    }
    if (job.most != UNKNOWN && n == 1) rows = std::min(rows, job.most);
  }
  job.count = rows;
  return true;
}

// One series, of which `done` values are there: the rest may stand several to a line.
void finish_series(ReadJob& job, std::int64_t done) {
  if (job.from_data) {
    LineCursor ahead = job.cursor;
    RowPlan plan = job.plan;
    plan.groups = 1;
    plan.values = UNKNOWN;
    job.count = done + read_rows(ahead, plan, nullptr).partial;
    if (job.most != UNKNOWN) job.count = std::min(job.count, job.most);
    if (!make_storage(job)) return;
  }
  RowTarget rest;
  rest.column = {job.target.column[0] + done};
  RowPlan plan = job.plan;
  plan.groups = 1;
  plan.values = job.count - done;
  job.read = read_rows(job.cursor, plan, &rest);
  if (job.read.end == RowEnd::count) return;
  job.read.partial += done;
  job.read.bad_value += done;
}

}  // namespace

// Brings the lines of a source that isn't in memory there, so that they can be read like any text.
void gather(ReadJob& job) {
  TextInput* const feed = job.cursor.feed;
  const bool keyboard = job.stream && feed->terminal() && OSCOM.OTALK;
  if (keyboard) prompt(job);
  const LineCursor start = job.cursor;
  RowPlan plan = job.plan;
  if (plan.layout == Layout::ByVariable && job.count == UNKNOWN) {
    plan.groups = 1;
    plan.values = UNKNOWN;
  } else if (plan.layout == Layout::ByVariable) {
    plan.groups = plan.values;
    plan.values = job.count;
  } else {
    plan.groups = job.count;
  }
  const RowsRead read =
      job.formatted ? read_formatted(job.cursor, job, plan, nullptr, 0)
                    : read_rows(job.cursor, plan, nullptr, 0, keyboard ? asks_again : nullptr);
  job.gathered_all = read.end == RowEnd::terminator || read.end == RowEnd::end_of_text;
  job.cursor = start;
  job.cursor.feed = nullptr;
  job.cursor.text = job.hold;
}

void fill_rest(ReadJob& job, double value) {
  RowPlan& plan = job.plan;
  std::int64_t k = job.read.partial;
  bool cut = false;
  for (std::int64_t g = job.read.groups; g < plan.groups; ++g) {
    for (; k < plan.width(g); ++k) {
      job.target.place(plan.layout, g, k) = plan.word(g, k) ? text_word({}, cut) : value;
    }
    k = 0;
  }
}

// Reads the rows into variables. False when the command is at its end.
bool read_data(ReadJob& job) {
  // 1. Nothing there?
  {
    LineCursor ahead = job.cursor;
    std::string_view line;
    LineKind kind = LineKind::blank;
    while (kind == LineKind::blank && ahead.next(line)) kind = line_kind(line, job.plan);
    if (kind != LineKind::data) {
      if (kind == LineKind::end_word) job.cursor = ahead;
      fail(" ...ERROR..NO DATA FOUND");
      return false;
    }
  }
  // 2. Rows and storage. Old elements of variables must not meet rows that turn out to be none, so
  //    their number is then counted exactly.
  bool bulk = suits_bulk(job);
  BlockScan scan;
  if (job.from_data) {
    const bool exact = job.matrix || std::ranges::any_of(job.items, [&](const ReadItem& item) {
                         return item.var > 0 && INFO(job.ws, item.var).LEN >= job.beg;
                       });
    if (!count_rows(job, scan, bulk && !exact)) return false;
    if (exact) scan = {};
  }
  if (job.count < 1) {
    fail(" ...ERROR..NO DATA FOUND");
    return false;
  }
  if (!make_storage(job)) return false;
  // 3. The values: plain rows with all threads, the rest line by line.
  if (bulk && scan.sections.empty()) {
    scan = scan_block(job.cursor, bulk_plan(job), job.count);
  }
  std::int64_t done = 0;
  if (bulk) done = read_bulk(job.cursor, scan, bulk_plan(job), job.target, job.count);
  const bool by_variable = job.plan.layout == Layout::ByVariable;
  if (by_variable && bulk && done < job.count) {
    finish_series(job, done);
    if (OCOM.ODONT) return false;
  }
  if (by_variable) {
    job.plan.groups = static_cast<std::int64_t>(job.items.size());
    job.plan.values = job.count;
    if (!bulk)
      job.read = read_any(job, job.cursor, job.plan, &job.target);
    else if (done == job.count)
      job.read.groups = 1;
  } else {
    job.plan.groups = job.count;
    job.read = read_any(job, job.cursor, job.plan, &job.target, done);
  }
  if (job.read.end == RowEnd::count) pass_end_word(job);
  return true;
}

}  // namespace korvel
