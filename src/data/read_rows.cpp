#include "data/read_rows.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>

#include "data/format_edit.h"
#include "data/list_numbers.h"
#include "engine/output.h"

namespace korvel {
namespace {

constexpr std::size_t GIVEN_BACK = std::size_t{1} << 22;  // characters passed between two calls
constexpr int JOINED = 1000;                              // lines that a quoted cell may reach over

}  // namespace

void LineCursor::done_with(std::string_view part) const {
  if (source != nullptr) source->release(part);
  if (progress != nullptr) progress->add(part.size());
}

bool LineCursor::next(std::string_view& out) {
  before_ = at;
  if (source != nullptr && at > told_ + GIVEN_BACK) {
    done_with(text.substr(told_, at - told_));
    told_ = at;
  }
  if (at >= text.size()) {
    std::string_view fresh;
    if (feed == nullptr || !feed->line(fresh)) return false;
    hold->append(fresh);
    hold->push_back('\n');
    text = *hold;
  }
  const std::size_t end = std::min(text.find('\n', at), text.size());
  out = text.substr(at, end - at);
  if (!out.empty() && out.back() == '\r') out.remove_suffix(1);
  at = std::min(end + 1, text.size());
  ++line;
  return true;
}

bool LineCursor::join(std::string_view& out) {
  const std::size_t from = before_;
  std::string_view more;
  if (!next(more)) return false;
  before_ = from;
  out = text.substr(from, static_cast<std::size_t>(more.data() - text.data()) + more.size() - from);
  return true;
}

void LineCursor::back() {
  at = before_;
  --line;
  if (feed != nullptr) {
    feed->unread();
    hold->resize(at);
    text = *hold;
  }
}

namespace {

bool blank(char c) { return c == ' ' || c == '\t'; }
bool free_separator(char c) { return blank(c) || c == ',' || c == '\r'; }

// END or $END, which end every block.
bool end_word(std::string_view word) {
  if (!word.empty() && word[0] == '$') word.remove_prefix(1);
  if (word.size() < 3 || upper(word[0]) != 'E' || upper(word[1]) != 'N' || upper(word[2]) != 'D') {
    return false;
  }
  return word.size() == 3 || (NAMCHK(word[3]) < 0 && word[3] != '_');
}

std::string_view without_quotes(std::string_view value) {
  if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
    value.remove_prefix(1);
    value.remove_suffix(1);
    while (!value.empty() && blank(value.front())) value.remove_prefix(1);
    while (!value.empty() && blank(value.back())) value.remove_suffix(1);
  }
  return value;
}

}  // namespace

LineKind line_kind(std::string_view line, const RowPlan& plan) {
  const bool tabs_count = plan.delimited && plan.separator == '\t';
  std::size_t i = 0;
  while (i < line.size() &&
         (line[i] == ' ' || (line[i] == '\t' && !tabs_count) || line[i] == '\r')) {
    ++i;
  }
  if (i == line.size()) return LineKind::blank;
  const char c = line[i];
  if (NAMCHK(c) == 1 || c == '$') {
    const std::string_view rest = right_trimmed(line.substr(i));
    // In a file the line must be END as a whole: a row of cells may begin with such a word.
    if (end_word(rest) && (plan.ends_at_command || rest.size() <= 4)) return LineKind::end_word;
    return plan.ends_at_command && c != '$' ? LineKind::command : LineKind::data;
  }
  if (plan.delimited) return LineKind::data;
  while (i < line.size() && free_separator(line[i])) ++i;
  return i == line.size() ? LineKind::blank : LineKind::data;
}

bool next_value(std::string_view line, std::size_t& at, std::string_view& value) {
  while (at < line.size() && free_separator(line[at])) ++at;
  if (at == line.size()) return false;
  const std::size_t from = at;
  if (line[at] == '"') {
    const std::size_t close = line.find('"', at + 1);
    at = close == std::string_view::npos ? line.size() : close + 1;
  }
  while (at < line.size() && !free_separator(line[at])) ++at;
  value = without_quotes(line.substr(from, at - from));
  return true;
}

std::int64_t count_values(std::string_view line) {
  std::int64_t n = 0;
  std::string_view value;
  for (std::size_t at = 0; next_value(line, at, value);) ++n;
  return n;
}

Cell next_cell(std::string_view line, std::size_t& at, char separator, bool& more) {
  const auto pad = [&](char c) {
    return c == ' ' || c == '\r' || (c == '\t' && separator != '\t');
  };
  const auto white = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
  while (at < line.size() && pad(line[at])) ++at;
  Cell cell;
  std::size_t from = at;
  if (at < line.size() && line[at] == '"') {
    // A quoted cell: a doubled quote stands for one and belongs to the cell.
    std::size_t close = at + 1;
    while (close < line.size() &&
           (line[close] != '"' || (close + 1 < line.size() && line[close + 1] == '"'))) {
      close += line[close] == '"' ? std::size_t{2} : std::size_t{1};
    }
    cell.open = close >= line.size();
    cell.well_formed = !cell.open;
    close = std::min(close, line.size());
    cell.text = line.substr(from + 1, close - from - 1);
    while (!cell.text.empty() && white(cell.text.front())) cell.text.remove_prefix(1);
    while (!cell.text.empty() && white(cell.text.back())) cell.text.remove_suffix(1);
    at = std::min(close + 1, line.size());
    while (at < line.size() && pad(line[at])) ++at;
    if (at < line.size() && line[at] != separator) cell.well_formed = false;
    from = at;
  }
  const std::size_t end = std::min(line.find(separator, at), line.size());
  if (cell.text.data() == nullptr) {
    std::size_t last = end;
    while (last > from && pad(line[last - 1])) --last;
    cell.text = line.substr(from, last - from);
  }
  more = end < line.size();
  at = more ? end + 1 : end;
  return cell;
}

std::int64_t count_cells(std::string_view line, char separator, bool* open) {
  std::int64_t n = 0;
  bool more = true;
  for (std::size_t at = 0; more; ++n) {
    const Cell cell = next_cell(line, at, separator, more);
    if (open != nullptr) *open = cell.open;
  }
  return n;
}

bool next_record(LineCursor& cursor, char separator, std::string_view& record) {
  if (!cursor.next(record)) return false;
  bool open = false;
  count_cells(record, separator, &open);
  if (!open) return true;
  const LineCursor first = cursor;
  const std::string_view line = record;
  for (int n = 0; open && n < JOINED && cursor.join(record); ++n) {
    count_cells(record, separator, &open);
  }
  if (open && cursor.feed == nullptr) {  // never closed: the line stands for itself
    cursor = first;
    record = line;
  }
  return true;
}

bool missing_cell(std::string_view text) {
  if (text.empty() || text == "." || text == "**") return true;
  if (text.size() > 3 || NAMCHK(text[0]) != 1) return false;
  std::array<char, 3> up{};
  for (std::size_t i = 0; i < text.size(); ++i) up[i] = upper(text[i]);
  const std::string_view word(up.data(), text.size());
  return word == "NA" || word == "N/A" || word == "NAN";
}

bool grouped_thousands(std::string_view text, char mark) {
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) text.remove_prefix(1);
  std::size_t group = 0;
  bool first = true;
  for (const char c : text) {
    if (c == mark) {
      if (group == 0 || group > 3 || (!first && group != 3)) return false;
      first = false;
      group = 0;
    } else if (NAMCHK(c) == 0) {
      ++group;
    } else {
      return false;
    }
  }
  return !first && group == 3 && text[0] != '0';
}

namespace {

// Up to so many characters a number is copied to be rewritten: more digits than a double can tell
// apart, and the exponent.
constexpr std::size_t REWRITTEN = 400;

bool plain_number(std::string_view text, double& value) {
  const char* p = text.data();
  const char* const end = p + text.size();
  return p != end && scan_number(p, end, value) && p == end;
}

}  // namespace

bool whole_number(std::string_view text, Numbers form, double& value) {
  switch (form) {
    case Numbers::point:
      return plain_number(text, value);
    case Numbers::dump:
      return !text.empty() && text.size() < REWRITTEN && text.find(' ') == std::string_view::npos &&
             read_real_field(text, 0, value);
    case Numbers::comma:
      if (grouped_thousands(text, '.')) return false;
      break;
    case Numbers::points:
      if (grouped_thousands(text, ',')) return false;
      break;
    case Numbers::either:
      break;
  }
  const std::size_t comma = text.find(',');
  if (comma == std::string_view::npos || text.size() > REWRITTEN ||
      text.find('.') != std::string_view::npos) {
    return plain_number(text, value);
  }
  std::array<char, REWRITTEN> copy;
  std::memcpy(copy.data(), text.data(), text.size());
  copy[comma] = '.';
  return plain_number({copy.data(), text.size()}, value);
}

bool cell_number(std::string_view text, Numbers form, double& value) {
  if (whole_number(text, form, value)) return true;
  const bool minus = !text.empty() && text[0] == '-';
  if (minus || (!text.empty() && text[0] == '+')) text.remove_prefix(1);
  if (text.size() != 3 || upper(text[0]) != 'I' || upper(text[1]) != 'N' || upper(text[2]) != 'F') {
    return false;
  }
  value = std::numeric_limits<double>::infinity() * (minus ? -1.0 : 1.0);
  return true;
}

double text_word(std::string_view text, bool& cut) {
  std::array<char, sizeof(double) + 1> word;
  std::size_t n = 0;
  for (std::size_t i = 0; i < text.size() && n < word.size(); ++i) {
    word[n++] = text[i];
    if (text[i] == '"' && i + 1 < text.size() && text[i + 1] == '"') ++i;
  }
  cut = n > sizeof(double);
  if (cut) {
    n = sizeof(double);
    const auto inside = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    if (inside(word[n])) {
      while (n > 0 && inside(word[n - 1])) --n;
      if (n > 0) --n;
    }
    if (n == 0) n = sizeof(double);  // no UTF-8 at all
  }
  return read_word_field({word.data(), n});
}

namespace {

// Reads one row of cells. False when it is bad; `read` then says how.
bool read_cells(std::string_view line, const RowPlan& plan, const RowTarget* target, std::int64_t g,
                RowsRead& read) {
  const std::int64_t wanted = plan.skip_columns + plan.width(g);
  const std::int64_t found = count_cells(line, plan.separator, &read.open_quote);
  read.cells = found;
  read.cells_wanted = wanted;
  read.bad_text = line;
  if (found < wanted || found > wanted + plan.trailing) {
    read.end = RowEnd::bad_count;
    return false;
  }
  if (found == wanted && target == nullptr) return true;
  bool more = true;
  std::size_t at = 0;
  for (std::int64_t k = -plan.skip_columns; more; ++k) {
    const Cell cell = next_cell(line, at, plan.separator, more);
    if ((k >= plan.width(g) && !cell.text.empty()) || (k < 0 && !cell.well_formed)) {
      read.end = RowEnd::bad_count;
      read.open_quote = read.open_quote || !cell.well_formed;
      return false;
    }
    if (k < 0 || k >= plan.width(g) || target == nullptr) continue;
    double& value = target->place(plan.layout, g, k);
    if (plan.word(g, k) && cell.well_formed) {
      bool cut = false;
      value = text_word(cell.text, cut);
      read.cut += cut ? 1 : 0;
    } else if (missing_cell(cell.text)) {
      value = plan.missing;
    } else if (double v = 0; cell.well_formed && cell_number(cell.text, plan.numbers, v)) {
      value = v;
    } else {
      read.end = RowEnd::bad_value;
      read.bad_value = k;
      read.partial = k;
      read.bad_text = cell.text;
      read.open_quote = read.open_quote || !cell.well_formed;
      return false;
    }
  }
  return true;
}

// The line is passed over by END only; a command is left to the command reader.
bool ends_block(LineCursor& cursor, LineKind kind) {
  if (kind == LineKind::command) cursor.back();
  return kind == LineKind::command || kind == LineKind::end_word;
}

}  // namespace

RowsRead read_rows(LineCursor& cursor, const RowPlan& plan, const RowTarget* target,
                   std::int64_t from, Reenter reenter, void* context) {
  RowsRead read;
  read.groups = from;
  std::string_view line;
  const bool looks = target != nullptr || reenter != nullptr;
  for (std::int64_t g = from; plan.groups == UNKNOWN || g < plan.groups; ++g) {
    if (stop_requested()) {
      read.end = RowEnd::stopped;
      return read;
    }
    const std::int64_t width = plan.width(g);
    std::int64_t k = -plan.skip_columns;
    const std::size_t group_at = cursor.at;
    while (width == UNKNOWN || k < width) {
      const std::size_t line_at = cursor.at;
      const std::int64_t line_k = k;
      const std::int64_t first_line = cursor.line + 1;
      const bool there =
          plan.delimited ? next_record(cursor, plan.separator, line) : cursor.next(line);
      if (!there) {
        read.end = RowEnd::end_of_text;
        read.partial = std::max<std::int64_t>(k, 0);
        return read;
      }
      const LineKind kind = line_kind(line, plan);
      if (kind == LineKind::blank) continue;
      if (ends_block(cursor, kind)) {
        read.end = RowEnd::terminator;
        read.partial = std::max<std::int64_t>(k, 0);
        return read;
      }
      if (plan.delimited) {
        if (!read_cells(line, plan, target, g, read)) {
          read.line = first_line;
          return read;
        }
        break;
      }
      std::size_t at = 0;
      std::string_view value;
      while ((width == UNKNOWN || k < width) && next_value(line, at, value)) {
        double v = 0;
        if (k >= 0 && plan.word(g, k)) {
          bool cut = false;
          v = text_word(value, cut);
          read.cut += cut ? 1 : 0;
        } else if (k >= 0 && looks && !whole_number(value, plan.numbers, v)) {
          if (reenter != nullptr && reenter(context, g)) {
            // Entered again: the whole row, or the line when a variable fills many lines.
            const bool by_line = plan.layout == Layout::ByVariable;
            k = by_line ? line_k : -plan.skip_columns;
            cursor.at = by_line ? line_at : group_at;
            cursor.hold->resize(cursor.at);
            cursor.text = *cursor.hold;
            break;
          }
          read.end = RowEnd::bad_value;
          read.bad_value = k;
          read.partial = k;
          read.bad_text = value;
          read.line = cursor.line;
          return read;
        }
        if (k >= 0 && target != nullptr) target->place(plan.layout, g, k) = v;
        ++k;
      }
    }
    ++read.groups;
  }
  return read;
}

}  // namespace korvel
