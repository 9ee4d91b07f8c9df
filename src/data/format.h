// Formatted records: the one way in which values become columns of a line.
//
//   compose<FMT>(line, capacity, cursor, args...)  one record under a fixed format
//   compose_list<FMT>(values, line, capacity, sink)  a list of any length under a fixed format, the
//                                                  format being used again on new records
//   write_values, read_values                      the same under a format that is parsed at run
//   time
//
// Fixed formats are parsed when the program is built; a wrong descriptor, an argument of the wrong
// kind or column 131 stops the build. I takes integers, F, E, D and G take double, A takes text
// (left-justified in Aw, as names of fixed length are; as many columns as it has without w), L
// takes bool. format_edit.h has the editors, run_format.h the formats of users.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <type_traits>

#include "data/format_edit.h"
#include "data/format_parse.h"

namespace korvel {

inline constexpr int RECORD_COLUMNS = 130;  // of a record on the output channel

// The text of a fixed format as a template argument.
template <std::size_t N>
struct FixedText {
  char text[N]{};
  // NOLINTNEXTLINE(google-explicit-constructor): a literal is to become a FixedText by itself
  constexpr FixedText(const char (&s)[N]) {
    for (std::size_t i = 0; i < N; ++i) text[i] = s[i];
  }
  constexpr std::string_view view() const { return {text, N - 1}; }
};

enum class ArgKind : std::uint8_t { Integer, Real, Text, Logical, Other };

template <class T>
constexpr ArgKind arg_kind() {
  using U = std::remove_cvref_t<T>;
  if constexpr (std::is_same_v<U, bool>)
    return ArgKind::Logical;
  else if constexpr (std::is_same_v<U, char>)
    return ArgKind::Text;
  else if constexpr (std::is_integral_v<U>)
    return ArgKind::Integer;
  else if constexpr (std::is_floating_point_v<U>)
    return ArgKind::Real;
  else if constexpr (std::is_convertible_v<const T&, std::string_view>)
    return ArgKind::Text;
  else
    return ArgKind::Other;
}
constexpr bool takes(Edit e, ArgKind kind) {
  switch (e) {
    case Edit::I:
      return kind == ArgKind::Integer;
    case Edit::L:
      return kind == ArgKind::Logical;
    case Edit::A:
      return kind == ArgKind::Text;
    case Edit::F:
    case Edit::E:
    case Edit::D:
    case Edit::G:
      return kind == ArgKind::Real;
    default:
      return false;
  }
}

// One argument without its type.
struct FormatArg {
  double real = 0;
  std::int64_t integer = 0;
  std::string_view text;
};
template <class T>
FormatArg format_arg(const T& value) {
  constexpr ArgKind kind = arg_kind<T>();
  FormatArg a;
  if constexpr (std::is_same_v<T, char>)
    a.text = {&value, 1};
  else if constexpr (kind == ArgKind::Integer)
    a.integer = static_cast<std::int64_t>(value);
  else if constexpr (kind == ArgKind::Logical)
    a.integer = value ? 1 : 0;
  else if constexpr (kind == ArgKind::Real)
    a.real = static_cast<double>(value);
  else if constexpr (kind == ArgKind::Text)
    a.text = value;
  return a;
}

// A fixed format, parsed: its items and the text of its literals.
template <std::size_t N>
struct FixedFormat {
  std::array<FormatItem, N + 2> items{};
  std::array<char, N + 1> literals{};
  FormatSummary summary;
};
template <FixedText FMT>
consteval auto parse_fixed() {
  FixedFormat<FMT.view().size()> f;
  f.summary = FormatParser(FMT.view(), true, f.items, f.literals).parse();
  return f;
}
template <FixedText FMT>
inline constexpr auto FIXED_FORMAT = parse_fixed<FMT>();
template <FixedText FMT>
constexpr FormatView fixed_view() {
  return {FIXED_FORMAT<FMT>.items.data(), FIXED_FORMAT<FMT>.literals.data(),
          FIXED_FORMAT<FMT>.summary.revert, FIXED_FORMAT<FMT>.summary.revert_data};
}

// What is wrong with a fixed format of one record for these arguments.
template <FixedText FMT, class... Args>
consteval FormatFault format_fault() {
  constexpr auto& format = FIXED_FORMAT<FMT>;
  if (format.summary.fault != FormatFault::none) return format.summary.fault;
  constexpr std::array<ArgKind, sizeof...(Args) + 1> kinds{arg_kind<Args>()..., ArgKind::Other};
  FormatCursor cursor(format.items.data(), format.summary.revert);
  std::size_t used = 0;
  int columns = 0;
  while (true) {
    const FormatItem& item = cursor.step();
    if (item.edit == Edit::End) break;
    if (item.edit == Edit::Slash) return FormatFault::records;
    if (is_data(item.edit)) {
      if (used == sizeof...(Args)) return FormatFault::arguments;
      if (!takes(item.edit, kinds[used])) return FormatFault::argument_kind;
      ++used;
    }
    columns += item.width;
    if (columns > RECORD_COLUMNS) return FormatFault::columns;
  }
  return used == sizeof...(Args) ? FormatFault::none : FormatFault::arguments;
}

// Edits one record into line, which has `capacity` columns and is blank there, from the column
// `cursor` (from 0) on. Returns the cursor behind it. What would pass the capacity is cut.
int compose_record(const FormatView& format, const FormatArg* args, char* line, int capacity,
                   int cursor);

template <FixedText FMT, class... Args>
int compose(char* line, int capacity, int cursor, const Args&... args) {
  constexpr FormatFault fault = format_fault<FMT, Args...>();
  static_assert(fault != FormatFault::argument_kind, "format: an argument of the wrong kind");
  static_assert(fault != FormatFault::arguments, "format: one argument for each descriptor");
  static_assert(fault != FormatFault::columns, "format: the record passes column 130");
  static_assert(fault != FormatFault::records, "format: '/' in a format of one record");
  static_assert(fault == FormatFault::none || fault >= FormatFault::arguments,
                "format: a descriptor or bracket is wrong");
  if constexpr (fault == FormatFault::none) {
    const std::array<FormatArg, sizeof...(Args) + 1> erased{format_arg(args)..., FormatArg{}};
    return compose_record(fixed_view<FMT>(), erased.data(), line, capacity, cursor);
  } else {
    return cursor;
  }
}

// ---- Lists of values ----------------------------------------------------------------------------

// Takes finished records; false asks the writer to stop. A view of a callable that outlives the
// call; a lambda may be passed as it stands.
class RecordSink {
 public:
  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, RecordSink>)
      // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload)
      RecordSink(F&& f)
      : context_(const_cast<void*>(static_cast<const void*>(std::addressof(f)))),
        call_([](void* c, std::string_view record) -> bool {
          return (*static_cast<std::remove_reference_t<F>*>(c))(record);
        }) {}
  bool operator()(std::string_view record) const { return call_(context_, record); }

 private:
  void* context_;
  bool (*call_)(void*, std::string_view);
};

// Gives the next record to be read; false at the end of the data.
class RecordSource {
 public:
  template <class F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, RecordSource>)
      // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload)
      RecordSource(F&& f)
      : context_(const_cast<void*>(static_cast<const void*>(std::addressof(f)))),
        call_([](void* c, std::string_view& record) -> bool {
          return (*static_cast<std::remove_reference_t<F>*>(c))(record);
        }) {}
  bool operator()(std::string_view& record) const { return call_(context_, record); }

 private:
  void* context_;
  bool (*call_)(void*, std::string_view&);
};

enum class RecordEnd : std::uint8_t {
  done,
  columns,  // a record would pass the capacity: nothing of it was sent
  no_data,  // the part of the format that is used again has no data descriptor
  stopped,  // the sink asked to stop
  eof,      // the source has no more records
  bad,      // a field that is no number
};

// Writes the values, one pass of the format for the whole list. `line` is work space of `capacity`
// characters. Character words go through A. Numbers under I or L are not possible here.
RecordEnd write_values(const FormatView& format, std::span<const double> values, char* line,
                       int capacity, const RecordSink& sink);

// Columns of the longest record that a list of n values would give, at the most `limit`+1: nothing
// is edited. -1 when the part that is used again has no data descriptor.
int widest_record(const FormatView& format, std::int64_t n, int limit);

// Reads values, beginning with a new record. `used` counts the values that were read.
RecordEnd read_values(const FormatView& format, std::span<double> values,
                      const RecordSource& source, std::size_t& used);

// Fields that one list would have that takes all records: up to the last one with text in it.
std::size_t count_fields(const FormatView& format, const RecordSource& source);

// A list under a fixed format of F, E, D, G and A descriptors, such as "(1X, 8G15.7)".
template <FixedText FMT>
RecordEnd compose_list(std::span<const double> values, char* line, int capacity,
                       const RecordSink& sink) {
  static_assert(FIXED_FORMAT<FMT>.summary.fault == FormatFault::none, "format: cannot be parsed");
  static_assert(FIXED_FORMAT<FMT>.summary.revert_data, "format: no descriptor to be used again");
  static_assert(
      [] {
        for (const FormatItem& item : FIXED_FORMAT<FMT>.items) {
          if (item.edit == Edit::I || item.edit == Edit::L) return false;
        }
        return true;
      }(),
      "format: a list of doubles takes F, E, D, G and A");
  return write_values(fixed_view<FMT>(), values, line, capacity, sink);
}

}  // namespace korvel
