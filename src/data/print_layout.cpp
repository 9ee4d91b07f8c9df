// The layouts of PRINT and WRITE: series one after the other or in columns, matrices, text.

#include <algorithm>
#include <charconv>
#include <cstring>

#include "data/print_job.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr int TEXT_LINE = 128;     // characters of a line of a character variable
constexpr int SHORTEST_ROOM = 32;  // the longest shortest decimal has 24

// The work of one command: a line, and words for a row of values.
struct Layout {
  PrintJob& job;
  std::span<double> row;
  std::array<char, LINELEN> line{};
  bool open = true;    // the sink still takes records
  bool began = false;  // a block has been printed

  bool send(std::string_view record) { return open = open && job.out(record); }
  bool send(const FormatView& format, std::span<const double> values) {
    if (!open) return false;
    return open = write_values(format, values, line.data(), LINELEN, job.out) == RecordEnd::done;
  }
  template <FixedText FMT, class... Args>
  bool put(const Args&... args) {
    line.fill(' ');
    const int n = compose<FMT>(line.data(), LINELEN, 0, args...);
    return send({line.data(), static_cast<std::size_t>(std::min(n, LINELEN))});
  }
};

FormatView row_view(const PrintJob& job) {
  switch (job.form) {
    case PrintForm::dump:
      return fixed_view<"(1X, 5E25.17)">();
    case PrintForm::format:
      return job.format.view();
    default:
      return job.wide ? fixed_view<"(1X, 8G15.7)">() : fixed_view<"(1X, 5G15.7)">();
  }
}

// Shortest decimals with separators; what passes column 130 goes on in the next line.
bool send_separated(Layout& at, std::span<const double> values) {
  int n = 0;
  for (std::size_t k = 0; k < values.size(); ++k) {
    std::array<char, SHORTEST_ROOM> text;
    const char* const end = std::to_chars(text.data(), text.data() + text.size(), values[k]).ptr;
    const auto size = static_cast<int>(end - text.data());
    const bool last = k + 1 == values.size();
    if (n + size + (last ? 0 : 1) > LINELEN) {
      if (!at.send({at.line.data(), static_cast<std::size_t>(n)})) return false;
      n = 0;
    }
    std::memcpy(at.line.data() + n, text.data(), static_cast<std::size_t>(size));
    n += size;
    if (!last) at.line[static_cast<std::size_t>(n++)] = at.job.separator;
  }
  return at.send({at.line.data(), static_cast<std::size_t>(n)});
}

bool send_row(Layout& at, std::span<const double> values) {
  if (at.job.form == PrintForm::separated) return send_separated(at, values);
  return at.send(row_view(at.job), values);
}

bool begin_block(Layout& at) {
  if (at.job.newline && at.began && !at.send(" ")) return false;
  at.began = true;
  return true;
}

bool send_name(Layout& at, std::string_view name) {
  if (!at.job.names) return true;
  if (name.size() > KEYLEN) return at.put<"(1X, A24)">(name);
  return at.put<"(1X, A8)">(name);
}

// ---- Series
// --------------------------------------------------------------------------------------

bool print_series(Layout& at, const PrintItem& x) {
  if (!begin_block(at) || !send_name(at, x.name)) return false;
  if (x.last < x.first) return true;
  const auto values = x.data.subspan(static_cast<std::size_t>(x.first - 1),
                                     static_cast<std::size_t>(x.last - x.first + 1));
  const bool whole = at.job.skip.empty() && !at.job.skip_missing;
  if (whole || x.rows <= 1) return send_row(at, values);
  // What is left of it, moved together.
  Scratch kept(at.job.ws, x.last - x.first + 1);
  if (!kept) return at.open = false;
  std::size_t n = 0;
  for (std::int64_t i = x.first; i <= x.last; ++i) {
    const double value = x.data[static_cast<std::size_t>(i - 1)];
    if (at.job.skipped(i) || (at.job.skip_missing && value == MACOM.XMISS)) continue;
    kept.words()[n++] = value;
  }
  return n == 0 || send_row(at, kept.words().first(n));
}

// Names over columns. A name is one word of 8 characters for the A descriptor.
bool send_heading(Layout& at, std::size_t columns) {
  const PrintJob& job = at.job;
  if (!job.names) return true;
  if (job.form == PrintForm::separated) {
    int n = 0;
    std::size_t left = columns;
    for (const PrintItem& x : job.items) {
      if (!x.series()) continue;
      if (n + static_cast<int>(x.name.size()) + 1 > LINELEN) {
        if (!at.send({at.line.data(), static_cast<std::size_t>(n)})) return false;
        n = 0;
      }
      std::memcpy(at.line.data() + n, x.name.data(), x.name.size());
      n += static_cast<int>(x.name.size());
      if (--left > 0) at.line[static_cast<std::size_t>(n++)] = job.separator;
    }
    return at.send({at.line.data(), static_cast<std::size_t>(n)});
  }
  std::size_t k = 0;
  for (const PrintItem& x : job.items) {
    if (x.series()) at.row[k++] = read_word_field(x.name.substr(0, KEYLEN));
  }
  // A line of names over each line of values: the group of the heading would be used again without
  // its first column.
  const auto names = at.row.first(columns);
  if (job.form == PrintForm::format) return at.send(fixed_view<"(1X, 9A8)">(), names);
  const bool dump = job.form == PrintForm::dump;
  const FormatView heading =
      dump ? fixed_view<"(1X, 5(17X, A8))">() : fixed_view<"(1X, 8(7X, A8))">();
  const std::size_t on_line = !dump && job.wide ? 8 : 5;
  for (std::size_t from = 0; from < columns; from += on_line) {
    if (!at.send(heading, names.subspan(from, std::min(on_line, columns - from)))) return false;
  }
  return true;
}

// A row an observation. A scalar stands in every row.
bool print_columns(Layout& at, std::size_t columns) {
  if (!begin_block(at) || !send_heading(at, columns)) return false;
  std::vector<const double*> base;
  base.reserve(columns);
  std::vector<bool> scalar;
  scalar.reserve(columns);
  bool all_scalars = true;
  for (const PrintItem& x : at.job.items) {
    if (!x.series()) continue;
    base.push_back(x.data.data());
    scalar.push_back(x.rows == 1);
    all_scalars = all_scalars && x.rows == 1;
  }
  const PrintRange range = common_range(at.job.items);
  const auto row = at.row.first(columns);
  for (std::int64_t i = range.first; i <= range.last; ++i) {
    if (!all_scalars && at.job.skipped(i)) continue;
    for (std::size_t k = 0; k < columns; ++k) row[k] = base[k][scalar[k] ? 0 : i - 1];
    if (!send_row(at, row)) return false;
  }
  return true;
}

// ---- Matrices, text and temporaries
// --------------------------------------------------------------

bool print_matrix(Layout& at, const PrintItem& x) {
  if (!begin_block(at) || !send_name(at, x.name)) return false;
  if (x.triangle()) {
    if (!at.send(" MATRIX - LOWER TRIANGLE PRINTED")) return false;
    for (std::int64_t i = x.first; i <= x.last; ++i) {
      const auto start = static_cast<std::size_t>(i * (i - 1) / 2);
      if (!send_row(at, x.data.subspan(start, static_cast<std::size_t>(i)))) return false;
    }
    return true;
  }
  if (!at.put<"(1X, I5, ' BY ', I5, ' MATRIX')">(x.rows, x.columns)) return false;
  const auto row = at.row.first(static_cast<std::size_t>(x.columns));
  for (std::int64_t i = x.first; i <= x.last; ++i) {
    for (std::size_t k = 0; k < row.size(); ++k) {
      row[k] = x.data[k * static_cast<std::size_t>(x.rows) + static_cast<std::size_t>(i - 1)];
    }
    if (!send_row(at, row)) return false;
  }
  return true;
}

bool print_text(Layout& at, const PrintItem& x) {
  if (!begin_block(at) || !send_name(at, x.name)) return false;
  std::string_view text(reinterpret_cast<const char*>(x.data.data()), x.data.size_bytes());
  text = right_trimmed(text);
  while (!text.empty()) {
    if (!at.put<"(1X, A)">(text.substr(0, TEXT_LINE))) return false;
    text.remove_prefix(std::min<std::size_t>(TEXT_LINE, text.size()));
  }
  return true;
}

bool print_temporary(Layout& at, const PrintItem& x) {
  return begin_block(at) && at.put<"(4X, '$', A4, 2X, G15.7)">(
                                x.name, TEMCOM.TEMVAL[static_cast<std::size_t>(-x.var - 1)]);
}

bool print_other(Layout& at, const PrintItem& x) {
  if (x.text()) return print_text(at, x);
  return x.type == 0 ? print_temporary(at, x) : print_matrix(at, x);
}

std::int64_t count_series(const PrintJob& job) {
  return std::ranges::count_if(job.items, [](const PrintItem& x) { return x.series(); });
}

}  // namespace

bool side_by_side(const PrintJob& job) { return !job.byvar && count_series(job) > 0; }

PrintRange common_range(std::span<const PrintItem> items) {
  PrintRange range;
  bool any = false;
  for (const PrintItem& x : items) {
    if (!x.series()) continue;
    if (x.rows == 1) {
      if (!any) range = {.first = 1, .last = 1};
    } else if (!any) {
      range = {.first = x.first, .last = x.last};
      any = true;
    } else {
      range.last = std::min(range.last, x.last);
    }
  }
  return range;
}

bool format_fits(const PrintJob& job) {
  const FormatView view = job.format.view();
  const auto fits = [&](std::int64_t n) {
    const int columns = widest_record(view, n, LINELEN);
    return columns >= 0 && columns <= LINELEN;
  };
  if (side_by_side(job) && !fits(count_series(job))) return false;
  for (const PrintItem& x : job.items) {
    if (x.type == 0 || x.text() || x.last < x.first) continue;
    if (x.series() && side_by_side(job)) continue;
    const std::int64_t n = x.series() ? x.last - x.first + 1 : x.triangle() ? x.last : x.columns;
    if (!fits(n)) return false;
  }
  return true;
}

bool print_data(PrintJob& job) {
  const std::int64_t series = count_series(job);
  std::int64_t words = series;
  for (const PrintItem& x : job.items) words = std::max<std::int64_t>(words, x.columns);
  Scratch row(job.ws, words);
  if (!row) return false;
  Layout at{.job = job, .row = row.words()};
  const bool columns = side_by_side(job);
  if (columns && !print_columns(at, static_cast<std::size_t>(series))) return false;
  for (const PrintItem& x : job.items) {
    if (x.series() && columns) continue;
    if (!(x.series() ? print_series(at, x) : print_other(at, x))) return false;
  }
  return true;
}

}  // namespace korvel
