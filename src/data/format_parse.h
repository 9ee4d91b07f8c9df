// Edit-descriptor formats as a table of items: the parser and the cursor that walks the table.
//
// One parser serves the fixed layouts, which it reads while the program is built, and the formats
// that users give at run time. A format is a bracketed list of
//     Iw I0 Lw            fixed layouts only
//     Fw.d Ew.d Dw.d Gw.d
//     Aw A                text
//     nX / 'text' "text"  columns passed over, end of record, literals (a doubled quote stands for
//     one) n(...)              groups; r in front of a data descriptor repeats it
// Blanks outside literals mean nothing and letters may have either case. 0P is accepted.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace korvel {

inline constexpr int FORMAT_NESTING = 20;     // brackets inside brackets
inline constexpr int FORMAT_WIDTH = 1000;     // columns of one field, and of nX
inline constexpr int FORMAT_REPEAT = 100000;  // repeat count

enum class Edit : std::uint8_t { I, L, F, E, D, G, A, X, Slash, Literal, Open, Close, End };

constexpr bool is_data(Edit e) { return e <= Edit::A; }

// One descriptor. width is the field, the length of a literal or n of nX; 0 stands for "as needed"
// (I0, A). partner is the place of the other bracket.
struct FormatItem {
  Edit edit = Edit::End;
  std::int32_t repeat = 1;
  std::int32_t width = 0;
  std::int32_t decimals = 0;
  std::int32_t start = 0;  // of a literal, in the text of all literals
  std::int32_t partner = 0;
};

enum class FormatFault : std::uint8_t {
  none,
  brackets,       // no list in brackets, brackets that don't match, text behind the last one
  descriptor,     // a letter that names no descriptor that may stand here
  width,          // a field or a count that is missing, zero or too large
  literal,        // a quote that is not closed
  nesting,        // more brackets than FORMAT_NESTING
  scale,          // nP with n other than 0
  empty,          // a group that edits nothing
  comma,          // a comma too many, or one that is missing between two descriptors
  no_data,        // a format for data without a data descriptor
  too_long,       // more characters than a run-time format may have
  arguments,      // fixed: number of arguments and of data descriptors differ
  argument_kind,  // fixed: an argument of the wrong kind for its descriptor
  columns,        // a record of more than 130 columns
  records,        // fixed: a '/' where there is one record
};

// What the parser found out about a format as a whole.
struct FormatSummary {
  FormatFault fault = FormatFault::none;
  int position = 0;          // character at which parsing stopped
  int count = 0;             // items, the End item included
  int literals = 0;          // characters of all literals
  int revert = 1;            // item at which a longer list begins again
  int data = 0;              // data descriptors, repeats not counted
  bool revert_data = false;  // the part that is used again has a data descriptor
  bool zero_digits = false;  // E, D or G without a digit: good for reading only
};

// A parsed format as the editors see it.
struct FormatView {
  const FormatItem* items = nullptr;
  const char* literals = nullptr;
  int revert = 1;
  bool revert_data = false;
};

// Reads the text of a format into items (at least text.size()+2 places) and literals (text.size()).
class FormatParser {
 public:
  constexpr FormatParser(std::string_view text, bool fixed, std::span<FormatItem> items,
                         std::span<char> literals)
      : text_(text), fixed_(fixed), items_(items), literals_(literals) {}

  constexpr FormatSummary parse() {
    out_.fault = list();
    out_.position = static_cast<int>(at_);
    return out_;
  }

 private:
  struct Bracket {
    int item = 0;
    int data = 0;           // data descriptors seen before it
    bool progress = false;  // something inside that edits or moves on
  };
  static constexpr int NO_COUNT = -1, BAD_COUNT = -2;

  constexpr char peek() {
    while (at_ < text_.size() && text_[at_] == ' ') ++at_;
    if (at_ >= text_.size()) return '\0';
    const char c = text_[at_];
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c;
  }
  // A whole number of digits, NO_COUNT when there is none, BAD_COUNT beyond the largest.
  constexpr int number(int largest) {
    int n = NO_COUNT;
    for (char c = peek(); c >= '0' && c <= '9'; c = peek()) {
      if (n != BAD_COUNT) {
        n = (n == NO_COUNT ? 0 : n * 10) + (c - '0');
        if (n > largest) n = BAD_COUNT;
      }
      ++at_;
    }
    return n;
  }
  constexpr FormatItem& add(Edit e) {
    FormatItem& item = items_[static_cast<std::size_t>(out_.count++)];
    item = FormatItem{};
    item.edit = e;
    if (depth_ > 0 && e != Edit::Open && e != Edit::Close) {
      for (int i = 0; i < depth_; ++i) open_[static_cast<std::size_t>(i)].progress = true;
    }
    return item;
  }

  constexpr FormatFault list() {
    if (peek() != '(') return FormatFault::brackets;
    // After a data descriptor the next one needs a comma; behind a comma an item must follow, and
    // none stands directly behind a bracket that opens.
    bool needs_comma = false, after_comma = false, opened = false;
    while (true) {
      const char c = peek();
      if (c == '\0') return FormatFault::brackets;
      if (c == ',') {
        if (after_comma || opened) return FormatFault::comma;
        ++at_;
        after_comma = true;
        needs_comma = false;
        continue;
      }
      if (c == ')') {
        if (after_comma) return FormatFault::comma;
        if (const FormatFault f = close(); f != FormatFault::none) return f;
        if (depth_ == 0) break;
        needs_comma = true;
        continue;
      }
      bool separate = false;
      const int level = depth_;
      if (const FormatFault f = item(needs_comma, separate); f != FormatFault::none) return f;
      needs_comma = separate;
      after_comma = false;
      opened = depth_ > level;
    }
    if (peek() != '\0') return FormatFault::brackets;
    add(Edit::End);
    return FormatFault::none;
  }

  // One item with its repeat count. `separate` tells that the next descriptor needs a comma.
  constexpr FormatFault item(bool needs_comma, bool& separate) {
    const char first = peek();
    if (first == '+' || first == '-') return FormatFault::scale;  // only nP may have a sign
    const int count = number(FORMAT_REPEAT);
    if (count == BAD_COUNT) return FormatFault::width;
    const char c = peek();
    if (c == 'P') {
      if (count == NO_COUNT) return FormatFault::width;
      if (count != 0) return FormatFault::scale;
      ++at_;
      return FormatFault::none;
    }
    if (count == 0) return FormatFault::width;
    const int repeat = count == NO_COUNT ? 1 : count;
    if (c == '/') {
      ++at_;
      add(Edit::Slash).repeat = repeat;
      return FormatFault::none;
    }
    if (c == '\'' || c == '"') {
      if (count != NO_COUNT) return FormatFault::descriptor;
      return literal(c);
    }
    if (needs_comma) return FormatFault::comma;
    if (c == '(') return open(repeat);
    if (c == 'X') {
      if (repeat > FORMAT_WIDTH) return FormatFault::width;
      ++at_;
      add(Edit::X).width = repeat;
      return FormatFault::none;
    }
    separate = true;
    return data(c, repeat);
  }

  constexpr FormatFault open(int repeat) {
    if (depth_ > FORMAT_NESTING) return FormatFault::nesting;
    ++at_;
    const int place = out_.count;
    add(Edit::Open).repeat = repeat;
    open_[static_cast<std::size_t>(depth_)] = {place, out_.data, false};
    ++depth_;
    return FormatFault::none;
  }

  constexpr FormatFault close() {
    if (depth_ == 0) return FormatFault::brackets;
    const Bracket& b = open_[static_cast<std::size_t>(--depth_)];
    if (!b.progress) return FormatFault::empty;
    ++at_;
    const int place = out_.count;
    add(Edit::Close).partner = b.item;
    items_[static_cast<std::size_t>(b.item)].partner = place;
    if (depth_ == 1) {  // the last group of level one is where a longer list begins again
      out_.revert = b.item;
      revert_from_ = b.data;
    }
    if (depth_ == 0) out_.revert_data = out_.data > revert_from_;
    return FormatFault::none;
  }

  constexpr FormatFault literal(char) {
    const char quote = text_[at_++];
    const int start = out_.literals;
    while (true) {
      if (at_ >= text_.size()) return FormatFault::literal;
      if (text_[at_] == quote) {
        ++at_;
        if (at_ >= text_.size() || text_[at_] != quote) break;
      }
      literals_[static_cast<std::size_t>(out_.literals++)] = text_[at_++];
    }
    if (out_.literals == start) return FormatFault::none;  // nothing to edit
    FormatItem& lit = add(Edit::Literal);
    lit.start = start;
    lit.width = out_.literals - start;
    return FormatFault::none;
  }

  constexpr FormatFault data(char c, int repeat) {
    Edit e = Edit::End;
    switch (c) {
      case 'I':
        e = Edit::I;
        break;
      case 'L':
        e = Edit::L;
        break;
      case 'F':
        e = Edit::F;
        break;
      case 'E':
        e = Edit::E;
        break;
      case 'D':
        e = Edit::D;
        break;
      case 'G':
        e = Edit::G;
        break;
      case 'A':
        e = Edit::A;
        break;
      default:
        return FormatFault::descriptor;
    }
    if (!fixed_ && (e == Edit::I || e == Edit::L)) return FormatFault::descriptor;
    ++at_;
    int width = number(FORMAT_WIDTH), decimals = 0;
    const bool as_needed = e == Edit::A ? width == NO_COUNT : e == Edit::I && width == 0;
    if (width <= 0 && !as_needed) return FormatFault::width;
    if (as_needed) width = 0;
    if (e == Edit::F || e == Edit::E || e == Edit::D || e == Edit::G) {
      if (peek() != '.') return FormatFault::width;
      ++at_;
      decimals = number(FORMAT_WIDTH);
      if (decimals < 0) return FormatFault::width;
      if (e != Edit::F && decimals == 0) {
        if (fixed_) return FormatFault::width;
        out_.zero_digits = true;
      }
    }
    FormatItem& item = add(e);
    item.repeat = repeat;
    item.width = width;
    item.decimals = decimals;
    ++out_.data;
    return FormatFault::none;
  }

  std::string_view text_;
  bool fixed_;
  std::span<FormatItem> items_;
  std::span<char> literals_;
  std::size_t at_ = 0;
  int depth_ = 0;
  int revert_from_ = 0;  // data descriptors in front of the part that is used again
  std::array<Bracket, FORMAT_NESTING + 2> open_{};
  FormatSummary out_;
};

// Walks a parsed format: groups and repeat counts are expanded, brackets are never seen outside.
class FormatCursor {
 public:
  constexpr FormatCursor(const FormatItem* items, int revert) : items_(items), revert_(revert) {}

  // The next item, each repeat for itself; the End item again and again at the end.
  constexpr const FormatItem& step() {
    while (true) {
      const FormatItem& item = items_[at_];
      switch (item.edit) {
        case Edit::Open:
          left_[static_cast<std::size_t>(depth_++)] = item.repeat;
          ++at_;
          break;
        case Edit::Close:
          if (--left_[static_cast<std::size_t>(depth_ - 1)] > 0) {
            at_ = item.partner + 1;
          } else {
            --depth_;
            ++at_;
          }
          break;
        case Edit::End:
          return item;
        default:
          if (again_ == 0) again_ = item.repeat;
          if (--again_ == 0) ++at_;
          return item;
      }
    }
  }
  // The list is longer than the format: back to the last group of level one, with its repeat count.
  constexpr void revert() {
    at_ = revert_;
    depth_ = 1;
    left_[0] = 1;
    again_ = 0;
  }

 private:
  const FormatItem* items_;
  int revert_;
  int at_ = 0;
  int depth_ = 0;
  int again_ = 0;  // repeats left of the item at at_
  std::array<std::int32_t, FORMAT_NESTING + 2> left_{};
};

}  // namespace korvel
