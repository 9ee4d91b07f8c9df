#include "data/write_rows.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstring>
#include <vector>

#include "engine/output.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

constexpr std::size_t SECTION = std::size_t{1} << 17;  // bytes that one thread makes at a time
constexpr std::size_t ROUND = std::size_t{1} << 21;    // bytes between two joins, about
constexpr std::size_t MOST_SECTIONS = 16;
constexpr std::size_t SEPARATED_ROOM = 27;  // a value or a word in quotes, separator, line end

// ---- One row
// -------------------------------------------------------------------------------------

char* end_line(const char* line, char* end) {
  while (end != line && end[-1] == ' ') --end;
  *end++ = '\n';
  return end;
}

// The characters of a word, blank where a value is missing.
void word_text(char* out, double word) {
  if (word == MACOM.XMISS) {
    std::memset(out, ' ', sizeof word);
  } else {
    std::memcpy(out, &word, sizeof word);
  }
}

char* edit_cell(const RowForm& form, char* out, double value, bool text) {
  const int w = form.cell_width();
  if (text) {
    std::memset(out, ' ', static_cast<std::size_t>(w - KEYLEN));
    word_text(out + w - KEYLEN, value);
  } else if (form.form == PrintForm::dump) {
    edit_exponent(out, w, 17, value, 'E');
    // Every bit: also the sign of a zero, which fields otherwise never show.
    if (value == 0 && std::signbit(value)) out[1] = '-';
  } else if (!edit_table_value(out, value)) {
    edit_general(out, w, 7, value);
  }
  return out + w;
}

// A word without the blanks around it, in quotes where it would not be read back as one cell.
char* edit_quoted(char* out, double word, char separator) {
  std::array<char, KEYLEN> field;
  word_text(field.data(), word);
  const std::string_view text = right_trimmed({field.data(), field.size()});
  const bool quoted = text.find(separator) != std::string_view::npos ||
                      text.find('"') != std::string_view::npos || text.substr(0, 1) == " ";
  if (quoted) *out++ = '"';
  for (const char c : text) {
    if (c == '"') *out++ = c;
    *out++ = c;
  }
  if (quoted) *out++ = '"';
  return out;
}

// Values of a separated line. What passes the limit goes on in a new line; `column` is where the
// line stands. The last value of the row has no separator behind it.
struct SeparatedLine {
  const RowForm& form;
  int column = 0;
  char* add(char* out, double value, bool text, bool last) {
    char* const start = out;
    char* end = text ? edit_quoted(out, value, form.separator) : edit_shortest(out, value);
    const int size = static_cast<int>(end - start);
    if (form.limit > 0 && column + size + (last ? 0 : 1) > form.limit) {
      std::memmove(start + 1, start, static_cast<std::size_t>(size));
      *start = '\n';
      ++end;
      column = 0;
    }
    column += size + 1;
    if (!last) *end++ = form.separator;
    return end;
  }
};

// Row i of a list form or a separated one.
char* edit_row(const RowForm& form, std::span<const RowCell> cells, std::int64_t i, char* out) {
  if (form.form == PrintForm::separated) {
    SeparatedLine line{form};
    for (std::size_t k = 0; k < cells.size(); ++k) {
      const RowCell& cell = cells[k];
      out = line.add(out, cell.base[i * cell.stride], cell.text, k + 1 == cells.size());
    }
    *out++ = '\n';
    return out;
  }
  const auto on_line = static_cast<std::size_t>(form.per_line);
  for (std::size_t from = 0; from < cells.size(); from += on_line) {
    char* const line = out;
    *out++ = ' ';
    for (const RowCell& cell : cells.subspan(from, std::min(on_line, cells.size() - from))) {
      out = edit_cell(form, out, cell.base[i * cell.stride], cell.text);
    }
    out = end_line(line, out);
  }
  return out;
}

// ---- Many rows
// -----------------------------------------------------------------------------------

// Makes `count` pieces of text, piece p by edit(section, p, out), which returns its end, and hands
// them on in order. While the threads make one round of sections, the text of the round before is
// handed on. `piece_bytes` is the most that a piece gives, `values` how many it holds.
struct Pieces {
  std::int64_t count = 0;
  std::size_t piece_bytes = 1;
  std::size_t values = 1;
};
template <class EditPiece>
bool send_pieces(const RowForm& form, const Pieces& pieces, const TextSink& sink,
                 const EditPiece& edit) {
  const auto [count, piece_bytes, values] = pieces;
  if (count <= 0) return true;
  const auto all = static_cast<std::size_t>(count);
  const std::size_t per_section = std::clamp<std::size_t>(SECTION / piece_bytes, 1, all);
  const std::size_t section_bytes = per_section * piece_bytes;
  const std::size_t wanted = (all + per_section - 1) / per_section;
  const std::size_t sections =
      std::min(wanted, std::clamp<std::size_t>(ROUND / section_bytes, 1, MOST_SECTIONS));
  const bool one_round = sections == wanted;
  const auto text =
      std::make_unique_for_overwrite<char[]>((one_round ? 1 : 2) * sections * section_bytes);
  std::array<std::array<std::size_t, MOST_SECTIONS>, 2> used{};
  bool go_on = true;
  std::size_t ready = 0, made = 0;  // sections of the round before; of this one
  int side = 0;
  for (std::size_t from = 0; go_on && (from < all || ready > 0); side ^= 1) {
    made = std::min(sections, (all - from + per_section - 1) / per_section);
    const auto room = [&](int which, std::size_t s) {
      return text.get() +
             (static_cast<std::size_t>(one_round ? 0 : which) * sections + s) * section_bytes;
    };
    std::atomic<std::size_t> next{0};
    const auto work = [&](int worker) {
      if (worker == 0) {
        for (std::size_t s = 0; s < ready && go_on; ++s) {
          go_on = sink({room(side ^ 1, s), used[static_cast<std::size_t>(side ^ 1)][s]});
        }
      }
      for (std::size_t s = next++; s < made; s = next++) {
        char* const start = room(side, s);
        char* out = start;
        const std::size_t first = from + s * per_section;
        const std::size_t last = std::min(first + per_section, all);
        for (std::size_t p = first; p < last; ++p) out = edit(s, p, out);
        used[static_cast<std::size_t>(side)][s] = static_cast<std::size_t>(out - start);
      }
    };
    if (made <= 1) {
      work(0);
    } else {
      parallel_sections(workers(), work);
    }
    const std::size_t end = std::min(from + made * per_section, all);
    form.done((end - from) * values);
    from = end;
    ready = made;
  }
  return go_on;
}

// Rows under the user's format: each section has a row of values and a line of its own.
bool send_formatted(const RowForm& form, const RowBlock& block, const TextSink& sink) {
  const std::size_t n = block.cells.size();
  std::vector<double> rows(n * MOST_SECTIONS);
  std::vector<char> lines(form.columns * MOST_SECTIONS);
  const auto capacity = static_cast<int>(form.columns);
  // Fields have fixed widths, so any values show how long a row becomes.
  std::size_t row_bytes = 1;
  write_values(form.format, std::span(rows).first(n), lines.data(), capacity,
               [&](std::string_view record) {
                 row_bytes += record.size() + 1;
                 return true;
               });
  const auto edit = [&](std::size_t s, std::size_t p, char* out) {
    const std::int64_t i = block.first + static_cast<std::int64_t>(p);
    if (block.skipped != nullptr && block.skipped(block.context, i)) return out;
    const auto row = std::span(rows).subspan(s * n, n);
    for (std::size_t k = 0; k < n; ++k) {
      row[k] = block.cells[k].base[i * block.cells[k].stride];
      if (block.cells[k].text) word_text(reinterpret_cast<char*>(&row[k]), row[k]);
    }
    write_values(form.format, row, lines.data() + s * form.columns, capacity,
                 [&](std::string_view record) {
                   std::memcpy(out, record.data(), record.size());
                   out += record.size();
                   *out++ = '\n';
                   return true;
                 });
    return out;
  };
  return send_pieces(form, {block.last - block.first + 1, row_bytes, n}, sink, edit);
}

}  // namespace

bool measure_rows(RowForm& form, std::size_t n, std::size_t most) {
  const auto lines = [&](std::size_t on_line) { return (n + on_line - 1) / on_line; };
  switch (form.form) {
    case PrintForm::separated:
      form.row_bytes = n * SEPARATED_ROOM + SHORTEST_ROOM;
      return true;
    case PrintForm::rows:
    case PrintForm::dump:
      form.row_bytes = n * static_cast<std::size_t>(form.cell_width()) +
                       2 * lines(static_cast<std::size_t>(form.per_line)) + 8;
      return true;
    case PrintForm::format:
      break;
  }
  most = std::min(most, RECORD_LIMIT);
  const int widest =
      widest_record(form.format, static_cast<std::int64_t>(n), static_cast<int>(most));
  if (widest < 0 || widest > static_cast<int>(most)) return false;
  form.columns = std::max<std::size_t>(static_cast<std::size_t>(widest), 1);
  return true;
}

bool send_rows(const RowForm& form, const RowBlock& block, const TextSink& sink) {
  if (form.form == PrintForm::format) return send_formatted(form, block, sink);
  const auto edit = [&](std::size_t, std::size_t p, char* out) {
    const std::int64_t i = block.first + static_cast<std::int64_t>(p);
    if (block.skipped != nullptr && block.skipped(block.context, i)) return out;
    return edit_row(form, block.cells, i, out);
  };
  return send_pieces(form, {block.last - block.first + 1, form.row_bytes, block.cells.size()}, sink,
                     edit);
}

bool send_list(const RowForm& form, std::span<const double> values, const TextSink& sink) {
  // A piece is one line.
  const auto on_line = static_cast<std::size_t>(form.per_line);
  const auto edit = [&](std::size_t, std::size_t p, char* out) {
    char* const line = out;
    *out++ = ' ';
    const std::size_t from = p * on_line;
    for (const double value : values.subspan(from, std::min(on_line, values.size() - from))) {
      out = edit_cell(form, out, value, false);
    }
    return end_line(line, out);
  };
  const std::size_t lines = (values.size() + on_line - 1) / on_line;
  const std::size_t line_bytes = on_line * static_cast<std::size_t>(form.cell_width()) + 16;
  return send_pieces(form, {static_cast<std::int64_t>(lines), line_bytes, on_line}, sink, edit);
}

bool send_separated(const RowForm& form, std::span<const double> values, const TextSink& sink) {
  SeparatedLine line{form};
  std::array<char, 4096> text;
  std::size_t k = 0;
  while (k < values.size()) {
    const std::size_t first = k;
    char* out = text.data();
    char* const full = out + text.size() - SEPARATED_ROOM - SHORTEST_ROOM;
    for (; k < values.size() && out < full; ++k) {
      out = line.add(out, values[k], false, k + 1 == values.size());
    }
    form.done(k - first);
    if (!sink({text.data(), static_cast<std::size_t>(out - text.data())})) return false;
  }
  return sink("\n");
}

}  // namespace korvel
