// WRITE: the text of its files, what reads back, and what a failure leaves behind.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <bit>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "data/data.h"
#include "data/format_edit.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

namespace fs = std::filesystem;
using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::values;
using V = std::vector<double>;

// A folder for one test; "@" in commands stands for it.
class WriteTest : public testing::Test {
 protected:
  WriteTest() {
    char name[] = "/tmp/korvel_write_XXXXXX";
    folder = mkdtemp(name);
  }
  ~WriteTest() override { fs::remove_all(folder); }
  Listing run(std::string commands, std::int64_t par = 20480) const {
    for (auto at = commands.find('@'); at != std::string::npos; at = commands.find('@')) {
      commands.replace(at, 1, folder + "/");
    }
    return run_commands(commands, par);
  }
  void make(const std::string& name, const std::string& text) const {
    std::ofstream(folder + "/" + name, std::ios::binary) << text;
  }
  std::string text(const std::string& name) const {
    std::ifstream in(folder + "/" + name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  std::string folder;
};

const std::string XY = "SAMPLE 1 3\nREAD X Y\n1.25 0.1\n-2.5 4000\n0 1E-5\nEND\n";

TEST_F(WriteTest, TextOfTheForms) {
  const struct {
    const char* commands;
    const char* file;
    const char* text;
  } cases[] = {
      {"WRITE(@a) X Y\n", "a",
       "    1.250000      0.1000000\n   -2.500000       4000.000\n    0.000000      "
       "0.1000000E-04\n"},
      {"WRITE(@a) X\n", "a", "    1.250000      -2.500000       0.000000\n"},
      {"WRITE(@a) X Y / NAMES BYVAR NEWLINE END=2\n", "a",
       " X\n    1.250000      -2.500000\n\n Y\n   0.1000000       4000.000\n"},
      {"WRITE(@a) Y X Y X Y X / NAMES OBS=1\n", "a",
       "        Y              X              Y              X              Y              X\n"
       "   0.1000000       1.250000      0.1000000       1.250000      0.1000000\n    1.250000\n"},
      {"WRITE(@a) X Y / FORMAT=DUMP END=1\n", "a",
       "   0.12500000000000000E+01  0.10000000000000001E+00\n"},
      {"WRITE(@a.csv) X Y\n", "a.csv", "1.25,0.1\n-2.5,4000\n0,1e-05\n"},
      {"WRITE(@A.TSV) X Y / NAMES OBS=1\n", "A.TSV", "X\tY\n1.25\t0.1\n"},
      {"WRITE(@a.csv) X / FORMAT=FREE OBS=1\n", "a.csv", "    1.250000\n"},
      {"WRITE(@a) X / FORMAT=COMMA\n", "a", "1.25\n-2.5\n0\n"},
      {"WRITE(@a) X / FORMAT=COMMA BYVAR\n", "a", "1.25,-2.5,0\n"},
      // A record of a file has no limit of 130 columns, and keeps its blanks.
      {"FORMAT(F7.2,140X,F5.0,2X,'  ')\nWRITE(@a) X Y / FORMAT BEG=2 END=2\n", "a",
       "  -2.50                                                                                  "
       "                                                          4000.    \n"},
      {"READ M / ROWS=2 COLS=3\n1 2 3\n4 5 6\nWRITE(@a) M / COLB=2\n", "a",
       "    2.000000       3.000000\n    5.000000       6.000000\n"},
      {"READ M / ROWS=2 COLS=3\n1 2 3\n4 5 6\nWRITE(@a.csv) M / ROWS=1 COLS=2 NAMES\n", "a.csv",
       " M\n     2 BY     3 MATRIX\n1,2\n"},
      {"READ S / SYMAT ROWS=2\n1\n2 3\nWRITE(@a) S\n", "a",
       "    1.000000\n    2.000000       3.000000\n"},
      {"FORMAT(A8)\nWRITE(@a) FORMAT$\n", "a", "(A8)\n"},
      {"WRITE(@a.csv) $N X / NAMES\n", "a.csv", "N,X\n3,1.25\n3,-2.5\n3,0\n"},
      {"SKIPIF(Y.GT.1)\nWRITE(@a.csv) X Y\n", "a.csv", "1.25,0.1\n0,1e-05\n"},
      {"PRINT(@a) X / END=2\nPRINT(@a) Y / OBS=1\n", "a",
       " X\n    1.250000      -2.500000\n Y\n   0.1000000\n"},
      {"WRITE(@a) X / OBS=1\nWRITE(@a) X / OBS=1 APPEND\nWRITE(@a) Y / OBS=1 NOREWIND\n", "a",
       "    1.250000\n    1.250000\n   0.1000000\n"},
      {"SET WRITEFIL=@a\nWRITE X / OBS=1\nWRITE Y / OBS=1\n", "a", "   0.1000000\n"},
  };
  for (const auto& c : cases) {
    const Listing listing = run(XY + c.commands);
    EXPECT_EQ(listing.status, 0) << listing.text;
    EXPECT_EQ(text(c.file), c.text) << c.commands;
    fs::remove(folder + "/" + c.file);
  }
}

TEST_F(WriteTest, WordsOfCharacters) {
  make("in", "1.5Smith, J\n2.5 O\"Neil\n3.5\n");
  const std::string read = "FORMAT(F3.0,A8)\nREAD(@in) X NAME / FORMAT OBS=3\n";
  run(read +
      "WRITE(@a.csv) X NAME / CHARVARS=1\nWRITE(@b) NAME X / CHARVARS=2 FORMAT=FREE OBS=1\n");
  EXPECT_EQ(text("a.csv"), "1.5,\"Smith, J\"\n2.5,\" O\"\"Neil\"\n3.5,\n");
  run(read + "FORMAT(A8,F6.1)\nWRITE(@b) NAME X / FORMAT OBS=2\n");
  EXPECT_EQ(text("b"), "Smith, J   1.5\n O\"Neil    2.5\n");
}

// Everything that a double can be comes back bit for bit, but NaN and infinities, which are words.
TEST_F(WriteTest, ReadsBackBitForBit) {
  constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
  constexpr double MAX = std::numeric_limits<double>::max();
  V x = {0.0,      -0.0,
         0.1,      -1e22,
         1e23,     5e-324,
         -5e-324,  2.2250738585072014e-308,
         MAX,      -MAX,
         -99999,   123456789012345680.0,
         1.0 / 3,  9007199254740992.0,
         99999.5,  1e5,
         100000000};
  std::mt19937_64 random(7);
  while (x.size() < 3000) {
    const auto v = std::bit_cast<double>(random());
    if (v - v == 0) x.push_back(v);
  }
  std::string data;
  for (const double v : x) {
    char number[64];
    data.append(number, std::to_chars(number, number + 64, v).ptr);
    data += '\n';
  }
  make("in", data);
  const std::string n = std::to_string(x.size());
  for (const std::string write :
       {"WRITE(@f) X X / FORMAT=DUMP", "WRITE(@f) X X / FORMAT=COMMA", "WRITE(@f) X X / FORMAT=TAB",
        "WRITE(@f.csv) X X / NAMES", "WRITE(@f) X X / FORMAT=DUMP BYVAR"}) {
    const std::string file = write.find(".csv") != std::string::npos ? "f.csv" : "f";
    const bool names = write.find("NAMES") != std::string::npos;
    std::string options = names ? "NAMES EOF" : "OBS=" + n;
    for (const char* word : {"FORMAT=COMMA", "FORMAT=TAB", "BYVAR"}) {
      if (write.find(word) != std::string::npos) options += std::string(" ") + word;
    }
    const Listing listing = run("READ(@in) X / OBS=" + n + "\n" + write + "\nDELETE X\nREAD(@" +
                                file + ") " + (names ? "" : "X Y") + " / " + options + "\n");
    ASSERT_EQ(listing.status, 0) << listing.text;
    const V back = values("X");
    ASSERT_EQ(back.size(), x.size()) << write;
    for (std::size_t i = 0; i < x.size(); ++i) {
      ASSERT_EQ(std::bit_cast<std::uint64_t>(back[i]), std::bit_cast<std::uint64_t>(x[i]))
          << write << ' ' << i << ' ' << x[i];
    }
  }
  char word[SHORTEST_ROOM];
  EXPECT_EQ(std::string(word, edit_shortest(word, NaN)), "NaN");
  EXPECT_EQ(std::string(word, edit_shortest(word, -MAX * 2)), "-Inf");
}

// Large tables are made by all threads in pieces: every row is there, in order, and the rows that
// are skipped aren't.
TEST_F(WriteTest, LargeTables) {
  const int n = 50000;
  std::string data, plain, cells, kept;
  for (int i = 1; i <= n; ++i) {
    const std::string number = std::to_string(i);
    data += number + "\n";
    char field[16];
    edit_general(field, 15, 7, i);
    std::string line = " " + std::string(field, 15) + std::string(field, 15);
    line.erase(line.find_last_not_of(' ') + 1);
    plain += line + "\n";
    std::array<char, 32> shortest;
    const std::string cell(shortest.data(), edit_shortest(shortest.data(), i));
    cells += cell + "," + cell + "\n";
    if (i % 2 == 1) kept += cell + "\n";
  }
  make("in", data);
  const std::string read = "READ(@in) X / OBS=" + std::to_string(n) + "\n";
  run(read +
      "WRITE(@a) X X\nWRITE(@a.csv) X X\nSKIPIF(MOD(X,2).EQ.0)\nWRITE(@b) X / FORMAT=COMMA\n");
  EXPECT_TRUE(text("a") == plain);
  EXPECT_TRUE(text("a.csv") == cells);
  EXPECT_TRUE(text("b") == kept);
  // One series runs through its lines of five.
  run(read + "WRITE(@a) X\nREAD(@a) Y / OBS=" + std::to_string(n) + "\n");
  EXPECT_EQ(values("X"), values("Y"));
}

// Missing data are written whole, unless the variables of the command were found to have them.
TEST_F(WriteTest, MissingData) {
  const std::string data =
      "SET SKIPMISS NOWARNMISS\nSAMPLE 1 3\nREAD X Y\n1 2\n-99999 4\n5 6\nEND\n";
  run(data + "WRITE(@a.csv) X\nPRINT X\nWRITE(@b.csv) X\nWRITE(@c.csv) Y\n");
  EXPECT_EQ(text("a.csv"), "1\n-99999\n5\n");
  EXPECT_EQ(text("b.csv"), "1\n5\n");
  EXPECT_EQ(text("c.csv"), "2\n4\n6\n");
}

TEST_F(WriteTest, AFailureLeavesTheOldFile) {
  make("old", "old\n");
  fs::create_symlink("old", folder + "/link");
  for (const char* commands :
       {"WRITE(@old) NOSUCH\n", "WRITE(@old) X / BEG=2 END=9\n", "WRITE(@old) X / BEG=3 END=2\n",
        "FORMAT(2I5)\nWRITE(@old) X / FORMAT\n", "WRITE(@old) X / DIF APPEND\n",
        "WRITE(@old) X / KORVEL BINARY\n", "DELETE X Y\nWRITE(@old)\n", "WRITE(@no/old) X\n",
        "WRITE(@old/x) X\n", "WRITE(@) X\n"}) {
    const Listing listing = run(XY + commands);
    EXPECT_EQ(listing.status, 1) << commands << listing.text;
    EXPECT_TRUE(holds(listing, " ...ERROR..")) << commands;
    EXPECT_EQ(text("old"), "old\n") << commands;
  }
  // A disk that fills up on the way.
  std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit old {};
  getrlimit(RLIMIT_FSIZE, &old);
  struct rlimit small = old;
  small.rlim_cur = 300000;
  setrlimit(RLIMIT_FSIZE, &small);
  for (const char* name : {"old", "link"}) {
    const Listing listing = run(std::string("SAMPLE 1 90000\nGENR X=1\nWRITE(@") + name + ") X\n");
    EXPECT_EQ(listing.status, 1);
    EXPECT_TRUE(holds(listing, " ...ERROR..WRITE ERROR ON FILE " + folder + "/old: File too large"))
        << listing.text;
  }
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(text("old"), "old\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(folder), fs::directory_iterator()), 2);
}

}  // namespace
}  // namespace korvel
