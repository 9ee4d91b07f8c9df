// The layouts of PRINT and WRITE: series one after the other or in columns, matrices, text.

#include <algorithm>
#include <cstring>

#include "data/print_job.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr int TEXT_LINE = 128;  // characters of a line of a character variable

// The work of one command: where its text goes, and a line for what stands between the rows.
struct Layout {
  PrintJob& job;
  RowForm form;
  std::array<char, LINELEN> line{};  // being made, or the front of one for the output channel
  std::size_t held = 0;              // characters of a line that isn't complete yet
  bool open = true;                  // text is still taken
  bool began = false;                // a block has been printed

  // Text of any length, with its line ends.
  bool send(std::string_view text) {
    if (!open) return false;
    if (job.file != nullptr) {
      job.file->write(text);
      return open = job.file->error() == 0 && !stop_requested();
    }
    while (open && !text.empty()) {
      const std::size_t end = std::min(text.find('\n'), text.size());
      const std::string_view piece = text.substr(0, std::min(end, line.size() - held));
      if (held == 0 && end < text.size()) {
        open = job.out(piece);
      } else {
        std::memcpy(line.data() + held, piece.data(), piece.size());
        held += piece.size();
        if (end < text.size()) {
          open = job.out({line.data(), held});
          held = 0;
        }
      }
      text.remove_prefix(std::min(end + 1, text.size()));
    }
    return open;
  }
  bool send_line(std::string_view text) {
    return send(job.to_file ? right_trimmed(text) : text) && send("\n");
  }
  template <FixedText FMT, class... Args>
  bool put(const Args&... args) {
    std::array<char, LINELEN> text;
    text.fill(' ');
    const int n = compose<FMT>(text.data(), LINELEN, 0, args...);
    return send_line({text.data(), static_cast<std::size_t>(std::min(n, LINELEN))});
  }
  auto sink() {
    return [this](std::string_view text) { return send(text); };
  }
};

RowForm row_form(const PrintJob& job) {
  RowForm form{.form = job.form, .separator = job.separator};
  if (job.form == PrintForm::rows && job.wide) form.per_line = 8;
  if (job.form == PrintForm::format) form.format = job.format.view();
  if (!job.to_file) form.limit = LINELEN;
  return form;
}

std::size_t most_columns(const PrintJob& job) {
  return job.to_file ? RECORD_LIMIT : static_cast<std::size_t>(LINELEN);
}

// A row of values by itself: a series, or a row of a triangle.
bool send_values(Layout& at, std::span<const double> values) {
  if (!at.open) return false;
  switch (at.job.form) {
    case PrintForm::separated:
      return send_separated(at.form, values, at.sink());
    case PrintForm::rows:
    case PrintForm::dump:
      return send_list(at.form, values, at.sink());
    case PrintForm::format:
      break;
  }
  std::vector<char> record(at.form.columns);
  const auto sink = [&](std::string_view text) { return at.send(text) && at.send("\n"); };
  return at.open = write_values(at.form.format, values, record.data(),
                                static_cast<int>(record.size()), sink) == RecordEnd::done;
}

bool begin_block(Layout& at) {
  if (at.job.newline && at.began && !at.send_line(" ")) return false;
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
  if (whole || x.rows <= 1) return send_values(at, values);
  // What is left of it, moved together.
  Scratch kept(at.job.ws, x.last - x.first + 1);
  if (!kept) return at.open = false;
  std::size_t n = 0;
  for (std::int64_t i = x.first; i <= x.last; ++i) {
    const double value = x.data[static_cast<std::size_t>(i - 1)];
    if (at.job.skipped(i) || (at.job.skip_missing && value == MACOM.XMISS)) continue;
    kept.words()[n++] = value;
  }
  return n == 0 || send_values(at, kept.words().first(n));
}

// Names in one line with separators; on the output channel what passes column 130 goes on in the
// next one.
bool send_separated_names(Layout& at, std::size_t columns) {
  std::size_t n = 0, left = columns;
  for (const PrintItem& x : at.job.items) {
    if (!x.column()) continue;
    if (!at.job.to_file && n + x.name.size() + 1 > LINELEN) {
      if (!at.send("\n")) return false;
      n = 0;
    }
    n += x.name.size() + 1;
    if (!at.send(x.name)) return false;
    if (--left > 0 && !at.send({&at.job.separator, 1})) return false;
  }
  return at.send("\n");
}

// Names over columns of values; in a file all of them in one line, so that it can be read as the
// row of names. Under a user's format they stand 8 wide, 9 a line.
bool send_heading(Layout& at, std::size_t columns) {
  const PrintJob& job = at.job;
  if (!job.names) return true;
  if (job.form == PrintForm::separated) return send_separated_names(at, columns);
  const bool format = job.form == PrintForm::format;
  const int width = format ? (job.to_file ? KEYLEN + 1 : KEYLEN) : at.form.cell_width();
  const int on_line = format ? 9 : at.form.per_line;
  int k = 0;
  for (const PrintItem& x : job.items) {
    if (!x.column()) continue;
    if (k % on_line == 0 && (k == 0 || !job.to_file)) {
      if (!at.send(k == 0 ? " " : "\n ")) return false;
    }
    std::array<char, 32> cell;
    cell.fill(' ');
    edit_text(cell.data() + width - KEYLEN, KEYLEN, x.name.substr(0, KEYLEN));
    std::string_view text(cell.data(), static_cast<std::size_t>(width));
    if (++k == static_cast<int>(columns)) text = right_trimmed(text);
    if (!at.send(text)) return false;
  }
  return at.send("\n");
}

// A row an observation. A scalar stands in every row.
bool print_columns(Layout& at, std::size_t columns) {
  if (!begin_block(at) || !send_heading(at, columns)) return false;
  std::vector<RowCell> cells;
  cells.reserve(columns);
  bool all_scalars = true;
  for (const PrintItem& x : at.job.items) {
    if (!x.column()) continue;
    cells.push_back({.base = x.data.data() - (x.rows == 1 ? 0 : 1),  // observations count from 1
                     .stride = x.rows == 1 ? 0 : 1,
                     .text = x.text()});
    all_scalars = all_scalars && x.rows == 1;
  }
  const PrintRange range = common_range(at.job.items);
  RowBlock block{.cells = cells, .first = range.first, .last = range.last};
  if (!all_scalars && !at.job.skip.empty()) {
    block.skipped = [](const void* job, std::int64_t i) {
      return static_cast<const PrintJob*>(job)->skipped(i);
    };
    block.context = &at.job;
  }
  measure_rows(at.form, columns, most_columns(at.job));
  return at.open = send_rows(at.form, block, at.sink()) && at.open;
}

// ---- Matrices, text and temporaries
// --------------------------------------------------------------

bool print_matrix(Layout& at, const PrintItem& x) {
  if (!begin_block(at) || !send_name(at, x.name)) return false;
  const bool lines = at.job.names || !at.job.to_file;  // that tell the shape
  if (x.triangle()) {
    if (lines && !at.send_line(" MATRIX - LOWER TRIANGLE PRINTED")) return false;
    for (std::int64_t i = x.first; i <= x.last; ++i) {
      const auto start = static_cast<std::size_t>(i * (i - 1) / 2);
      const auto row = x.data.subspan(start, static_cast<std::size_t>(i));
      if (at.job.form == PrintForm::format) measure_rows(at.form, row.size(), most_columns(at.job));
      if (!send_values(at, row)) return false;
    }
    return true;
  }
  if (lines && !at.put<"(1X, I5, ' BY ', I5, ' MATRIX')">(x.rows, x.columns)) return false;
  std::vector<RowCell> cells;
  const auto columns = static_cast<std::size_t>(x.last_column - x.first_column + 1);
  cells.reserve(columns);
  for (int k = x.first_column; k <= x.last_column; ++k) {
    cells.push_back({.base = x.data.data() + (k - 1) * x.rows - 1});
  }
  measure_rows(at.form, columns, most_columns(at.job));
  const RowBlock block{.cells = cells, .first = x.first, .last = x.last};
  return at.open = send_rows(at.form, block, at.sink()) && at.open;
}

bool print_text(Layout& at, const PrintItem& x) {
  if (!begin_block(at) || !send_name(at, x.name)) return false;
  const auto words = x.type == CHARVAR && x.last >= x.first
                         ? x.data.subspan(static_cast<std::size_t>(x.first - 1),
                                          static_cast<std::size_t>(x.last - x.first + 1))
                         : x.data;
  std::string_view text(reinterpret_cast<const char*>(words.data()), words.size_bytes());
  text = right_trimmed(text);
  while (!text.empty()) {
    const std::string_view piece = text.substr(0, TEXT_LINE);
    if (!(at.job.to_file ? at.send_line(piece) : at.put<"(1X, A)">(piece))) return false;
    text.remove_prefix(piece.size());
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

std::int64_t count_columns(const PrintJob& job) {
  return std::ranges::count_if(job.items, [](const PrintItem& x) { return x.column(); });
}

}  // namespace

bool PrintJob::missing_at(std::int64_t i) const {
  return std::ranges::any_of(items, [i](const PrintItem& x) {
    return x.series() && x.rows > 1 && i <= x.rows &&
           x.data[static_cast<std::size_t>(i - 1)] == MACOM.XMISS;
  });
}

bool side_by_side(const PrintJob& job) { return !job.byvar && count_columns(job) > 0; }

PrintRange common_range(std::span<const PrintItem> items) {
  PrintRange range;
  bool any = false;
  for (const PrintItem& x : items) {
    if (!x.column()) continue;
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
  RowForm form = row_form(job);
  const auto fits = [&](std::int64_t n) {
    return measure_rows(form, static_cast<std::size_t>(n), most_columns(job));
  };
  const bool columns = side_by_side(job);
  if (columns && !fits(count_columns(job))) return false;
  for (const PrintItem& x : job.items) {
    if (x.type == 0 || x.text() || x.last < x.first || (x.series() && columns)) continue;
    const std::int64_t n = x.series()     ? x.last - x.first + 1
                           : x.triangle() ? x.last
                                          : x.last_column - x.first_column + 1;
    if (!fits(n)) return false;
  }
  return true;
}

bool print_data(PrintJob& job) {
  std::int64_t values = 0;
  for (const PrintItem& x : job.items) {
    values +=
        std::max<std::int64_t>(x.last - x.first + 1, 0) * (x.last_column - x.first_column + 1);
  }
  Progress progress("WRITING DATA", static_cast<std::uint64_t>(values),
                    job.file != nullptr && OCOM.OPUT);
  Layout at{.job = job, .form = row_form(job)};
  at.form.progress = &progress;
  const auto columns = static_cast<std::size_t>(count_columns(job));
  const bool table = side_by_side(job);
  if (table && !print_columns(at, columns)) return false;
  for (const PrintItem& x : job.items) {
    if (x.column() && table) continue;
    if (x.series() && job.form == PrintForm::format) {
      measure_rows(at.form, static_cast<std::size_t>(std::max<std::int64_t>(x.rows, 1)),
                   most_columns(job));
    }
    if (!(x.series() ? print_series(at, x) : print_other(at, x))) return false;
  }
  return true;
}

}  // namespace korvel
