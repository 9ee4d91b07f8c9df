// SAMPLE, TIME, CKSMPL, SKIPIT and SKIPKT.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "data/data.h"
#include "data/sample.h"
#include "engine/options.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;

double size_of_sample() { return temporary(temporary_place("N")); }

std::vector<double> marks() {
  const auto skip = skip_vector(workspace());
  return {skip.begin(), skip.end()};
}

TEST(Sample, RangesLeaveGaps) {
  run_commands("SAMPLE 1 10 21 30\n");
  EXPECT_EQ(DATCOM.IBEG, 1);
  EXPECT_EQ(DATCOM.IEND, 30);
  EXPECT_EQ(DATCOM.NOBS, 30);
  EXPECT_EQ(size_of_sample(), 20);
  const std::vector<double> skip = marks();
  ASSERT_EQ(skip.size(), 30U);
  for (std::size_t i = 0; i < 30; ++i) EXPECT_EQ(skip[i], i >= 10 && i < 20 ? 2 : 0) << i;
}

TEST(Sample, ANewOneClearsOldGaps) {
  run_commands("SAMPLE 1 10 21 30\nSAMPLE 1 2 5 30\nSAMPLE 1 30\n");
  EXPECT_EQ(size_of_sample(), 30);
  for (const double m : marks()) EXPECT_EQ(m, 0);
  EXPECT_FALSE(OSCOM.OSMPL);
}

TEST(Sample, LengthensTheMarks) {
  run_commands("SAMPLE 1 2 5 10\nSAMPLE 1 2 8 50\n");
  ASSERT_EQ(marks().size(), 50U);
  EXPECT_EQ(size_of_sample(), 45);
}

// SKIPIF and SKIPMISS marks beside gaps: 1 becomes 3 and goes back to 1, 9 gives way to the gap.
TEST(Sample, KeepsSkipifMarks) {
  run_commands("SAMPLE 1 5\n");
  Workspace ws = workspace();
  ASSERT_TRUE(make_skip_vector(ws, 10));
  skip_vector(ws)[2] = SKIP_IF;
  skip_vector(ws)[3] = SKIP_MISSING;
  const auto command = [&](std::vector<std::string_view> words) {
    INPCOM.IKOD = 12;
    SCNCOM.NWORDS = static_cast<int>(words.size());
    for (std::size_t i = 0; i < words.size(); ++i) TOKCOM.token[i + 1] = {words[i], words[i]};
    SMPL(ws);
  };
  command({"1", "2", "5", "9"});
  EXPECT_EQ(marks(), (std::vector<double>{0, 0, 3, 2, 0, 0, 0, 0, 0, 0}));
  command({"1", "9"});
  EXPECT_EQ(marks(), (std::vector<double>{0, 0, 1, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(size_of_sample(), 8);
  // A mark below IBEG counts as well.
  command({"5", "9"});
  EXPECT_EQ(size_of_sample(), 4);
}

TEST(Sample, RefusesAndChangesNothing) {
  for (const char* bad : {"SAMPLE 1 10 11 20", "SAMPLE 10 5", "SAMPLE 0 5", "SAMPLE 1 X",
                          "SAMPLE 1 2X", "SAMPLE 1980.1 1981.4", "SAMPLE 1 5 4 9",
                          "SAMPLE 1 99999999999", "SAMPLE $R2 5", "SAMPLE N:5 9", "SAMPLE -3 5"}) {
    const Listing out = run_commands("SAMPLE 2 7\n" + std::string(bad) + "\n");
    EXPECT_TRUE(holds(out, " ...ERROR..SYNTAX ERROR IN ABOVE COMMAND")) << bad << out.text;
    EXPECT_EQ(DATCOM.IBEG, 2) << bad;
    EXPECT_EQ(DATCOM.IEND, 7) << bad;
    EXPECT_EQ(size_of_sample(), 6) << bad;
    EXPECT_EQ(out.status, 1) << bad;
  }
  EXPECT_TRUE(
      holds(run_commands("SAMPLE 1 2 3\n"), " ...ERROR..ONLY   3 SAMPLE PERIODS..USE EVEN NUMBER"));
}

TEST(Sample, TakesDates) {
  struct Case {
    const char* commands;
    int beg, end;
  };
  for (const Case& c : {Case{"TIME 1980.1 4\nSAMPLE 1980.1 1981.4", 1, 8},
                        {"TIME 1980.3 4\nSAMPLE 1980.4 1981.1", 2, 3},
                        {"TIME 1980 12\nSAMPLE 1980.10 1981.02", 10, 14},
                        {"TIME 1980.1 12\nSAMPLE 1980.1 1980.10", 1, 10},
                        {"TIME 1900 1\nSAMPLE 1901.0 1905.", 2, 6},
                        {"TIME 1900\nSAMPLE 5 5", 5, 5}}) {
    run_commands(c.commands);
    EXPECT_EQ(DATCOM.IBEG, c.beg) << c.commands;
    EXPECT_EQ(DATCOM.IEND, c.end) << c.commands;
  }
  run_commands("TIME 1970.02 0\n");
  EXPECT_EQ(DATCOM.ITIME1, 1970);
  EXPECT_EQ(DATCOM.ITIME2, 2);
  EXPECT_EQ(DATCOM.ITIME3, 1);
}

TEST(Sample, TakesVariablesAndColumns) {
  const std::string read = "READ N1 N2 / OBS=1\n3 8.9\nREAD M / ROWS=2 COLS=2\n4 6\n5 9\n";
  for (const char* words : {"N1 N2", "N1:1 N2", "3 N2 : 1"}) {
    run_commands(read + "SAMPLE " + words + "\n");
    EXPECT_EQ(DATCOM.IBEG, 3) << words;
    EXPECT_EQ(DATCOM.IEND, 8) << words;
  }
  for (const char* words : {"M:1 M:2", "M :1 M: 2", "M M : 2"}) {
    run_commands(read + "SAMPLE " + words + "\n");
    EXPECT_EQ(DATCOM.IBEG, 4) << words;
    EXPECT_EQ(DATCOM.IEND, 6) << words;
  }
}

TEST(Time, MakesDates) {
  const Listing out = run_commands("SAMPLE 1 6\nTIME 1980.3 4 DATE\n");
  EXPECT_TRUE(holds(out, "  VARIABLE DATE CREATED WITH 6 OBSERVATIONS")) << out.text;
  const auto dates = elements(workspace(), VARNUM(workspace(), "DATE"));
  const std::vector<double> expected{1980.3, 1980.4, 1981.1, 1981.2, 1981.3, 1981.4};
  EXPECT_EQ((std::vector<double>(dates.begin(), dates.end())), expected);
  run_commands("SAMPLE 1 2\nTIME 1999.12 12 D\n");
  const auto months = elements(workspace(), VARNUM(workspace(), "D"));
  EXPECT_EQ(months[0], 1999.12);
  EXPECT_EQ(months[1], 2000.01);
  EXPECT_TRUE(holds(run_commands("TIME 1980 1 D\n"),
                    " ...ERROR..SAMPLE RANGE HAS NOT BEEN DEFINED FOR: D"));
  EXPECT_TRUE(holds(run_commands("TIME\n"), " COMMAND STRUCTURE: TIME beg freq var"));
}

// A workspace with series to check.
class Check : public ::testing::Test {
 protected:
  void SetUp() override {
    run_commands(
        "READ X Y / OBS=6\n1 1\n-99999 2\n3 3\n4 -99999\n5 5\n6 6\nREAD Z / OBS=4\n1 2 3 -99999\n");
    ws = workspace();
    INPCOM.IKOD = 6;
    OCOM.ODONT = OSCOM.OSCAN = false;
    DATCOM.MBEG = 1;
    DATCOM.MEND = 6;
  }
  ListItem item(std::string_view name, int lag = 0) {
    ListItem i;
    i.var = VARNUM(ws, name);
    i.lag = lag;
    return i;
  }
  ListItem number(int var) {
    ListItem i;
    i.var = var;
    return i;
  }
  Workspace ws;
};

TEST_F(Check, ShortVariablesStopTheCommand) {
  CKSMPL(ws, std::vector<ListItem>{item("X"), number(DATCOM.MCON), number(-3)});
  EXPECT_FALSE(OCOM.ODONT);
  CKSMPL(ws, std::vector<ListItem>{item("X"), item("Z")});
  EXPECT_TRUE(OCOM.ODONT);
}

TEST_F(Check, TheRangeComesFromTheShortestVariable) {
  DATCOM.MEND = 0;
  CKSMPL(ws, std::vector<ListItem>{item("X"), item("Z"), number(-45)});
  EXPECT_EQ(DATCOM.MEND, 4);
  DATCOM.MEND = 0;
  CKSMPL(ws, std::vector<ListItem>{number(-45)});
  EXPECT_EQ(DATCOM.MEND, 0);
}

TEST_F(Check, SkipmissMarksForOneCommand) {
  OSCOM.OSMISS = true;
  CKSMPL(ws, std::vector<ListItem>{item("X"), item("Y")});
  EXPECT_EQ(marks(), (std::vector<double>{0, 9, 0, 9, 0, 0}));
  CKSMPL(ws, std::vector<ListItem>{item("Y")});
  EXPECT_EQ(marks(), (std::vector<double>{0, 0, 0, 9, 0, 0}));
  // The value that a lagged variable uses stands earlier.
  CKSMPL(ws, std::vector<ListItem>{item("Y", 1)});
  EXPECT_EQ(marks(), (std::vector<double>{0, 0, 0, 0, 9, 0}));
  // The variable that FCAST is to predict may be missing.
  INPCOM.IKOD = 49;
  CKSMPL(ws, std::vector<ListItem>{item("X"), item("Y")});
  EXPECT_EQ(marks(), (std::vector<double>{0, 9, 0, 0, 0, 0}));
  // The marks end with SKIPMISS, even if something else skips.
  OSCOM.OSMISS = false;
  OSCOM.OSKIP = true;
  INPCOM.IKOD = 6;
  CKSMPL(ws, std::vector<ListItem>{item("X")});
  EXPECT_EQ(marks(), (std::vector<double>{0, 0, 0, 0, 0, 0}));
}

TEST_F(Check, SkipitCountsAndSkipktMeasuresGaps) {
  ASSERT_TRUE(make_skip_vector(ws, 8));
  const std::vector<double> skip{1, 0, 2, 2, 0, 0, 9, 0};
  std::ranges::copy(skip, skip_vector(ws).begin());
  struct Case {
    int beg, end, nskip, jbeg;
  };
  for (const Case& c :
       {Case{1, 8, 4, 0}, {2, 8, 3, 2}, {2, 20, 3, 2}, {5, 6, 0, 0}, {9, 12, 0, 0}}) {
    DATCOM.MBEG = c.beg;
    DATCOM.MEND = c.end;
    DATCOM.NSKIP = 8;
    SKIPIT(ws);
    EXPECT_EQ(DATCOM.NSKIP, c.nskip) << c.beg;
    EXPECT_EQ(DATCOM.JBEG, c.jbeg) << c.beg;
  }
  DATCOM.MBEG = 1;
  DATCOM.MEND = 8;
  std::vector<double> gaps(8, -1.0);
  DATCOM.NSKIP = -1;
  SKIPKT(ws, gaps);
  EXPECT_EQ(DATCOM.NSKIP, 4);
  EXPECT_EQ(gaps, (std::vector<double>{2, 0, 1, 0, 0, 0, 0, 0}));
  DATCOM.NSKIP = 8;
  std::vector<double> untouched(8, -1.0);
  SKIPKT(ws, untouched);
  EXPECT_EQ(DATCOM.NSKIP, 4);
  EXPECT_EQ(untouched, std::vector<double>(8, -1.0));
  DATCOM.NSKIP = -2;
  SKIPKT(ws, untouched);
  EXPECT_EQ(DATCOM.NSKIP, 0);
  EXPECT_EQ(untouched, std::vector<double>(8, 0.0));
}

TEST(CountEqual, EveryLengthAndPlace) {
  std::vector<double> x(300000, 1.0);
  for (std::size_t n = 0; n < 70; ++n) {
    EXPECT_EQ(count_equal({x.data(), n}, 1.0), n);
    EXPECT_EQ(count_equal({x.data(), n}, 2.0), 0U);
  }
  for (std::size_t i = 0; i < x.size(); i += 997) x[i] = 5.0;
  EXPECT_EQ(count_equal(x, 5.0), (x.size() + 996) / 997);
}

}  // namespace
}  // namespace korvel
