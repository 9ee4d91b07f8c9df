// Formatted records: the parser, the editors, and the walks over lists.
#include "data/format.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "data/run_format.h"

namespace korvel {
namespace {

// ---- What must not compile
// -----------------------------------------------------------------------

using Text = std::string_view;
static_assert(format_fault<"(1X, A8, I7, G13.5)", Text, int, double>() == FormatFault::none);
static_assert(format_fault<"(' ...ERROR..IT''S ', A, \" x\")", Text>() == FormatFault::none);
static_assert(format_fault<"(121X, F9.2)", double>() == FormatFault::none);
static_assert(format_fault<"(121X, F9.2, ' ')", double>() == FormatFault::columns);
static_assert(format_fault<"(1X, 10(F13.2))", double, double, double, double, double, double,
                           double, double, double, double>() == FormatFault::columns);
static_assert(format_fault<"(1X, F8.2)", int>() == FormatFault::argument_kind);
static_assert(format_fault<"(1X, I8)", double>() == FormatFault::argument_kind);
static_assert(format_fault<"(1X, I8)", bool>() == FormatFault::argument_kind);
static_assert(format_fault<"(1X, A)", int>() == FormatFault::argument_kind);
static_assert(format_fault<"(1X, 2I8)", int>() == FormatFault::arguments);
static_assert(format_fault<"(1X, I8)", int, int>() == FormatFault::arguments);
static_assert(format_fault<"(1X, I8 / I8)", int, int>() == FormatFault::records);
static_assert(format_fault<"(1X, Z8)", int>() == FormatFault::descriptor);
static_assert(format_fault<"(1X, T8)", int>() == FormatFault::descriptor);
static_assert(format_fault<"(1X, F8)", double>() == FormatFault::width);
static_assert(format_fault<"(1X, E10.0)", double>() == FormatFault::width);
static_assert(format_fault<"(1X, 'open)">() == FormatFault::literal);
static_assert(format_fault<"1X, I8", int>() == FormatFault::brackets);
static_assert(format_fault<"(1X, (I8)", int>() == FormatFault::brackets);
static_assert(format_fault<"(1P, F8.2)", double>() == FormatFault::scale);
static_assert(format_fault<"(0P, F8.2)", double>() == FormatFault::none);

// ---- Editors
// -------------------------------------------------------------------------------------

std::string edited(char letter, int w, int d, double value) {
  std::string field(static_cast<std::size_t>(w), '?');
  switch (letter) {
    case 'F':
      edit_fixed(field.data(), w, d, value);
      break;
    case 'G':
      edit_general(field.data(), w, d, value);
      break;
    default:
      edit_exponent(field.data(), w, d, value, letter);
  }
  return field;
}

TEST(FormatEdit, RealFields) {
  constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double Inf = std::numeric_limits<double>::infinity();
  const struct {
    char letter;
    int w, d;
    double value;
    const char* field;
  } table[] = {
      // Ties of the exact binary value go to the even digit.
      {'F', 5, 2, 0.125, " 0.12"},
      {'F', 5, 2, 0.375, " 0.38"},
      {'F', 5, 0, 0.5, "   0."},
      {'F', 5, 0, 1.5, "   2."},
      {'F', 5, 1, 0.25, "  0.2"},
      {'F', 8, 2, 1.005, "    1.00"},  // lies below the tie
      {'E', 9, 2, 0.125, " 0.12E+00"},
      // The zero in front of the point is optional, the minus sign of zeros never shown.
      {'F', 3, 2, 0.25, ".25"},
      {'F', 4, 2, -0.25, "-.25"},
      {'F', 3, 2, -0.25, "***"},
      {'F', 6, 2, -0.001, "  0.00"},
      {'F', 6, 2, -0.0, "  0.00"},
      {'F', 1, 0, 0.0, "*"},
      {'F', 2, 0, 0.0, "0."},
      {'E', 7, 3, 0.5, "*******"},
      {'E', 8, 3, 0.5, ".500E+00"},
      {'E', 12, 3, -0.0, "   0.000E+00"},
      // Widths and overflow.
      {'F', 5, 1, 999.96, "*****"},
      {'F', 6, 1, 999.96, "1000.0"},
      {'F', 24, 0, 1e22, "10000000000000000000000."},
      // Exponents of three digits take the place of the letter.
      {'E', 14, 7, 1e124, " 0.1000000+125"},
      {'D', 14, 7, 1e-124, " 0.1000000-123"},
      {'D', 14, 7, 12.5, " 0.1250000D+02"},
      {'E', 25, 17, 0.1, "  0.10000000000000001E+00"},
      {'E', 25, 17, 5e-324, "  0.49406564584124654-323"},
      // G: rounded to d digits first, then the range decides.
      {'G', 15, 7, 0.0, "   0.000000    "},
      {'G', 15, 7, -0.0, "   0.000000    "},
      {'G', 15, 7, 1.0, "   1.000000    "},
      {'G', 15, 7, -1234567.4, "  -1234567.    "},
      {'G', 15, 7, 9999999.4, "   9999999.    "},
      {'G', 15, 7, 9999999.6, "  0.1000000E+08"},
      {'G', 15, 7, 0.1, "  0.1000000    "},
      {'G', 15, 7, 0.09999999999, "  0.1000000    "},
      {'G', 15, 7, 0.0999999, "  0.9999990E-01"},
      {'G', 15, 7, 1e-300, "  0.1000000-299"},
      {'G', 25, 10, -0.99999999995, "        -0.9999999999    "},  // below the tie
      {'G', 9, 5, 0.0, ".0000    "},
      {'G', 5, 1, 0.0, "*****"},
      {'G', 10, 7, 123.0, "**********"},
      {'G', 15, 7, NaN, "            NaN"},
      {'F', 8, 2, -Inf, "    -Inf"},
      {'E', 3, 1, -Inf, "***"},
      {'F', 2, 0, NaN, "**"},
  };
  for (const auto& t : table) {
    EXPECT_EQ(edited(t.letter, t.w, t.d, t.value), t.field)
        << t.letter << t.w << '.' << t.d << " of " << t.value;
  }
}

TEST(FormatEdit, LongFieldsAreExact) {
  // 2**-60 and 2**70 have finite decimal expansions.
  EXPECT_EQ(edited('F', 66, 60, std::ldexp(1.0, -60)),
            "    0.000000000000000000867361737988403547205962240695953369140625");
  EXPECT_EQ(edited('F', 26, 2, std::ldexp(1.0, 70)), " 1180591620717411303424.00");
  const std::string wide = edited('F', 1000, 2, 1.7976931348623157e308);
  EXPECT_EQ(wide.substr(1000 - 312, 9), "179769313");
  EXPECT_EQ(edited('E', 1000, 990, 0.5).substr(3, 8), " 0.50000");
}

TEST(FormatEdit, ReadingFields) {
  const struct {
    const char* field;
    int d;
    double value;
  } good[] = {
      {"   ", 2, 0.0},
      {"12345", 2, 123.45},
      {"1 2 3", 0, 123.0},
      {" -1.5 ", 3, -1.5},
      {"1.5E3", 2, 1500.0},
      {"1.5D-3", 2, 0.0015},
      {"1.5+3", 2, 1500.0},
      {"15e1", 1, 15.0},
      {".5", 0, 0.5},
      {"5.", 3, 5.0},
      {"0.1", 7, 0.1},
      {"123456789012345678901", 20, 1.2345678901234568},
      {"+7", 0, 7.0},
      {"1E-400", 0, 0.0},
      {"2.2250738585072011E-308", 0, 2.225073858507201e-308},
  };
  for (const auto& t : good) {
    double value = -1;
    EXPECT_TRUE(read_real_field(t.field, t.d, value)) << t.field;
    EXPECT_EQ(value, t.value) << t.field;
  }
  for (const char* field : {"x", "1.2.3", "1E", "1E+", "+", ".", "1,5", "--1", "1E400", "***"}) {
    double value = 0;
    EXPECT_FALSE(read_real_field(field, 2, value)) << field;
  }
  double value = 0;
  EXPECT_TRUE(read_real_field("  NaN", 2, value) && std::isnan(value));
  EXPECT_TRUE(read_real_field("-inf", 2, value) && std::isinf(value) && value < 0);
}

// ---- Fixed records
// -------------------------------------------------------------------------------

template <FixedText FMT, class... Args>
std::string composed(int capacity, int cursor, const Args&... args) {
  std::string line(static_cast<std::size_t>(capacity), ' ');
  const int end = compose<FMT>(line.data(), capacity, cursor, args...);
  return line + '|' + std::to_string(end);
}

TEST(Format, ComposesOneRecord) {
  const std::string name = "INCOME";
  EXPECT_EQ((composed<"(1X, A8, I7, G13.5)">(30, 0, name, 17, 2.5)),
            " INCOME       17   2.5000     |29");
  EXPECT_EQ((composed<"('IT''S', 1X, I0, \"'\", A)">(14, 2, -12L, "ABC")), "  IT'S -12'ABC|14");
  EXPECT_EQ((composed<"(2(I2, '-'), I2, L2)">(12, 0, 1, 123, 3, true)), " 1-**- 3 T  |10");
  EXPECT_EQ((composed<"(A3, A1)">(5, 0, "ABCDEF", 'x')), "ABCx |4");
  EXPECT_EQ((composed<"(I0)">(22, 0, std::numeric_limits<std::int64_t>::min())),
            "-9223372036854775808  |20");
  // What passes the capacity is cut, also a field that begins behind it.
  EXPECT_EQ((composed<"(A, F8.2, I4)">(8, 0, "ABCD", 3.25, 7)), "ABCD    |16");
  EXPECT_EQ((composed<"(1X, A)">(4, 3, "AB")), "    |6");
}

// ---- Lists
// ---------------------------------------------------------------------------------------

struct Written {
  std::vector<std::string> records;
  RecordEnd end = RecordEnd::done;
};
Written written(std::string_view format, std::vector<double> values, int capacity = 130) {
  RunFormat f;
  EXPECT_EQ(f.parse(format), FormatFault::none) << format;
  Written w;
  std::string line(static_cast<std::size_t>(capacity), '?');
  w.end = write_values(f.view(), values, line.data(), capacity, [&](std::string_view record) {
    w.records.emplace_back(record);
    return true;
  });
  return w;
}
using Records = std::vector<std::string>;

TEST(Format, ListsReuseTheFormatOnNewRecords) {
  EXPECT_EQ(written("(1X, 3F4.1)", {1, 2, 3, 4}).records, (Records{"  1.0 2.0 3.0", "  4.0"}));
  // Back to the last group of level one, with its repeat count; nothing but that group.
  EXPECT_EQ(written("(F2.0, 2('<', F2.0, '>'))", {1, 2, 3, 4, 5, 6, 7}).records,
            (Records{"1.<2.><3.>", "<4.><5.>", "<6.><7.>"}));
  EXPECT_EQ(written("('a', (F2.0), (F2.0, (F2.0)), 'b')", {1, 2, 3, 4, 5, 6}).records,
            (Records{"a1.2.3.b", "4.5.b", "6."}));
  EXPECT_EQ(written("(F2.0/F2.0)", {1, 2, 3}).records, (Records{"1.", "2.", "3.", ""}));
  EXPECT_EQ(written("(F2.0, 2/, F2.0)", {1, 2}).records, (Records{"1.", "", "2."}));
  // Literals behind the last value are written up to the next descriptor for data.
  EXPECT_EQ(written("(F2.0, ' end', F2.0)", {1}).records, (Records{"1. end"}));
  std::vector<std::string> lines;
  std::array<char, 130> line;
  const std::vector<double> twenty(20, 1.5);
  compose_list<"(1X, 8G15.7)">(twenty, line.data(), 130, [&](std::string_view record) {
    lines.emplace_back(record);
    return true;
  });
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].size(), 121U);
  EXPECT_EQ(lines[2].size(), 61U);
}

TEST(Format, WideRecordsAreFoundBeforeTheyAreWritten) {
  const struct {
    const char* format;
    int values, widest;
  } table[] = {
      {"(13F10.2)", 13, 130}, {"(14F10.2)", 14, 131},      {"(14F10.2)", 13, 130},
      {"(20(F6.1/))", 50, 6}, {"(F8.2, 123X)", 1, 131},    {"(F8.2, (1X))", 2, -1},
      {"(F8.2, (1X))", 1, 9}, {"(1X, 130F1.0)", 129, 130}, {"(F1.0, 100000(100000(/)))", 1, 131},
  };
  for (const auto& t : table) {
    RunFormat f;
    ASSERT_EQ(f.parse(t.format), FormatFault::none) << t.format;
    EXPECT_EQ(widest_record(f.view(), t.values, 130), t.widest) << t.format;
    const Written w = written(t.format, std::vector<double>(static_cast<std::size_t>(t.values), 1));
    EXPECT_EQ(w.end == RecordEnd::done, t.widest >= 0 && t.widest <= 130) << t.format;
  }
}

TEST(Format, RunTimeFormatsAreJudged) {
  const std::string longest = "('" + std::string(241, ' ') + "'F1.0";
  const struct {
    std::string format;
    FormatFault fault;
  } table[] = {
      {"(2I5)", FormatFault::descriptor},
      {"(F8.2,Q3)", FormatFault::descriptor},
      {"(TL3,F8.2)", FormatFault::descriptor},
      {"(8.2)", FormatFault::descriptor},
      {"F8.2", FormatFault::brackets},
      {"", FormatFault::brackets},
      {"(F8.2))", FormatFault::brackets},
      {"(F8.2) X", FormatFault::brackets},
      {"(F8.2,,F8.2)", FormatFault::comma},
      {"(,F8.2)", FormatFault::comma},
      {"(F8.2,)", FormatFault::comma},
      {"(F8.2F8.2)", FormatFault::comma},
      {"(F8.2/F8.2'x'F8.2)", FormatFault::none},
      {"(0P,F8.2)", FormatFault::none},
      {"(0PF8.2)", FormatFault::none},
      {"(-1PF8.2)", FormatFault::scale},
      {"(2PF8.2)", FormatFault::scale},
      {"(F0.2)", FormatFault::width},
      {"(F1000.2)", FormatFault::none},
      {"(F1001.2)", FormatFault::width},
      {"(1001X,F8.2)", FormatFault::width},
      {"(99999999999F8.2)", FormatFault::width},
      {"(0F8.2)", FormatFault::width},
      {"(F8.2,())", FormatFault::empty},
      {"(F8.2,2(''))", FormatFault::empty},
      {"(1X,'A')", FormatFault::no_data},
      {"( f8.2 , a , g 1 5 . 7 )", FormatFault::none},
      {std::string(21, '(') + "F8.2" + std::string(21, ')'), FormatFault::none},
      {std::string(22, '(') + "F8.2" + std::string(22, ')'), FormatFault::nesting},
      {longest, FormatFault::brackets},
      {longest + ")", FormatFault::too_long},
      {"(" + std::string(300, ' ') + "F8.2)", FormatFault::none},
  };
  for (const auto& t : table) {
    RunFormat f;
    EXPECT_EQ(f.parse(t.format), t.fault) << t.format;
  }
  RunFormat f;
  EXPECT_EQ(f.parse("('" + std::string(240, ' ') + "'F1.0)"), FormatFault::none);  // 248
}

struct ReadBack {
  std::vector<double> values;
  RecordEnd end = RecordEnd::done;
  std::size_t records = 0;
};
ReadBack read_back(std::string_view format, std::vector<std::string_view> records, std::size_t n) {
  RunFormat f;
  EXPECT_EQ(f.parse(format), FormatFault::none) << format;
  ReadBack r;
  r.values.resize(n, -1);
  std::size_t used = 0;
  r.end = read_values(
      f.view(), r.values,
      [&](std::string_view& record) {
        if (r.records == records.size()) return false;
        record = records[r.records++];
        return true;
      },
      used);
  r.values.resize(used);
  return r;
}

TEST(Format, ReadsLists) {
  using Values = std::vector<double>;
  EXPECT_EQ(read_back("(2X,2F4.1)", {"xx 1.5 2.5", "yy 35"}, 3).values, (Values{1.5, 2.5, 3.5}));
  EXPECT_EQ(read_back("(3F4.1)", {" 1.5"}, 3).values, (Values{1.5, 0, 0}));  // padded with blanks
  EXPECT_EQ(read_back("(F4.1,'lit',F4.1)", {" 1.5xyz 2.5"}, 2).values, (Values{1.5, 2.5}));
  // The end of the format may skip the records that follow each row.
  const ReadBack r = read_back("(F4.0,/)", {"1.", "skipped", "2."}, 1);
  EXPECT_EQ(r.records, 2U);
  EXPECT_EQ(r.end, RecordEnd::done);
  const ReadBack bad = read_back("(3F4.1)", {" 1.5 abc 2.5"}, 3);
  EXPECT_EQ(bad.end, RecordEnd::bad);
  EXPECT_EQ(bad.values, (Values{1.5}));
  const ReadBack ended = read_back("(F4.1)", {" 1.5"}, 2);
  EXPECT_EQ(ended.end, RecordEnd::eof);
  EXPECT_EQ(ended.values, (Values{1.5}));
  EXPECT_EQ(read_back("(F4.1,(1X))", {" 1.5", " 2.5"}, 2).end, RecordEnd::no_data);
}

TEST(Format, TextGoesThroughWords) {
  const std::vector<std::string_view> record{"ABCDEFGHIJKL"};
  EXPECT_EQ(written("(A, 1X, A10, A3)", read_back("(A8, A3)", record, 2).values).records,
            (Records{"ABCDEFGH   IJK     "}));
  EXPECT_EQ(written("(A)", read_back("(A12)", record, 1).values).records, (Records{"EFGHIJKL"}));
}

}  // namespace
}  // namespace korvel
