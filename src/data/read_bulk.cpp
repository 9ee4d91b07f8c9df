// Large regular blocks: cut at line ends into sections that the threads read straight into columns.

#include <algorithm>
#include <cstring>

#include "data/list_numbers.h"
#include "data/read_rows.h"
#include "engine/output.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

// Sections are cut by bytes, so they depend on the text alone. The first round is short: a small
// block in a large text shall not pay for the text.
constexpr std::size_t FIRST_ROUND = std::size_t{1} << 16;
constexpr std::size_t LAST_ROUND = std::size_t{1} << 27;
constexpr std::size_t SECTION_BYTES = std::size_t{1} << 19;

// Counts the lines of a section and stops at the line that ends the block: true when there is one.
// A line without a line end is left out, so that every number is followed by some character.
bool count_section(std::string_view text, const RowPlan& plan, Section& s) {
  const char* const base = text.data();
  std::size_t at = s.begin;
  while (at < s.end) {
    const auto* const end = static_cast<const char*>(std::memchr(base + at, '\n', s.end - at));
    if (end == nullptr) break;
    const auto next = static_cast<std::size_t>(end - base) + 1;
    const char c = base[at];
    if ((c >= '0' && c <= '9') || c == '-') {
      ++s.rows;
    } else {
      const LineKind kind = line_kind(text.substr(at, next - 1 - at), plan);
      if (kind == LineKind::command || kind == LineKind::end_word) {
        s.end = at;
        return true;
      }
      if (kind == LineKind::data) ++s.rows;
    }
    ++s.lines;
    at = next;
  }
  s.end = at;
  return false;
}

// How far a section was read.
struct SectionRead {
  std::int64_t rows = 0, lines = 0;
  std::size_t at = 0;
  bool whole = false;
};

// A cell that is not a plain number: missing, quoted, with blanks, long. Null when it is bad.
const char* other_cell(const char* p, const char* line_end, const RowPlan& plan, bool last,
                       double& value) {
  const std::string_view rest(p, static_cast<std::size_t>(line_end - p));
  std::size_t at = 0;
  bool more = false;
  const Cell cell = next_cell(rest, at, plan.separator, more);
  if ((!more && !last) || !cell.well_formed) return nullptr;
  if (missing_cell(cell.text)) {
    value = plan.missing;
  } else if (!cell_number(cell.text, plan.numbers, value)) {
    return nullptr;
  }
  for (int n = 0; last && more; ++n) {  // empty cells at the end of the row
    const Cell behind = next_cell(rest, at, plan.separator, more);
    if (n >= plan.trailing || !behind.well_formed || !behind.text.empty()) return nullptr;
  }
  return p + at;
}

// A value in free form that is not a plain number.
const char* other_value(const char* p, const char* line_end, Numbers form, double& value) {
  const std::string_view rest(p, static_cast<std::size_t>(line_end - p));
  std::size_t at = 0;
  std::string_view text;
  if (!next_value(rest, at, text) || !whole_number(text, form, value)) return nullptr;
  return p + at;
}

// The line end behind p. A section ends with one when it is cut; if another program has emptied the
// file since, the section's last character stands for it.
const char* line_end_of(const char* p, const char* end) {
  if (p >= end) return p;
  const auto* at =
      static_cast<const char*>(std::memchr(p, '\n', static_cast<std::size_t>(end - p)));
  return at != nullptr ? at : end - 1;
}

bool gap(char c) { return c == ' ' || c == ',' || c == '\t' || c == '\r'; }

// One row in free form from p, which ends with a line end at the latest at `end`. Returns the start
// of the next line, null when the row is not plain.
const char* free_row(const char* p, const char* end, const RowPlan& plan, const RowTarget& target,
                     std::int64_t row) {
  double value = 0;
  const auto width = static_cast<std::size_t>(plan.values);
  auto skip = static_cast<std::size_t>(plan.skip_columns);
  for (std::size_t k = 0; k < width;) {
    while (gap(*p)) ++p;
    if (*p == '\n') return nullptr;
    const char* behind = p;
    if (!scan_number(behind, end, value)) {
      const char* const line_end = line_end_of(p, end);
      behind = other_value(p, line_end, plan.numbers, value);
      if (behind == nullptr) {
        if (skip == 0) return nullptr;
        std::size_t at = 0;  // a leading value that is passed over may be a word
        std::string_view word;
        next_value({p, static_cast<std::size_t>(line_end - p)}, at, word);
        behind = p + at;
      }
    }
    p = behind;
    if (skip > 0) {
      --skip;
      continue;
    }
    target.column[k++][row] = value;
  }
  while (gap(*p)) ++p;
  if (*p == '\n') return p + 1;
  return plan.surplus_is_dropped ? line_end_of(p, end) + 1 : nullptr;
}

// One row of cells, likewise.
const char* cell_row(const char* p, const char* end, const RowPlan& plan, const RowTarget& target,
                     std::int64_t row) {
  const bool plain = plan.numbers == Numbers::point;
  const std::int64_t width = plan.values;
  double value = 0;
  for (std::int64_t k = -plan.skip_columns; k < width; ++k) {
    const bool last = k == width - 1;
    if (k < 0) {
      const std::string_view rest(p, static_cast<std::size_t>(line_end_of(p, end) - p));
      std::size_t at = 0;
      bool more = false;
      const Cell cell = next_cell(rest, at, plan.separator, more);
      if (!more || !cell.well_formed) return nullptr;
      p += at;
      continue;
    }
    while (*p == ' ') ++p;
    const char* behind = p;
    const bool number = plain && scan_number(behind, end, value);
    if (number && *behind == '\r' && behind[1] == '\n') ++behind;
    if (number && !last && *behind == plan.separator) {
      p = behind + 1;
    } else if (number && last && *behind == '\n') {
      p = behind;
    } else {
      p = other_cell(p, line_end_of(p, end), plan, last, value);
      if (p == nullptr) return nullptr;
    }
    target.column[static_cast<std::size_t>(k)][row] = value;
  }
  return *p == '\n' ? p + 1 : nullptr;
}

SectionRead read_section(std::string_view text, const Section& s, const RowPlan& plan,
                         const RowTarget& target, std::int64_t most) {
  SectionRead done;
  const char* const base = text.data();
  const char* const end = base + s.end;
  const char* p = base + s.begin;
  while (p < end && s.first_row + done.rows < most) {
    const char c = *p;
    bool data = (c >= '0' && c <= '9') || c == '-';
    const char* next = nullptr;
    if (!data) {
      next = line_end_of(p, end) + 1;
      data = line_kind({p, static_cast<std::size_t>(next - 1 - p)}, plan) == LineKind::data;
    }
    if (data) {
      const std::int64_t row = s.first_row + done.rows;
      next = plan.delimited ? cell_row(p, end, plan, target, row)
                            : free_row(p, end, plan, target, row);
      if (next == nullptr) break;
      ++done.rows;
    }
    ++done.lines;
    p = next;
  }
  done.at = static_cast<std::size_t>(p - base);
  done.whole = p >= end;
  return done;
}

}  // namespace

BlockScan scan_block(const LineCursor& cursor, const RowPlan& plan, std::int64_t most) {
  const std::string_view text = cursor.text.substr(cursor.at);
  BlockScan scan;
  std::size_t at = 0;
  std::size_t round = FIRST_ROUND;
  bool ended = false;
  while (!ended && at < text.size() && (most == UNKNOWN || scan.rows < most) && !stop_requested()) {
    // 1. The sections of this round, each up to the first line end behind its share.
    const std::size_t first = scan.sections.size();
    const std::size_t round_end = std::min(text.size(), at + round);
    while (at < round_end) {
      Section s;
      s.begin = at;
      const std::size_t share = std::min(at + SECTION_BYTES, round_end);
      const std::size_t line_end = text.find('\n', share - 1);
      s.end = line_end == std::string_view::npos ? text.size() : line_end + 1;
      at = s.end;
      scan.sections.push_back(s);
    }
    // 2. Their lines.
    const std::size_t n = scan.sections.size() - first;
    std::vector<char> last(n, 0);
    parallel_sections(static_cast<int>(n), [&](int i) {
      const auto k = static_cast<std::size_t>(i);
      const Section whole = scan.sections[first + k];
      last[k] = count_section(text, plan, scan.sections[first + k]) ? 1 : 0;
      cursor.done_with(text.substr(whole.begin, whole.end - whole.begin));
    });
    // 3. The first row of each, up to the end of the block.
    for (std::size_t k = 0; k < n && !ended; ++k) {
      Section& s = scan.sections[first + k];
      s.first_row = scan.rows;
      scan.rows += s.rows;
      ended = last[k] != 0;
      if (ended) scan.sections.resize(first + k + 1);
    }
    round = std::min(round * 4, LAST_ROUND);
  }
  return scan;
}

std::int64_t read_bulk(LineCursor& cursor, const BlockScan& scan, const RowPlan& plan,
                       const RowTarget& target, std::int64_t most) {
  const std::size_t n = scan.sections.size();
  const std::string_view text = cursor.text.substr(cursor.at);
  std::vector<SectionRead> progress(n);
  parallel_sections(static_cast<int>(n), [&](int i) {
    const auto k = static_cast<std::size_t>(i);
    const Section& s = scan.sections[k];
    progress[k] = read_section(text, s, plan, target, most);
    cursor.done_with(text.substr(s.begin, s.end - s.begin));
  });
  std::int64_t rows = 0;
  std::size_t at = 0;
  for (const SectionRead& p : progress) {
    rows += p.rows;
    cursor.line += p.lines;
    at = p.at;
    if (!p.whole) break;
  }
  cursor.pass(at);
  return rows;
}

}  // namespace korvel
