// The row readers below READ: words, cells, numbers, and that the threaded reader means the same as
// the one that goes by lines.
#include "data/read_rows.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace korvel {
namespace {

// Small random whole numbers.
class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}
  unsigned operator()() { return static_cast<unsigned>(engine_()); }

 private:
  std::mt19937 engine_;
};

TEST(WholeNumber, ReadsWhatANumberIs) {
  struct Case {
    const char* text;
    double value;
  };
  for (const Case& c : {Case{"1", 1},
                        {"-1.5", -1.5},
                        {"+2.", 2},
                        {".5", 0.5},
                        {"007", 7},
                        {"1e3", 1000},
                        {"1.5E-2", 0.015},
                        {"2d2", 200},
                        {"2D+2", 200},
                        {"123456789012345678901234567890", 123456789012345678901234567890.0},
                        {"0.1234567890123456789", 0.1234567890123456789},
                        {"9007199254740993", 9007199254740992.0},
                        {"0.000000000000000000000000000001", 1e-30},
                        {"-1e-320", -1e-320}}) {
    double v = -77;
    EXPECT_TRUE(whole_number(c.text, Numbers::point, v)) << c.text;
    EXPECT_EQ(v, c.value) << c.text;
  }
  for (const char* bad : {"", "-", ".", "1.2.3", "12abc", "abc", "1e", "1 2", "--1", "+-1", "1,5",
                          "inf", "nan", "0x10", "1e999", "-+1"}) {
    double v = 0;
    EXPECT_FALSE(whole_number(bad, Numbers::point, v)) << bad;
  }
}

TEST(WholeNumber, FormsOfNumbers) {
  constexpr double BAD = -77;  // refused
  struct Case {
    const char* text;
    double point, comma, points, either, dump;
  };
  for (const Case& c : {Case{"0,435", BAD, 0.435, 0.435, 0.435, BAD},
                        {"2.5", 2.5, 2.5, 2.5, 2.5, 2.5},
                        {"1.234", 1.234, BAD, 1.234, 1.234, 1.234},
                        {"-1,234", BAD, -1.234, BAD, -1.234, BAD},
                        {"1.234,5", BAD, BAD, BAD, BAD, BAD},
                        {"1,2,3", BAD, BAD, BAD, BAD, BAD},
                        {"1,5E3", BAD, 1500, 1500, 1500, BAD},
                        {"0.5+100", 0.5e100, 0.5e100, 0.5e100, 0.5e100, 0.5e100},
                        {"5+100", BAD, BAD, BAD, BAD, 5e100},
                        {"1 2", BAD, BAD, BAD, BAD, BAD}}) {
    const struct {
      Numbers form;
      double value;
    } wanted[] = {{Numbers::point, c.point},
                  {Numbers::comma, c.comma},
                  {Numbers::points, c.points},
                  {Numbers::either, c.either},
                  {Numbers::dump, c.dump}};
    for (const auto& w : wanted) {
      double v = BAD;
      if (!whole_number(c.text, w.form, v)) v = BAD;
      EXPECT_EQ(v, w.value) << c.text;
    }
  }
  double v = 0;
  EXPECT_TRUE(cell_number("-Inf", Numbers::point, v) && v < 0 && std::isinf(v));
  for (const char* text : {"1,234", "-12,345,678"}) EXPECT_TRUE(grouped_thousands(text, ','));
  for (const char* text : {"0,435", "1,23", "1234,567", "1,2345", ",123", "", "1,"}) {
    EXPECT_FALSE(grouped_thousands(text, ',')) << text;
  }
}

TEST(TextWord, CutsBehindWholeCharacters) {
  struct Case {
    const char* text;
    const char* word;
    bool cut;
  };
  for (const Case& c : {Case{"", "        ", false},
                        {"Ohio", "Ohio    ", false},
                        {"say \"\"x\"\"", "say \"x\" ", false},
                        {"Mecklenburg", "Mecklenb", true},
                        {"abcdef\xC3\xA9", "abcdef\xC3\xA9", false},
                        {"abcdefg\xC3\xA9", "abcdefg ", true}}) {
    bool cut = false;
    const double word = text_word(c.text, cut);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&word), 8), c.word);
    EXPECT_EQ(cut, c.cut) << c.text;
  }
}

// Every short decimal is the double that strtod gives.
TEST(WholeNumber, AgreesWithTheLibrary) {
  Random random(7);
  for (int i = 0; i < 20000; ++i) {
    std::string text = random() % 2 == 0 ? "-" : "";
    const unsigned digits = 1 + random() % 20, point = random() % (digits + 1);
    for (unsigned k = 0; k < digits; ++k) {
      if (k == point) text += '.';
      text += static_cast<char>('0' + random() % 10);
    }
    if (random() % 4 == 0) text += "e" + std::to_string(static_cast<int>(random() % 60) - 30);
    double v = 0;
    ASSERT_TRUE(whole_number(text, Numbers::point, v)) << text;
    ASSERT_EQ(v, std::strtod(text.c_str(), nullptr)) << text;
  }
}

std::vector<std::string> cells(std::string_view line, char separator) {
  std::vector<std::string> out;
  bool more = true;
  for (std::size_t at = 0; more;) {
    const Cell c = next_cell(line, at, separator, more);
    out.push_back(c.well_formed ? std::string(c.text) : "BAD");
  }
  return out;
}

TEST(Cells, AreCutAtSeparators) {
  using V = std::vector<std::string>;
  EXPECT_EQ(cells("1,2,3", ','), (V{"1", "2", "3"}));
  EXPECT_EQ(cells(" 1 ,, 3 ,", ','), (V{"1", "", "3", ""}));
  EXPECT_EQ(cells("", ','), (V{""}));
  EXPECT_EQ(cells("\"a,b\", \"2\" ,\"\"", ','), (V{"a,b", "2", ""}));
  EXPECT_EQ(cells("\"say \"\"x\"\"\",1", ','), (V{"say \"\"x\"\"", "1"}));
  EXPECT_EQ(cells("\"a\"b,1", ','), (V{"BAD", "1"}));
  EXPECT_EQ(cells("\"open,1", ','), (V{"BAD"}));
  EXPECT_EQ(cells("1\t\t 2", '\t'), (V{"1", "", "2"}));
  EXPECT_EQ(cells("0,5;1", ';'), (V{"0,5", "1"}));
  for (const char* text : {"", "NA", "na", "N/A", "NaN", ".", "**"})
    EXPECT_TRUE(missing_cell(text));
  for (const char* text : {"0", "*", "..", "NAN1", "N"}) EXPECT_FALSE(missing_cell(text));
}

TEST(Lines, EndTheBlock) {
  RowPlan stream;
  stream.ends_at_command = true;
  const RowPlan file;
  EXPECT_EQ(line_kind("END", stream), LineKind::end_word);
  EXPECT_EQ(line_kind("  end of data", stream), LineKind::end_word);
  EXPECT_EQ(line_kind("$END", stream), LineKind::end_word);
  EXPECT_EQ(line_kind("ENDO", stream), LineKind::command);
  EXPECT_EQ(line_kind("ENDIF(X)", stream), LineKind::command);
  EXPECT_EQ(line_kind(" print x", stream), LineKind::command);
  EXPECT_EQ(line_kind("1 x", stream), LineKind::data);
  EXPECT_EQ(line_kind(" \t , ", stream), LineKind::blank);
  EXPECT_EQ(line_kind("NA 1", file), LineKind::data);
  EXPECT_EQ(line_kind("END", file), LineKind::end_word);
  EXPECT_EQ(line_kind("END 1", file), LineKind::data);
}

struct Outcome {
  std::int64_t groups = 0, partial = 0;
  RowEnd end = RowEnd::count;
  std::size_t at = 0;
  std::int64_t line = 0;
  std::vector<double> data;
};

// Reads with or without the threaded reader in front.
Outcome read(const std::string& text, RowPlan plan, std::int64_t rows, bool bulk) {
  Outcome o;
  const auto n = static_cast<std::size_t>(plan.values), m = static_cast<std::size_t>(rows);
  o.data.assign(n * m, -77.0);
  RowTarget target;
  for (std::size_t k = 0; k < n; ++k) target.column.push_back(o.data.data() + k * m);
  LineCursor cursor;
  cursor.text = text;
  std::int64_t done = 0;
  if (bulk) done = read_bulk(cursor, scan_block(cursor, plan, rows), plan, target, rows);
  plan.groups = rows;
  const RowsRead r = read_rows(cursor, plan, &target, done);
  o.groups = r.groups;
  o.partial = r.partial;
  o.end = r.end;
  o.at = cursor.at;
  o.line = r.end == RowEnd::count ? cursor.line : (r.line != 0 ? r.line : cursor.line);
  // Words behind the last value read are not part of the result.
  for (std::size_t k = 0; k < n; ++k) {
    for (std::size_t g = 0; g < m; ++g) {
      const auto row = static_cast<std::int64_t>(g);
      const bool got =
          row < r.groups || (row == r.groups && static_cast<std::int64_t>(k) < r.partial);
      if (!got) o.data[k * m + g] = 0;
    }
  }
  return o;
}

void expect_same(const std::string& text, const RowPlan& plan, std::int64_t rows) {
  const Outcome a = read(text, plan, rows, false), b = read(text, plan, rows, true);
  ASSERT_EQ(a.groups, b.groups) << text.substr(0, 400);
  ASSERT_EQ(a.partial, b.partial);
  ASSERT_EQ(a.end, b.end);
  ASSERT_EQ(a.at, b.at);
  ASSERT_EQ(a.line, b.line);
  ASSERT_EQ(a.data, b.data);
}

// Random blocks of all kinds of lines. The many short ones try the rules, the long ones the cuts
// between sections.
TEST(Bulk, MeansTheSameAsLineByLine) {
  Random random(11);
  const char* const odd[] = {"NA",  ".",     "\"3\"", "1e2",  "2D1", "",
                             "abc", "1.2.3", " 4 ",   "-",    "\"x", "12345678901234567890",
                             "END", "+7",    "-.5",   "1\r2", "**",  "$END"};
  for (int round = 0; round < 4000; ++round) {
    const bool large = round % 400 == 0;
    RowPlan plan;
    plan.delimited = random() % 2 == 0;
    plan.separator = ",\t;"[random() % 3];
    plan.ends_at_command = random() % 2 == 0;
    plan.surplus_is_dropped = random() % 4 != 0;
    plan.values = 1 + random() % 4;
    plan.skip_columns = random() % 3 == 0 ? 1 : 0;
    plan.trailing = random() % 4 == 0 ? 1 : 0;
    plan.numbers = plan.separator == ';' ? Numbers::either : Numbers::point;
    plan.missing = -99999;
    const unsigned mess = large ? 20000 : 3 + random() % 60;  // one line in so many is odd
    const std::int64_t rows = large ? 60000 : 1 + random() % 40;
    const char* const line_end = random() % 3 == 0 ? "\r\n" : "\n";
    std::string text;
    for (std::int64_t r = 0; r < rows + 3; ++r) {
      const bool messy = random() % mess == 0;
      const auto width = static_cast<unsigned>(plan.values + plan.skip_columns);
      const unsigned n = messy ? random() % 6 : width;
      for (unsigned k = 0; k < n; ++k) {
        if (k > 0)
          text += plan.delimited ? std::string(1, plan.separator) : (random() % 2 ? " " : ", ");
        if (messy && random() % 2 == 0) {
          text += odd[random() % std::size(odd)];
        } else {
          text += std::to_string(static_cast<int>(random() % 20000) - 10000);
          if (random() % 2) text += (plan.delimited && plan.separator == ';' ? ",25" : ".125");
        }
      }
      if (plan.trailing > 0 && random() % 2 == 0) text += plan.separator;
      text += messy && random() % 4 == 0 ? " \n\n" : line_end;
      if (random() % (mess * 20) == 0) text += "PRINT X\n";
    }
    if (random() % 2) text.resize(text.size() - 1);
    expect_same(text, plan, rows);
    if (HasFatalFailure()) return;
  }
}

TEST(Bulk, ReadsAPlainBlockWhole) {
  for (const char* separator : {" ", ",", "\t"}) {
    std::string text;
    for (int i = 0; i < 60000; ++i) text += std::to_string(i) + separator + "-0.5\n";
    RowPlan plan;
    plan.delimited = *separator != ' ';
    plan.separator = *separator;
    plan.values = 2;
    std::vector<double> x(60000), y(60000);
    RowTarget target;
    target.column = {x.data(), y.data()};
    LineCursor cursor;
    cursor.text = text;
    EXPECT_EQ(read_bulk(cursor, scan_block(cursor, plan, UNKNOWN), plan, target, 60000), 60000);
    EXPECT_EQ(cursor.at, text.size());
    EXPECT_EQ(cursor.line, 60000);
    EXPECT_EQ(x[59999], 59999);
    EXPECT_EQ(y[31234], -0.5);
  }
}

TEST(Bulk, CountsRowsUpToTheCommand) {
  std::string text;
  for (int i = 0; i < 50000; ++i) text += std::to_string(i) + " 1 2\n\n";
  const std::size_t end = text.size();
  text += " STOP\n1 2 3\n";
  RowPlan plan;
  plan.ends_at_command = true;
  plan.values = 3;
  LineCursor cursor;
  cursor.text = text;
  const BlockScan scan = scan_block(cursor, plan, UNKNOWN);
  EXPECT_EQ(scan.rows, 50000);
  EXPECT_EQ(scan.sections.back().end, end);
}

}  // namespace
}  // namespace korvel
