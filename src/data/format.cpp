// The walks over a parsed format: one record of a fixed layout, lists written, lists read.
#include "data/format.h"

#include <cstring>

namespace korvel {

namespace {

// Steps without a value or a longer record that a format may take before it counts as endless:
// nested repeats of '/' and literals multiply.
constexpr int MAX_IDLE = 1000000;

void edit_argument(char* out, const FormatItem& item, int w, const FormatArg& a) {
  switch (item.edit) {
    case Edit::I:
      return edit_integer(out, w, a.integer);
    case Edit::L:
      return edit_logical(out, w, a.integer != 0);
    case Edit::F:
      return edit_fixed(out, w, item.decimals, a.real);
    case Edit::E:
      return edit_exponent(out, w, item.decimals, a.real, 'E');
    case Edit::D:
      return edit_exponent(out, w, item.decimals, a.real, 'D');
    case Edit::G:
      return edit_general(out, w, item.decimals, a.real);
    default:
      return edit_text(out, w, a.text);
  }
}

void edit_value(char* out, const FormatItem& item, int w, double value) {
  switch (item.edit) {
    case Edit::F:
      return edit_fixed(out, w, item.decimals, value);
    case Edit::E:
      return edit_exponent(out, w, item.decimals, value, 'E');
    case Edit::D:
      return edit_exponent(out, w, item.decimals, value, 'D');
    case Edit::G:
      return edit_general(out, w, item.decimals, value);
    default:
      return edit_word(out, w, value);
  }
}

// Columns of an item in a list of doubles: A alone shows the 8 characters of a word.
int list_width(const FormatItem& item) {
  return item.edit == Edit::A && item.width == 0 ? 8 : item.width;
}

}  // namespace

int compose_record(const FormatView& format, const FormatArg* args, char* line, int capacity,
                   int cursor) {
  cursor = std::max(cursor, 0);
  FormatCursor walk(format.items, format.revert);
  while (true) {
    const FormatItem& item = walk.step();
    if (item.edit == Edit::End) return cursor;
    if (item.edit == Edit::X) {
      cursor += item.width;
      continue;
    }
    const int room = std::max(capacity - cursor, 0);
    if (item.edit == Edit::Literal || item.edit == Edit::A) {
      const std::string_view text = item.edit == Edit::A
                                        ? (args++)->text
                                        : std::string_view(format.literals + item.start,
                                                           static_cast<std::size_t>(item.width));
      const int n = item.width == 0 ? static_cast<int>(std::min<std::size_t>(text.size(), 1U << 20))
                                    : item.width;
      if (room > 0) edit_text(line + cursor, std::min(n, room), text);
      cursor += n;
      continue;
    }
    const FormatArg& a = *args++;
    const int w = item.width > 0 ? item.width : integer_width(a.integer);
    if (w <= room) {
      edit_argument(line + cursor, item, w, a);
    } else {
      std::array<char, FORMAT_WIDTH> field;
      edit_argument(field.data(), item, w, a);
      if (room > 0) std::memcpy(line + cursor, field.data(), static_cast<std::size_t>(room));
    }
    cursor += w;
  }
}

RecordEnd write_values(const FormatView& format, std::span<const double> values, char* line,
                       int capacity, const RecordSink& sink) {
  FormatCursor walk(format.items, format.revert);
  const double* next = values.data();
  const double* const end = next + values.size();
  std::memset(line, ' ', static_cast<std::size_t>(capacity));
  int cursor = 0, idle = 0;
  const auto send = [&] {
    const bool go_on = sink({line, static_cast<std::size_t>(cursor)});
    std::memset(line, ' ', static_cast<std::size_t>(cursor));
    cursor = 0;
    return go_on;
  };
  while (true) {
    const FormatItem& item = walk.step();
    if (is_data(item.edit)) {
      if (next == end) break;
      const int w = list_width(item);
      if (w > capacity - cursor) return RecordEnd::columns;
      edit_value(line + cursor, item, w, *next++);
      cursor += w;
      idle = 0;
      continue;
    }
    if (++idle > MAX_IDLE) return RecordEnd::columns;
    if (item.edit == Edit::X || item.edit == Edit::Literal) {
      if (item.width > capacity - cursor) return RecordEnd::columns;
      if (item.edit == Edit::Literal) {
        std::memcpy(line + cursor, format.literals + item.start,
                    static_cast<std::size_t>(item.width));
      }
      cursor += item.width;
    } else {  // '/' or the end of the format
      if (item.edit == Edit::End && next == end) break;
      if (!send()) return RecordEnd::stopped;
      if (item.edit == Edit::End) {
        if (!format.revert_data) return RecordEnd::no_data;
        walk.revert();
      }
    }
  }
  return send() ? RecordEnd::done : RecordEnd::stopped;
}

int widest_record(const FormatView& format, std::int64_t n, int limit) {
  FormatCursor walk(format.items, format.revert);
  int cursor = 0, widest = 0, idle = 0;
  while (true) {
    const FormatItem& item = walk.step();
    if (is_data(item.edit)) {
      if (n-- == 0) return widest;
      idle = 0;
    } else if (++idle > MAX_IDLE) {
      return limit + 1;
    }
    if (item.edit == Edit::Slash || item.edit == Edit::End) {
      if (item.edit == Edit::End) {
        if (n == 0) return widest;
        if (!format.revert_data) return -1;
        walk.revert();
      }
      cursor = 0;
      continue;
    }
    cursor += list_width(item);
    if (cursor > limit) return limit + 1;
    widest = std::max(widest, cursor);
  }
}

RecordEnd read_values(const FormatView& format, std::span<double> values,
                      const RecordSource& source, std::size_t& used) {
  used = 0;
  if (values.empty()) return RecordEnd::done;
  std::string_view record;
  if (!source(record)) return RecordEnd::eof;
  FormatCursor walk(format.items, format.revert);
  std::size_t column = 0;
  int idle = 0;
  while (true) {
    const FormatItem& item = walk.step();
    const auto w = static_cast<std::size_t>(list_width(item));
    if (is_data(item.edit)) {
      if (used == values.size()) return RecordEnd::done;
      const std::string_view field =
          column < record.size() ? record.substr(column, w) : std::string_view{};
      if (item.edit == Edit::A) {
        // A short record is padded, so the last 8 of w columns may be blank in part.
        std::array<char, FORMAT_WIDTH> padded;
        edit_text(padded.data(), static_cast<int>(w), field);
        values[used] = read_word_field({padded.data(), w});
      } else if (!read_real_field(field, item.decimals, values[used])) {
        return RecordEnd::bad;
      }
      ++used;
      column += w;
      idle = 0;
      continue;
    }
    if (++idle > MAX_IDLE) return RecordEnd::no_data;
    if (item.edit == Edit::X || item.edit == Edit::Literal) {
      column += w;
      continue;
    }
    const bool over = used == values.size();
    if (item.edit == Edit::End) {
      if (over) return RecordEnd::done;
      if (!format.revert_data) return RecordEnd::no_data;
      walk.revert();
    }
    if (!source(record)) return over ? RecordEnd::done : RecordEnd::eof;
    column = 0;
  }
}

std::size_t count_fields(const FormatView& format, const RecordSource& source) {
  std::string_view record;
  if (!source(record)) return 0;
  FormatCursor walk(format.items, format.revert);
  std::size_t column = 0, fields = 0, filled = 0;
  int idle = 0;
  while (true) {
    const FormatItem& item = walk.step();
    const auto w = static_cast<std::size_t>(list_width(item));
    if (is_data(item.edit)) {
      ++fields;
      const std::string_view field =
          column < record.size() ? record.substr(column, w) : std::string_view{};
      if (field.find_first_not_of(" \t\r") != std::string_view::npos) filled = fields;
      column += w;
      idle = 0;
      continue;
    }
    if (++idle > MAX_IDLE) return filled;
    if (item.edit == Edit::X || item.edit == Edit::Literal) {
      column += w;
      continue;
    }
    if (item.edit == Edit::End) {
      if (!format.revert_data) return filled;
      walk.revert();
    }
    if (!source(record)) return filled;
    column = 0;
  }
}

}  // namespace korvel
