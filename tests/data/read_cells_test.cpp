// Comma- and tab-separated files as people have them: each is read right, or refused with a line
// that says what to do.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::values;
using V = std::vector<double>;
constexpr double M = -99999;  // the missing code

struct DataFile : korvel_test::DataFile {
  explicit DataFile(const std::string& text, const std::string& tail = ".csv")
      : korvel_test::DataFile(text, tail) {}
};

std::string text_of(std::string_view name) {
  const auto e = elements(workspace(), VARNUM(workspace(), name));
  return {reinterpret_cast<const char*>(e.data()), e.size() * sizeof(double)};
}

std::string utf16(const std::string& ascii, bool big) {
  std::string out = big ? "\xFE\xFF" : "\xFF\xFE";
  for (const char c : ascii) {
    if (big) out += '\0';
    out += c;
    if (!big) out += '\0';
  }
  return out;
}

TEST(Cells, RealLifeIsReadRight) {
  struct Case {
    const char* what;
    std::string text, tail, options;
    V a, b;
    const char* says;
  };
  const std::string plain = "A,B\n1,2\n3,4\n";
  for (const Case& c : {
           Case{"plain",
                plain,
                ".csv",
                "",
                {1, 3},
                {2, 4},
                ": CELLS PARTED BY COMMA, DECIMAL POINT, NAMES IN LINE 1\n"},
           {"CR LF, UTF-8 mark",
            "\xEF\xBB\xBF"
            "A,B\r\n1,2\r\n3,4\r\n",
            ".csv",
            "",
            {1, 3},
            {2, 4},
            ""},
           {"lone CR", "A,B\r1,2\r3,4\r", ".csv", "", {1, 3}, {2, 4}, ""},
           {"UTF-16, little end first", utf16(plain, false), ".csv", "", {1, 3}, {2, 4}, ""},
           {"UTF-16, big end first", utf16(plain, true), ".csv", "", {1, 3}, {2, 4}, ""},
           {"everything in quotes",
            "\"A\",\"B\"\n\"1\",\"2\"\n\"3\",\"4\"\n",
            ".csv",
            "",
            {1, 3},
            {2, 4},
            ""},
           {"separators and doubled quotes in quotes",
            "T,A,B\n\"x, \"\"y\"\", z\",1,2\n,3,4\n",
            ".csv",
            "SKIPCOLS=1",
            {1, 3},
            {2, 4},
            ""},
           {"line ends in quotes",
            "\"T\nX\",A,B\n\"x\ny\n\nz\",1,2\n\"\",3,4\n",
            ".csv",
            "SKIPCOLS=1",
            {1, 3},
            {2, 4},
            ""},
           {"missing cells",
            "A,B\n1,\nNA,4\n n/a ,.\n**,\"\"\n",
            ".csv",
            "",
            {1, M, M, M},
            {M, 4, M, M},
            " ...NOTE..MISSING DATA WERE READ (SET SKIPMISS SKIPS SUCH OBSERVATIONS):\n  A 3  B "
            "3\n"},
           {"decimal commas",
            "A;B\n0,435;1\n-2,5;1,5E2\n",
            ".csv",
            "",
            {0.435, -2.5},
            {1, 150},
            "PARTED BY SEMICOLON, DECIMAL COMMA"},
           {"decimal points between semicolons",
            "A;B\n0.5;1\n2.5;2\n",
            ".csv",
            "",
            {0.5, 2.5},
            {1, 2},
            "PARTED BY SEMICOLON, DECIMAL POINT"},
           {"decimal commas in quotes",
            "A,B\n\"1,5\",2\n\"3,25\",4\n",
            ".csv",
            "",
            {1.5, 3.25},
            {2, 4},
            "PARTED BY COMMA, DECIMAL COMMA"},
           {"decimal commas between tabs",
            "A\tB\n1,5\t2\n3,25\t4\n",
            ".tsv",
            "",
            {1.5, 3.25},
            {2, 4},
            "PARTED BY TAB, DECIMAL COMMA"},
           {"tabs in a .csv", "A\tB\n1\t\n3\t4\n", ".csv", "", {1, 3}, {M, 4}, "PARTED BY TAB"},
           {"bars", "A|B\n1|2\n3|4\n", ".csv", "", {1, 3}, {2, 4}, "PARTED BY |"},
           {"the separator named",
            "sep=;\nA;B\n1;2\n3;4\n",
            ".csv",
            "",
            {1, 3},
            {2, 4},
            "PARTED BY SEMICOLON, DECIMAL POINT, NAMES IN LINE 2\n"},
           {"separators at the end of all lines",
            "A,B,\n1,2,\n3,4,\n",
            ".csv",
            "",
            {1, 3},
            {2, 4},
            ""},
           {"the same without one behind the names",
            "A,B\n1,2,\n3,4,\n",
            ".csv",
            "",
            {1, 3},
            {2, 4},
            ""},
           {"blank lines and empty rows at the end",
            "A,B\n1,2\n3,4\n,\n\n,\n",
            ".csv",
            "",
            {1, 3},
            {2, 4},
            ": EMPTY ROWS AT THE END ARE LEFT OUT\n"},
           {"no line end at the end", "A,B\n1,2\n3,4", ".csv", "", {1, 3}, {2, 4}, ""},
           {"a title over the names",
            "Source: me\n\nA,B\n1,2\n3,4\n",
            ".csv",
            "SKIPLINE=2",
            {1, 3},
            {2, 4},
            "NAMES IN LINE 3"},
           {"a row of units", "A,B\n%,USD\n1,2\n3,4\n", ".csv", "SKIPROWS=1", {1, 3}, {2, 4}, ""},
           {"dates in front",
            "date,A,B\n1990-01-01,1,2\n1990-04-01,3,4\n",
            ".csv",
            "SKIPCOLS=1",
            {1, 3},
            {2, 4},
            ""},
           {"Latin-1 names and labels",
            "L\xE4nder,A,B\nM\xFCnchen,1,2\n\xD6sterreich,3,4\n",
            ".csv",
            "SKIPCOLS=1",
            {1, 3},
            {2, 4},
            ""},
           {"text behind",
            "A,B,NAME\n1,2,Ohio\n3,4,\"New York, NY\"\n",
            ".csv",
            "CHARVARS=1",
            {1, 3},
            {2, 4},
            " ...NOTE..1 WORDS OF TEXT WERE CUT TO 8 CHARACTERS\n"},
           {"exponents and infinities",
            "A,B\n1E2,-inf\n2D-1,+3\n",
            ".csv",
            "",
            {100, 0.2},
            {-INFINITY, 3},
            ""},
           {"another name, the form by option", plain, ".dat", "FORMAT=COMMA", {1, 3}, {2, 4}, ""},
       }) {
    const DataFile file(c.text, c.tail);
    const Listing out = run_commands(file.read("/ NAMES EOF " + c.options));
    EXPECT_EQ(values("A"), c.a) << c.what << out.text;
    EXPECT_EQ(values("B"), c.b) << c.what << out.text;
    EXPECT_EQ(out.status, 0) << c.what << out.text;
    EXPECT_TRUE(holds(out, c.says)) << c.what << out.text;
    if (c.what == std::string("text behind")) {
      EXPECT_EQ(text_of("NAME"), "Ohio    New York");
    }
  }
}

TEST(Cells, RealLifeIsRefusedWithAdvice) {
  struct Case {
    std::string text;
    const char* options;
    const char* line;
    const char* advice;
  };
  for (const Case& c : {
           Case{"A,B\n1,2\n3\n", "", " LINE 3: 2 CELLS EXPECTED, 1 FOUND\n", ""},
           {"A,B\n1,2\n3,4,5\n", "", " LINE 3: 2 CELLS EXPECTED, 3 FOUND\n",
            "MUST STAND IN QUOTES"},
           {"A,B\n1,2\n3,0,435\n", "", " LINE 3: 2 CELLS EXPECTED, 3 FOUND\n",
            "MUST STAND IN QUOTES"},
           {"A,B\nx,1,2\ny,3,4\n", "", " LINE 2: 2 CELLS EXPECTED, 3 FOUND\n",
            "EVERY COLUMN NEEDS A NAME"},
           {"Title\nA,B\n1,2\n", "", " LINE 2: 1 CELLS EXPECTED, 2 FOUND\n", "SKIPLINE=n"},
           {"A,Price\n1,2\n3,4x\n", "", " LINE 3 COLUMN PRICE: CELL 4x IS NOT A NUMBER\n",
            "CHARVARS=1"},
           {"A,B\n1,%\n1,2\n", "", " LINE 2 COLUMN B: CELL % IS NOT A NUMBER\n", "SKIPROWS=1"},
           {"A,B\n1,2%\n", "", "CELL 2% IS NOT", "PER CENT AND CURRENCY"},
           {"A,B\n1,$2.50\n", "", "CELL $2.50 IS NOT", "PER CENT AND CURRENCY"},
           {"A,B\n1,\xE2\x82\xAC"
            "2\n",
            "", "IS NOT A NUMBER", "PER CENT AND CURRENCY"},
           {"A,B\n1,\"1,234\"\n", "", "CELL 1,234 IS NOT", "SEPARATORS OF THOUSANDS"},
           {"A,B\n1,\"1,234.5\"\n", "", "CELL 1,234.5 IS NOT", "SEPARATORS OF THOUSANDS"},
           {"A;B\n0,5;1.234\n", "", "CELL 1.234 IS NOT", "SEPARATORS OF THOUSANDS"},
           {"A;B\n0.5;1,234\n1.5;2\n", "", "CELL 0.5", ""},
           {"A,B\n1,(5)\n", "", "CELL (5) IS NOT", "MINUS SIGN"},
           {"date,A\n1990-01-01,1\n", "", "COLUMN DATE: CELL 1990-01-01 IS",
            "FIRST COLUMN OF DATES"},
           {"region,A\nOhio,1\n", "", "COLUMN REGION: CELL Ohio IS", "SKIPCOLS=1"},
           {"A,B,C\n1,2,3\n1,#N/A,3\n", "", "COLUMN B: CELL #N/A IS", "A MISSING VALUE IS"},
           {"A B\n1 2\n", "", "CELL 1 2 IS NOT", "FORMAT=FREE"},
           {"1.5,2\n3,4\n", "", " LINE 1: THE ROW OF NAMES HOLDS NUMBERS\n", "LIST THE VARIABLES"},
           {"A,B\n1,\"2\n3,4\n", "", "COLUMN B: CELL", "A QUOTE IS OPENED"},
           {"T,A\n\"x,1\n\"y,2\n", "SKIPCOLS=1", "2 CELLS EXPECTED", "A QUOTE IS OPENED"},
           {std::string("A\0,\0B\0\n\0001\0,\0002\0\n", 14), "", " IS NOT PLAIN TEXT\n", "UTF-8"},
           {"A\n0,435\n", "", " LINE 2: 1 CELLS EXPECTED, 2 FOUND\n", "SEMICOLONS MUST PART"},
           {"\n\n", "", " ...ERROR..NO DATA FOUND\n", ""},
           {"A,B\n", "", " ...ERROR..NO DATA FOUND\n", ""},
       }) {
    const DataFile file(c.text);
    const Listing out = run_commands(file.read(std::string("/ NAMES EOF ") + c.options));
    if (std::string(c.line) == "CELL 0.5") {  // both marks: the comma is the decimal mark
      EXPECT_EQ(values("B"), (V{1.234, 2})) << out.text;
      continue;
    }
    EXPECT_TRUE(holds(out, c.line)) << c.text << out.text;
    EXPECT_TRUE(holds(out, c.advice)) << c.text << out.text;
    EXPECT_EQ(out.status, 1) << c.text << out.text;
  }
  const DataFile file("A,B\n1,2\n");
  EXPECT_TRUE(holds(run_commands(file.read("X Y / EOF")), " ...NOTE..THE NAMES OPTION TAKES"));
  EXPECT_TRUE(
      holds(run_commands(file.read("X Y / EOF BYVAR")), " ...ERROR..INCOMPATIBLE OPTIONS\n"));
  EXPECT_TRUE(holds(run_commands(file.read("/ NAMES EOF CHARVARS=3")),
                    " ...ERROR..CHARVARS=3 BUT 2 VARIABLES ARE READ\n"));
  const DataFile years("2019,2020\n1,2\n");
  EXPECT_TRUE(holds(run_commands(years.read("/ NAMES EOF")),
                    " ...WARNING..THE ROW OF NAMES HOLDS NUMBERS ONLY: 2019 BECOMES X2019\n"));
  const DataFile blanks("1,,3\n", ".txt");
  EXPECT_TRUE(holds(run_commands(blanks.read("X Y / EOF")), "WHICH ONLY FORMAT=COMMA READS\n"));
}

TEST(Cells, NamesAreMadeFit) {
  const DataFile file("gross domestic,gross domes.2,2020,\"\",,GROSSDOM,x-1,ok\n1,2,3,4,5,6,7,8\n");
  const Listing out = run_commands(file.read("/ NAMES EOF"));
  const char* const names[] = {"GROSSDOM", "GROSSDO2", "X2020", "NONAME__",
                               "NONAME_2", "GROSSDO3", "X1"};
  double n = 0;
  for (const char* name : names) EXPECT_EQ(values(name), (V{++n})) << name << out.text;
  EXPECT_EQ(NAME(workspace(), 1), "GROSSDOMESTIC");
  EXPECT_TRUE(holds(out, " gross domes.2 IS GROSSDO2\n")) << out.text;
  EXPECT_TRUE(holds(out, " (NO NAME) IS NONAME_2\n"));
  EXPECT_FALSE(holds(out, " IS OK\n"));
  std::string many = "V1";
  for (int i = 2; i <= 1001; ++i) many += ",V" + std::to_string(i);
  const DataFile wide(many + "\n");
  EXPECT_TRUE(holds(run_commands(wide.read("/ NAMES EOF")), " ALLOWS ONLY1000 VARIABLES\n"));
}

TEST(Cells, CompressedFiles) {
  if (std::system("gzip --version > /dev/null 2>&1") != 0) GTEST_SKIP();
  std::string text = "A,B\n";
  constexpr int N = 700000;  // unpacked above the size that is held in memory
  for (int i = 0; i < N; ++i) text += std::to_string(i) + ",-0.125\n";
  const DataFile file(text, "_big.csv");
  const std::string packed = file.name() + ".gz";
  ASSERT_EQ(std::system(("gzip -kf " + file.name()).c_str()), 0);
  const Listing out = run_commands("READ(" + packed + ") / NAMES EOF\n");
  const V a = values("A");
  ASSERT_EQ(a.size(), static_cast<std::size_t>(N)) << out.text;
  EXPECT_EQ(a[N - 1], N - 1);
  // Cut off, and changed in the middle: nothing of it is taken.
  struct stat st {};
  ASSERT_EQ(stat(packed.c_str(), &st), 0);
  ASSERT_EQ(truncate(packed.c_str(), st.st_size / 2), 0);
  const Listing cut = run_commands("READ(" + packed + ") / NAMES EOF\n");
  EXPECT_TRUE(holds(cut, ": the compressed file is damaged or cut off\n")) << cut.text;
  EXPECT_EQ(values("A"), (V{}));
  std::remove(packed.c_str());
}

#ifndef KORVEL_SANITIZED
std::int64_t status_kilobytes(const char* word) {
  std::ifstream in("/proc/self/status");
  std::string key;
  while (in >> key) {
    if (key == word)
      in >> key;
    else
      continue;
    return std::stoll(key);
  }
  return -1;
}

// Pages of a mapped file that has been gone over are given back: a text of 40 MB with 3 MB of data
// does not stay in memory.
TEST(Cells, LargeFilesDoNotFillTheMemory) {
  const DataFile file("A\n", "_long.csv");
  {
    std::ofstream out(file.name(), std::ios::binary | std::ios::app);
    const std::string row = "1." + std::string(97, '0') + "\n";
    for (int i = 0; i < 400000; ++i) out << row;
  }
  std::ofstream("/proc/self/clear_refs") << "5";  // the peak begins anew
  const std::int64_t before = status_kilobytes("VmHWM:");
  const Listing out = run_commands(file.read("/ NAMES EOF"));
  EXPECT_EQ(values("A").size(), 400000U) << out.text;
  EXPECT_LT(status_kilobytes("VmHWM:") - before, 24000);
}
#endif

// The converter is looked up along PATH like any program: one that copies its file stands for it.
TEST(Cells, Workbooks) {
  const std::string folder = "/tmp/korvel_convert_" + std::to_string(getpid());
  ASSERT_EQ(mkdir(folder.c_str(), 0700), 0);
  const std::string path = std::getenv("PATH");
  const DataFile book("A,B\n1,2\n", ".xlsx");
  ASSERT_EQ(setenv("PATH", folder.c_str(), 1), 0);
  const Listing absent = run_commands(book.read("/ NAMES EOF"));
  EXPECT_TRUE(holds(absent, " NEEDS THE PROGRAM xlsx2csv (PACKAGE xlsx2csv)\n")) << absent.text;
  const std::string program = folder + "/xlsx2csv";
  std::ofstream(program) << "#!/bin/sh\nexec /bin/cat \"$1\"\n";
  ASSERT_EQ(chmod(program.c_str(), 0700), 0);
  EXPECT_EQ(run_commands(book.read("/ NAMES EOF")).status, 0);
  EXPECT_EQ(values("B"), (V{2}));
  std::ofstream(program) << "#!/bin/sh\necho broken workbook >&2\nexit 1\n";
  const Listing broken = run_commands(book.read("/ NAMES EOF"));
  EXPECT_TRUE(holds(broken, " COULD NOT BE CONVERTED: broken workbook\n")) << broken.text;
  EXPECT_TRUE(holds(run_commands("READ(x.ods) / NAMES EOF\n"), "SAVE THE SHEET AS .csv"));
  EXPECT_TRUE(holds(run_commands(book.read("/ EOF")), "NO VARIABLES LISTED FOR XLS READ\n"));
  setenv("PATH", path.c_str(), 1);
  std::remove(program.c_str());
  rmdir(folder.c_str());
}

}  // namespace
}  // namespace korvel
