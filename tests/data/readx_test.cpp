// READ: what ends up in the workspace, where the command stream goes on, and what is said.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "data/data.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::DataFile;
using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::values;
using V = std::vector<double>;

TEST(ReadStream, RowsUpToTheTerminator) {
  struct Case {
    const char* commands;
    V x, y;
  };
  for (const Case& c :
       {Case{"READ X Y\n1 2\n3 4\nEND\n", {1, 3}, {2, 4}},
        {"READ X Y\n\n1,2\n \n3\t4 99 98\n\nSAMPLE 1 1\n", {1, 3}, {2, 4}},
        {"READ X Y\n1\n2 3\n4 5\nend\n", {1, 4}, {2, 5}},
        {"READ X Y\n1 2\n3 4\n", {1, 3}, {2, 4}},
        {"READ X Y\n1E1 2d0\n\"3\" -4.\n$END\n", {10, 3}, {2, -4}},
        {"READ X Y / BYVAR OBS=2\n1 2 9\n3\n4\n", {1, 2}, {3, 4}},
        {"READ X Y / BYVAR\n1 2\n3\n4\n", {1, 2}, {3, 4}},
        {"SET BYVAR\nREAD X Y / OBS=3\n1 2 3\n4 5 6\n", {1, 2, 3}, {4, 5, 6}},
        {"READ X Y / SKIPLINE=1 SKIPROWS=1 SKIPCOLS=1 OBS=1\nA header\n1 2 3\n7 8 9\n", {8}, {9}},
        {"READ / NAMES\nX \"y\"\n1 2\n3 4\nEND\n", {1, 3}, {2, 4}}}) {
    const Listing out = run_commands(c.commands);
    EXPECT_EQ(values("X"), c.x) << c.commands << out.text;
    EXPECT_EQ(values("Y"), c.y) << c.commands << out.text;
    EXPECT_EQ(out.status, 0) << c.commands << out.text;
  }
}

TEST(ReadStream, OneSeries) {
  run_commands("READ X\n1 2 3\n4\nEND\n");
  EXPECT_EQ(values("X"), (V{1, 2, 3, 4}));
  run_commands("READ X / NOBYVAR\n1 2 3\n4\nEND\n");
  EXPECT_EQ(values("X"), (V{1, 4}));
  run_commands("READ X / OBS=3\n1 2\n3 4\nREAD Y / OBS=1\n7\n");
  EXPECT_EQ(values("X"), (V{1, 2, 3}));
  EXPECT_EQ(values("Y"), (V{7}));
}

TEST(ReadStream, GoesOnBehindItsData) {
  const Listing out = run_commands(
      "READ X / OBS=2\n1\n2\nEND\nREAD Y / OBS=2\n3\n4\nTIME 1980 1\nREAD "
      "Z\n5\n6\nENDIF(0.GT.1)\nTIME 1990 "
      "1\n");
  EXPECT_EQ(values("Z"), (V{5, 6}));
  EXPECT_EQ(DATCOM.ITIME1, 1990);
  EXPECT_TRUE(holds(out, "|_TIME 1980 1"));
  EXPECT_FALSE(holds(out, "|_END\n"));
}

TEST(ReadStream, SetsTheSampleOnce) {
  const Listing out = run_commands("READ X\n1\n2\n3\nEND\nREAD Y / BEG=2 END=5\n7 8 9 10\nEND\n");
  EXPECT_TRUE(holds(out,
                    " ...NOTE..    1 VARIABLES AND        3 OBSERVATIONS STARTING AT OBS       1\n"
                    " ...NOTE..SAMPLE RANGE IS NOW SET TO:         1         3\n"))
      << out.text;
  EXPECT_TRUE(
      holds(out, " ...NOTE..    1 VARIABLES AND        4 OBSERVATIONS STARTING AT OBS       2\n"));
  EXPECT_EQ(DATCOM.IEND, 3);
  EXPECT_EQ(DATCOM.MAXOB, 5);
  EXPECT_EQ(temporary(temporary_place("N")), 3);
  EXPECT_EQ(values("Y"), (V{-99999, 7, 8, 9, 10}));
}

TEST(ReadStream, OldVariablesKeepWhatIsNotRead) {
  run_commands("READ X\n1 2 3 4 5\nEND\nREAD X / BEG=2 OBS=2\n8 9\nEND\n");
  EXPECT_EQ(values("X"), (V{1, 8, 9, 4, 5}));
  run_commands("READ X\n1 2 3\nEND\nREAD Z\n0\n0\n0\nEND\nREAD X / BEG=3 OBS=3\n8 9 10\nEND\n");
  EXPECT_EQ(values("X"), (V{1, 2, 8, 9, 10}));
}

TEST(ReadStream, Faults) {
  struct Case {
    const char* commands;
    const char* line;
  };
  for (const Case& c :
       {Case{"READ X Y / OBS=2\n1 2\n3 4A\nEND\n",
             " ...ERROR..READ ERROR IN VARIABLE   2  Y\n ...NOTE..LINE 3: 4A IS NOT A NUMBER\n"},
        {"READ X Y / OBS=3\n1 2\nTIME 1980 1\n",
         " ...ERROR..LESS DATA FOUND THAN EXPECTED..ZEROS USED\n"},
        {"READ X Y\n1 2\n3\nEND\n", " ...ERROR..LESS DATA FOUND THAN EXPECTED..ZEROS USED\n"},
        {"READ X\nEND\n", " ...ERROR..NO DATA FOUND\n"},
        {"READ X / NAMES\nX\n1\nEND\n", " ...ERROR..WITH NAMES OPTION, DO NOT LIST VARIABLES\n"},
        {"READ / NAMES\n,\n1 2\nEND\n", " ...ERROR..THE ROW OF NAMES HOLDS NO NAMES\n"},
        {"READ / NAMES FORMAT=COMMA SKIPCOLS=2\nA,B\n1,2\nEND\n",
         " ...ERROR..THE ROW OF NAMES HOLDS NO NAMES\n"},
        {"READ(6) X\n", " ...ERROR..INVALID READ UNIT 6\n"},
        {"READ(8) X\n", " ...ERROR..INVALID READ UNIT 8\n"},
        {"READ(11) X / OBS=1\n", " ...WARNING..FILE DOES NOT EXIST:fort.11\n"},
        {"READ(no_such_file) X / EOF\n", " ...WARNING..FILE DOES NOT EXIST:no_such_file\n"},
        {"READ(/tmp) X / EOF\n", " ...ERROR..OPEN ERROR ON UNIT88 ERROR=21 FILE=/tmp\n"},
        {"READ X / BEG=5 END=3\n1\nEND\n",
         " ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT         5         3\n"},
        {"READ X / FORMAT\n1\nEND\n", " ...ERROR..NO FORMAT CURRENTLY EXISTS\n"},
        {"READ X Y / BYVAR\n1 2 3 4\nEND\n", " ...ERROR..NUMBER OF OBSERVATIONS NOT SPECIFIED\n"},
        {"READ $R2\n1\nEND\n", " ...ERROR..SYNTAX ERROR\n"},
        {"READ X Y / ROWS=2 COLS=2\n1 2\n3 4\nEND\n",
         " ...ERROR..ONLY ONE MATRIX MAY BE READ AT A TIME\n"},
        {"READ A / ROWS=2\n1 2\n3 4\nEND\n",
         " ...ERROR..NEW MATRIX..COLS OR COL2 MUST BE SPECIFIED\n"},
        {"READ A / ROWS=2 COLS=2\n1 2\n3 X\nEND\n",
         " ...ERROR..READ ERROR IN ROW      2 COLUMN      2\n"},
        {"READ A / SYMAT ROWS=2\n1\n3 X\nEND\n",
         " ...ERROR..READ ERROR IN LOWER TRIANGLE OF MATRIX\n"},
        {"READ A / SYMAT ROWS=2 COLS=3\n1\n3 4\nEND\n",
         " ...ERROR..TOO MANY ROWS OR COLS REQUESTED OR"},
        {"READ A / ROWS=99999 COLS=99999\n1\nEND\n",
         " ...ERROR..TOO MANY ROWS OR COLS REQUESTED OR"},
        {"READ A / ROWS=9999 COLS=9999\n1\nEND\n",
         " ...ERROR..INSUFFICIENT MEMORY TO ENTER MATRIX\n"},
        {"READ X / OBS=90000000\n1\nEND\n", " ...ERROR..INSUFFICIENT MEMORY TO ENTER MATRIX\n"},
        {"READ A / ROWS=1 COLS=2\n1 2\nEND\nREAD A / OBS=1\n5\nEND\n",
         " ...ERROR..TOO MANY ROWS OR COLS"},
        {"READ(x.dif) X\n", " ...WARNING..FILE DOES NOT EXIST:x.dif\n"},
        {"READ X / CRYPT\n1\nEND\n",
         " ...ERROR..SYNTAX ERROR IN SPECIFYING READ UNIT OR PARENTHESES\n"},
        {"READ X / CHARSTR\nEND\n", " ...ERROR..NO DATA FOUND\n"},
        {"READ A / ROWS=1 COLS=2 CHARVAR\na b\nEND\n", " ...ERROR..INCOMPATIBLE OPTIONS\n"},
        {"READ X / OBS=1\n1\nEND\nREAD X / CHARVAR OBS=1\na\nEND\n",
         " ...ERROR..TOO MANY ROWS OR COLS"}}) {
    const Listing out =
        run_commands(std::string(c.commands) + "READ TAIL / NOSUCH\n1\nTIME 1901 1\n");
    EXPECT_TRUE(holds(out, c.line)) << c.commands << out.text;
    EXPECT_FALSE(holds(out, "UNKNOWN COMMAND")) << c.commands << out.text;  // data are no commands
    EXPECT_TRUE(holds(out, "|_TIME 1901 1")) << c.commands << out.text;
    EXPECT_EQ(out.status, 1);
  }
  // What was read before stays, what is missing is zero.
  run_commands("READ X Y / OBS=3\n1 2\n3\nEND\n");
  EXPECT_EQ(values("X"), (V{1, 3, 0}));
  EXPECT_EQ(values("Y"), (V{2, 0, 0}));
}

TEST(ReadMatrix, Forms) {
  const Listing out = run_commands("READ A / ROWS=2 COLS=3\n1 2 3\n4 5\n6\nEND\n");
  EXPECT_EQ(values("A"), (V{1, 4, 2, 5, 3, 6}));
  EXPECT_TRUE(
      holds(out, " ...NOTE..       2 ROWS AND           3 COLUMNS, BEGINNING AT ROW       1\n"))
      << out.text;
  EXPECT_EQ(DATCOM.IEND, -999);
  run_commands(
      "READ A / COLS=2\n1 2\n3 4\n5 6\nEND\nREAD A / ROWS=2 BEG=2 COLB=2 COLE=2\n8\n9\nEND\n");
  EXPECT_EQ(values("A"), (V{1, 3, 5, 2, 8, 9}));
  run_commands("READ A / COLS=2\n1 2\n3 4\nEND\nREAD A:2 / OBS=2\n8 9\nEND\n");
  EXPECT_EQ(values("A"), (V{1, 3, 8, 9}));
  const Listing sym = run_commands("READ S / SYMAT ROWS=3\n1 77\n2 3\n4 5\n6\nEND\n");
  EXPECT_EQ(values("S"), (V{1, 2, 3, 4, 5, 6}));
  EXPECT_TRUE(holds(sym, " LOWER TRIANGLE OF MATRIX\n"));
  const Place p = INFO(workspace(), VARNUM(workspace(), "S"));
  EXPECT_EQ(p.ITYPE, SYMMETRIC);
  EXPECT_EQ(p.N2, 3);
}

TEST(ReadFile, FreeText) {
  const DataFile file("1 2\n3 4\n5 6");
  run_commands(file.read("X Y / EOF"));
  EXPECT_EQ(values("Y"), (V{2, 4, 6}));
  run_commands(file.read("X Y / EOF OBS=2"));
  EXPECT_EQ(values("Y"), (V{2, 4}));
  // The next READ goes on where the last one stopped, or begins anew.
  run_commands(file.read("X Y / OBS=1") + file.read("U V / OBS=1 NOREWIND") +
               file.read("P Q / OBS=1"));
  EXPECT_EQ(values("U"), (V{3}));
  EXPECT_EQ(values("P"), (V{1}));
  run_commands(file.read("X Y / OBS=2") + file.read("U V / OBS=1 NOREWIND BACKSPACE"));
  EXPECT_EQ(values("U"), (V{3}));
  run_commands(file.read("X Y / OBS=2 CLOSE") + file.read("U V / OBS=1 NOREWIND"));
  EXPECT_EQ(values("U"), (V{1}));
  EXPECT_TRUE(
      holds(run_commands(file.read("X Y")), " ...ERROR..NUMBER OF OBSERVATIONS NOT SPECIFIED\n"));
  const Listing less = run_commands(file.read("X Y / OBS=4"));
  EXPECT_TRUE(holds(less, " ...ERROR..LESS DATA FOUND THAN EXPECTED..ZEROS USED"));
  EXPECT_EQ(values("Y"), (V{2, 4, 6, 0}));
}

TEST(ReadFile, SkippedColumnsAndTheRowOfNames) {
  for (const char* text : {"ID A B\n1 2 3\n4 5 6\n", "A B\nfirst 2 3\nsecond 5 6\n"}) {
    const DataFile file(text);
    const Listing out = run_commands(file.read("/ NAMES EOF SKIPCOLS=1"));
    EXPECT_EQ(values("A"), (V{2, 5})) << text << out.text;
    EXPECT_EQ(values("B"), (V{3, 6})) << text;
  }
}

std::string text_of(std::string_view name) {
  const auto e = elements(workspace(), VARNUM(workspace(), name));
  return {reinterpret_cast<const char*>(e.data()), e.size() * sizeof(double)};
}

TEST(ReadStream, Characters) {
  // Words of 8 characters beside numbers; only END ends such data.
  const Listing out = run_commands(
      "READ X NAME / CHARVARS=1\n1 Ohio\n2 \"New York\"\n3 Mississippi\nEND\nTIME 1980 1\n");
  EXPECT_EQ(values("X"), (V{1, 2, 3})) << out.text;
  EXPECT_EQ(text_of("NAME"), "Ohio    New YorkMississi");
  EXPECT_EQ(INFO(workspace(), VARNUM(workspace(), "NAME")).ITYPE, CHARVAR);
  EXPECT_EQ(DATCOM.ITIME1, 1980);
  EXPECT_TRUE(holds(out, " ...NOTE..1 WORDS OF TEXT WERE CUT TO 8 CHARACTERS\n"));
  run_commands(
      "READ P Q / CHARVAR\nprint x\nend_of y\nEND\nREAD Q / CHARVAR BEG=2 OBS=3\na b c\nEND\n");
  EXPECT_EQ(text_of("P"), "print   end_of  ");
  EXPECT_EQ(text_of("Q"), "x       a       b       c       ");
  run_commands("READ Q / CHARVAR BEG=3 OBS=1\nz\nEND\n");
  EXPECT_EQ(text_of("Q"), "                z       ");
  // Through A descriptors, declared or not.
  run_commands("FORMAT(A8,F3.0,A2)\nREAD N X M / FORMAT\n1st name  1ab\n2nd      22c\nEND\n");
  EXPECT_EQ(text_of("N"), "1st name2nd     ");
  EXPECT_EQ(text_of("M"), "ab      c       ");
  EXPECT_EQ(values("X"), (V{1, 22}));
  // Lines as they stand.
  run_commands(
      "READ TEXT / CHARSTR\nOLS Y X\n\n  it's\nEND\nREAD A B / CHARSTR\n(F5.1)\nsecond\nEND\n");
  EXPECT_EQ(text_of("TEXT"), "OLS Y X   it's  ");
  EXPECT_EQ(text_of("B"), "second  ");
  EXPECT_EQ(INFO(workspace(), VARNUM(workspace(), "A")).ITYPE, STRING5);
  run_commands("SET SCAN\nREAD P / CHARVAR\nTIME 1990 1\nEND\nSET NOSCAN\nTIME 1970 1\n");
  EXPECT_EQ(DATCOM.ITIME1, 1970);
}

TEST(ReadFile, UnitsAndSettings) {
  const DataFile file("1 2\n3 4\n");
  const std::string name = file.read("").substr(5, file.read("").find(')') - 5);
  // READFILE names the file of a READ that names none; unit 5 is the command stream.
  run_commands("SET READFILE=" + name + "\nREAD X Y / EOF\nREAD(5) Z / OBS=1\n7\n");
  EXPECT_EQ(values("Y"), (V{2, 4}));
  EXPECT_EQ(values("Z"), (V{7}));
  const Listing scanned =
      run_commands("SET READFILE=" + name + "\nSET SCAN\nREAD X / EOF\nTIME 1970 1\n");
  EXPECT_TRUE(holds(scanned, "|_TIME 1970 1")) << scanned.text;
}

TEST(ReadFile, Dump) {
  const DataFile file(
      "  0.10000000000000000E+01  0.50000000000000000-310\n  0.17976931348623157+309          "
      "            NaN\n                     -Inf -0.33333333333333331E+00\n");
  run_commands(file.read("X Y / EOF FORMAT=DUMP"));
  const V x = values("X"), y = values("Y");
  ASSERT_EQ(x.size(), 3U);
  EXPECT_EQ(x[1], 1.7976931348623157e308);
  EXPECT_TRUE(x[2] < 0 && y[0] == 5e-311 && y[1] != y[1] && y[2] == -1.0 / 3.0);
  EXPECT_EQ(run_commands(file.read("X Y / EOF")).status, 1);
}

TEST(ReadFile, Formatted) {
  const DataFile file("  1  2\n3.5  4\n123456\n");
  const Listing out = run_commands("FORMAT(2F3.0)\n" + file.read("X Y / EOF FORMAT"));
  EXPECT_EQ(values("X"), (V{1, 3.5, 123})) << out.text;
  EXPECT_EQ(values("Y"), (V{2, 4, 456}));
  EXPECT_TRUE(holds(out, " ...NOTE..READ USES FORMAT:\n (2F3.0)\n")) << out.text;
  run_commands("FORMAT(F3.1,3X)\nREAD X Y / OBS=1 FORMAT\n123\n456\n");
  EXPECT_EQ(values("X"), (V{12.3}));
  EXPECT_EQ(values("Y"), (V{45.6}));
}

// Blocks above the size that the threads share: the same results, faults and places.
TEST(ReadFile, LargeBlocks) {
  std::string text;
  constexpr int N = 30000;
  for (int i = 0; i < N; ++i) text += std::to_string(i) + " " + std::to_string(-i) + "\n";
  {
    const DataFile file(text);
    const Listing out = run_commands(file.read("X Y / EOF"));
    ASSERT_EQ(values("X").size(), static_cast<std::size_t>(N)) << out.text;
    EXPECT_EQ(values("Y")[N - 1], -(N - 1));
    EXPECT_EQ(run_commands(file.read("X Y / OBS=100")).status, 0);
    EXPECT_EQ(values("X").size(), 100U);
    run_commands(file.read("X / EOF"));
    EXPECT_EQ(values("X").size(), 2U * N);
    EXPECT_EQ(values("X")[2 * N - 1], -(N - 1));
    run_commands(file.read("X / EOF NOBYVAR"));
    EXPECT_EQ(values("X").size(), static_cast<std::size_t>(N));
  }
  {
    const DataFile file(text + "7\n8\n9\n");  // a row over two lines, and half a row
    const Listing out = run_commands(file.read("X Y / EOF"));
    EXPECT_TRUE(holds(out, " ...ERROR..LESS DATA FOUND THAN EXPECTED..ZEROS USED")) << out.text;
    ASSERT_EQ(values("X").size(), N + 2U);
    EXPECT_EQ(values("Y")[N], 8);
    EXPECT_EQ(values("X")[N + 1], 9);
    EXPECT_EQ(values("Y")[N + 1], 0);
  }
  {
    const DataFile file(text + "5 bad\n" + text);
    const Listing out = run_commands(file.read("X Y / EOF"));
    EXPECT_TRUE(holds(out, " LINE 30001: bad IS NOT A NUMBER\n")) << out.text;
    EXPECT_EQ(values("X").size(), N + 1U);
    EXPECT_EQ(values("X")[N], 5);
    EXPECT_EQ(values("Y")[N], -99999);
  }
  {
    const DataFile file(text);  // the workspace that would do is named, and does
    const Listing small = run_commands(file.read("X Y / EOF"), 64);
    EXPECT_TRUE(holds(small, "INSUFFICIENT MEMORY TO PROCEED AFTER     4092 OBS\n")) << small.text;
    const auto at = small.text.find("PAR=");
    ASSERT_NE(at, std::string::npos) << small.text;
    EXPECT_EQ(run_commands(file.read("X Y / EOF"), std::stoi(small.text.substr(at + 4))).status, 0);
  }
  const Listing out = run_commands("READ X Y\n" + text + "END\nTIME 1980 1\n");
  EXPECT_EQ(values("Y").size(), static_cast<std::size_t>(N));
  EXPECT_EQ(DATCOM.ITIME1, 1980);
  EXPECT_EQ(out.status, 0);
}

TEST(ReadFile, RoomIsCheckedBefore) {
  std::string text;
  for (int i = 0; i < 20000; ++i) text += "1 2\n";
  const DataFile file(text);
  const Listing out = run_commands(file.read("X Y / EOF"), 100);
  EXPECT_TRUE(holds(out, " ...ERROR..INSUFFICIENT MEMORY TO PROCEED AFTER     6396 OBS\n"))
      << out.text;
  EXPECT_TRUE(holds(out, " THIS REQUIRES AT LEAST PAR=")) << out.text;
  EXPECT_EQ(DATCOM.NVARS, 0);
}

}  // namespace
}  // namespace korvel
