// The file forms that carry variables whole: their bytes, the way there and back, and what damaged
// or hostile files do to the workspace.
#include <gtest/gtest.h>
#include <unistd.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

#include "data/containers.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
using korvel_test::values;
using V = std::vector<double>;

std::vector<std::uint64_t> bits(std::string_view name) {
  std::vector<std::uint64_t> all;
  for (const double x : values(name)) all.push_back(std::bit_cast<std::uint64_t>(x));
  return all;
}

// A folder for one test, in which the run stands.
class Containers : public testing::Test {
 protected:
  Containers() : old_(std::filesystem::current_path()) {
    char name[] = "/tmp/korvel_container_XXXXXX";
    folder_ = mkdtemp(name);
    std::filesystem::current_path(folder_);
  }
  ~Containers() override {
    std::filesystem::current_path(old_);
    std::filesystem::remove_all(folder_);
  }
  static void put(const std::string& name, const std::string& bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
  }
  static std::string bytes_of(const std::string& name) {
    std::ifstream in(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

 private:
  std::filesystem::path old_, folder_;
};

constexpr const char* SMALL_SERIES = "TIME 1980 4\nREAD X\n1.5 2.5 3.5\nEND\n";

std::string words(std::initializer_list<std::int32_t> numbers) {
  std::string s;
  for (const std::int32_t n : numbers) s.append(reinterpret_cast<const char*>(&n), 4);
  return s;
}
std::string reals(std::initializer_list<double> numbers) {
  std::string s;
  for (const double x : numbers) s.append(reinterpret_cast<const char*>(&x), 8);
  return s;
}
std::string frame(const std::string& record) {
  const std::string n = words({static_cast<std::int32_t>(record.size())});
  return n + record + n;
}
// The 280 bytes of a quarterly series of three elements.
std::string small_binary(int type = 1, int length = 3, int columns = 1) {
  std::string text(128, ' ');
  text[0] = 'X';
  return frame("KORVBIN ") +
         frame(words({1, 15, 16, 19, 0, 6, 7, 0, 16, -1, -1, 0, 0, 0, -1}) +
               words({type, length, columns, 1980, 1, 4, 0}) + text) +
         frame(reals({static_cast<double>(length), 1.5, 2.5, 3.5}));
}
constexpr const char* SMALL_TEXT =
    "KORVDATA\n"
    "   1  15  16  19   0   6   7   0  16\n"
    "TFFFFT\n"
    "       1       3       1    1980       1       4       0\n"
    "X\n"
    "1.5\n2.5\n3.5\n";

TEST_F(Containers, BytesOfASmallSeries) {
  const Listing out = run_commands(std::string(SMALL_SERIES) +
                                   "WRITE(a) X / KORVEL\nWRITE(b) X / BINARY\nWRITE X / DB\n"
                                   "FORMAT(3F5.1)\nWRITE(f) X / KORVEL FORMAT\nTIME 1980 1\n"
                                   "WRITE(d.dif) X / NAMES\n");
  EXPECT_EQ(out.status, 0) << out.text;
  EXPECT_EQ(bytes_of("a"), SMALL_TEXT);
  EXPECT_EQ(bytes_of("b"), small_binary());
  EXPECT_EQ(bytes_of("b").size(), 280U);
  EXPECT_EQ(bytes_of("X.DB"),
            "\"cCREATED BY KORVEL FOR  VARIABLE: X       \"\n   4\n 1980.01\n 1980.03\n"
            "1.5\n2.5\n3.5\n");
  EXPECT_EQ(bytes_of("f"),
            "KORVDATA\n   1  15  16  19   0   6   7   0  16\nFFFFTT\n"
            "       1       3       1    1980       1       4       0\nX       (3F5.1)\n"
            "  1.5  2.5  3.5\n");
  EXPECT_EQ(bytes_of("d.dif"),
            "TABLE\n0,1\n\"KORVEL\"\nVECTORS\n0,1\n\"\"\nTUPLES\n0,3\n\"\"\nDATA\n0,0\n\"\"\n"
            "-1,0\nBOT\n1,0\n\"X\"\n-1,0\nBOT\n0,1.5\nV\n-1,0\nBOT\n0,2.5\nV\n-1,0\nBOT\n0,3.5\nV\n"
            "-1,0\nEOD\n");
}

// Every form gives back what it was given, bit for bit; the forms that have no types give a matrix.
TEST_F(Containers, ThereAndBackBitForBit) {
  const V odd = {1.0,
                 -0.0,
                 0.1,
                 -99999,
                 std::numeric_limits<double>::denorm_min(),
                 -2.2250738585072009e-308,
                 std::numeric_limits<double>::max(),
                 std::numeric_limits<double>::infinity(),
                 -std::numeric_limits<double>::infinity(),
                 std::bit_cast<double>(std::uint64_t{0x7ff8000000000000}),
                 std::bit_cast<double>(std::uint64_t{0xfff8000000000123}),
                 std::bit_cast<double>(std::uint64_t{0x7ff0000000000001}),
                 1.0 / 3};
  std::vector<std::uint64_t> wanted;
  for (const double x : odd) wanted.push_back(std::bit_cast<std::uint64_t>(x));
  // The values come in through a binary file made here.
  std::string text(128, ' ');
  std::string data = reals({static_cast<double>(odd.size())});
  for (const double x : odd) data += reals({x});
  text[0] = 'O';
  put("odd", frame("KORVBIN ") +
                 frame(words({1, 15, 16, 19, 0, 6, 7, 0, 16, -1, -1, 0, 0, 0, -1}) +
                       words({1, static_cast<int>(odd.size()), 1, 1, 0, 1, 0}) + text) +
                 frame(data));
  struct Form {
    const char* write;
    const char* read;
  };
  for (const Form& f : {Form{"WRITE(t) O / BINARY\n", "READ(t) O / BINARY\n"},
                        {"WRITE(t) O / KORVEL\n", "READ(t) O / KORVEL\n"},
                        {"WRITE O / DB\n", "READ O / DB\n"},
                        {"SAVE O / FILE=s\n", "RESTORE(s) O\n"},
                        {"SAVE(s) / KORVEL\n", "RESTORE / FILE=s\n"}}) {
    const Listing out =
        run_commands(std::string("READ(odd) O / BINARY\n") + f.write + "DELETE O\n" + f.read);
    EXPECT_EQ(bits("O"), wanted) << f.write << out.text;
    EXPECT_EQ(out.status, 0) << out.text;
  }
  const char* matrices =
      "READ M / ROWS=2 COLS=3\n1 2 3\n4 -99999 6\nEND\nREAD S / SYMAT ROWS=3\n1\n2 3\n4 5 6\n"
      "END\nREAD T / TRIMAT ROWS=2\n7\n8 9\nEND\nFORMAT (5F10.3,' It''s')\n";
  for (const char* form : {"BINARY", "KORVEL"}) {
    const Listing out = run_commands(std::string(matrices) + "SAVE(all) / " + form +
                                     "\nDELETE / ALL_\nRESTORE(all)\n");
    EXPECT_EQ(values("M"), (V{1, 4, 2, -99999, 3, 6})) << out.text;
    EXPECT_EQ(values("S"), (V{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(values("T"), (V{7, 8, 9}));
    EXPECT_EQ(INFO(workspace(), VARNUM(workspace(), "M")).N2, 3);
    EXPECT_EQ(INFO(workspace(), VARNUM(workspace(), "S")).ITYPE, SYMMETRIC);
    EXPECT_EQ(INFO(workspace(), VARNUM(workspace(), "T")).ITYPE, TRIANGLE);
    EXPECT_EQ(stored_format(workspace(), "FORMAT$"), "(5F10.3,' It''s')");
    EXPECT_TRUE(holds(out, " VARIABLE S HAS BEEN SAVED\n")) << out.text;
    EXPECT_TRUE(holds(out, " VARIABLE FORMAT$ HAS BEEN RESTORED\n")) << out.text;
  }
  run_commands(std::string(matrices) +
               "WRITE M S T / DB\nDELETE M S T\nREAD M S T / DB\nWRITE(m.dif) M\n"
               "READ(m.dif) N / ROWS=2 COLS=3\n");
  EXPECT_EQ(values("M"), (V{1, 4, 2, -99999, 3, 6}));
  EXPECT_EQ(values("N"), values("M"));
  EXPECT_EQ(values("S"), (V{1, 2, 4, 2, 3, 5, 4, 5, 6}));
  EXPECT_EQ(values("T"), (V{7, 8, 0, 9}));
}

TEST_F(Containers, SinglePrecision) {
  const Listing out = run_commands(
      "READ X\n0.1 -99999 1E300\nEND\nWRITE(s) X / SBINARY\n"
      "READ(s) Y / BINARY\n");
  EXPECT_EQ(values("Y"), (V{0.1F, -99999, std::numeric_limits<double>::infinity()}));
  EXPECT_TRUE(holds(out, " ...WARNING..1 VALUES OF X ARE TOO LARGE FOR SINGLE PRECISION"))
      << out.text;
  EXPECT_EQ(bytes_of("s").size(), 16U + 224 + 8 + 8 + 3 * 4);
}

TEST_F(Containers, CalendarAndSample) {
  put("q", small_binary());
  run_commands("READ(q) X / BINARY\n");
  EXPECT_EQ(DATCOM.ITIME1, 1980);
  EXPECT_EQ(DATCOM.ITIME2, 1);
  EXPECT_EQ(DATCOM.ITIME3, 4);
  EXPECT_EQ(DATCOM.IEND, 3);
  run_commands("TIME 1970 12\nREAD(q) X / BINARY\n");
  EXPECT_EQ(DATCOM.ITIME1, 1970);
  put("m", small_binary(2, 3, 3));
  run_commands("READ(m) X / BINARY\n");
  EXPECT_EQ(DATCOM.ITIME2, 0) << "only series carry a calendar";
  EXPECT_LT(DATCOM.IEND, 1);
  // A range is dated from its own first observation on.
  run_commands(
      "TIME 1980 4\nREAD X\n1 2 3 4 5 6 7\nEND\nWRITE(r) X / BINARY BEG=6\nRESET\n"
      "READ(r) X / BINARY\n");
  EXPECT_EQ(values("X"), (V{6, 7}));
  EXPECT_EQ(DATCOM.ITIME1, 1981);
  EXPECT_EQ(DATCOM.ITIME2, 2);
}

TEST_F(Containers, ListsOrderAndTheOtherForm) {
  run_commands("READ A B / OBS=2\n1 2\n3 4\nWRITE(two) A B / BINARY\nWRITE(text) A B / KORVEL\n");
  struct Case {
    const char* read;
    V a, b;
  };
  for (const Case& c :
       {Case{"READ(two) X Y / BINARY\n", {1, 3}, {2, 4}},
        {"READ(text) X Y / BINARY\n", {1, 3}, {2, 4}},
        {"READ(two) X Y / KORVEL\n", {1, 3}, {2, 4}},
        {"READ(two) X / BINARY\nREAD(two) Y / BINARY NOREWIND\n", {1, 3}, {2, 4}},
        {"READ(two)\nGEN1 X=A:1\nGEN1 Y=B:2\n", {1}, {4}},
        {"RESTORE(text) B\nRENAME B Y\nREAD X\n0\nEND\n", {0}, {2, 4}},
        {"READ(two) X / BINARY BEG=2\nREAD(two) Y / BINARY OBS=1\n", {-99999, 1, 3}, {1}}}) {
    const Listing out = run_commands(std::string("SAMPLE 1 1\n") + c.read);
    EXPECT_EQ(values("X"), c.a) << c.read << out.text;
    EXPECT_EQ(values("Y"), c.b) << c.read << out.text;
  }
  std::string crlf;
  for (const char c : bytes_of("text")) crlf += c == '\n' ? "\r\n" : std::string(1, c);
  put("crlf", crlf);
  run_commands("READ(crlf) X Y\n");
  EXPECT_EQ(values("Y"), (V{2, 4}));
}

// Whatever is wrong with a file, the variable of that name stays as it was and nothing new appears.
TEST_F(Containers, DamagedFilesLeaveTheWorkspaceAlone) {
  const std::string good = small_binary(), text = SMALL_TEXT;
  std::vector<std::string> damaged = {"", "KORVBIN ", "no container", good.substr(0, 20)};
  for (std::size_t n = 16; n < good.size(); n += 11) damaged.push_back(good.substr(0, n));
  for (std::size_t n = 9; n + 5 < text.size(); n += 7) damaged.push_back(text.substr(0, n));
  for (const std::size_t at : {0U, 12U, 16U, 236U, 240U, 244U, 276U}) {  // frames and count
    damaged.push_back(good);
    damaged.back()[at] ^= 1;
  }
  for (const auto& [type, length, columns] : {std::array{0, 3, 1},
                                              {7, 3, 1},
                                              {1, 3, 3},
                                              {1, -3, 1},
                                              {2, 3, 2},
                                              {2, 3, 0},
                                              {3, 3, 1},
                                              {4, 3, 3},
                                              {1, 2147483647, 1},
                                              {2, 3, -1},
                                              {3, 3, 2147483647}}) {
    damaged.push_back(small_binary(type, length, columns));
    std::string t = text;
    char line[80];
    std::snprintf(line, sizeof line, "%8d%8d%8d", type, length < 0 ? -3 : length % 100000000,
                  columns % 100000000);
    t.replace(t.find("       1       3       1"), 24, line);
    damaged.push_back(t);
  }
  std::string bad = text;
  bad.replace(bad.find("2.5"), 3, "2.x");
  damaged.push_back(bad);
  for (const std::string& bytes : damaged) {
    put("bad", bytes);
    for (const char* read :
         {"READ(bad) X / BINARY\n", "READ(bad) NEW / KORVEL\n", "RESTORE(bad)\n"}) {
      const Listing out = run_commands(std::string("READ X\n7 8\nEND\n") + read, 64);
      EXPECT_EQ(values("X"), (V{7, 8})) << bytes << out.text;
      EXPECT_EQ(DATCOM.NVARS - DATCOM.NDL, 1) << bytes << read << out.text;
      EXPECT_EQ(out.status, 1) << bytes << read << out.text;
    }
  }
  put("bad", "nothing of the kind\n");
  EXPECT_TRUE(holds(run_commands("READ(bad) X / BINARY\n"), "\n NOT A KORVBIN FILE\n"));
  EXPECT_TRUE(holds(run_commands("READ(bad) X / KORVEL\n"), "\n NOT A KORVDATA FILE\n"));
}

TEST_F(Containers, DifFiles) {
  const std::string head =
      "TABLE\n0,1\n\"T\"\nVECTORS\n0,2\n\"\"\nTUPLES\n0,9\n\"\"\nDATA\n0,0\n\"\"\n";
  const std::string row = "-1,0\nBOT\n0,1.5E1\nV\n0,2\nV\n", end = "-1,0\nEOD\n";
  put("good.dif", head + "-1,0\nBOT\n1,0\n\"GDP\"\n1,0\n\"cpi 2\"\n" + row +
                      "-1,0\nBOT\n0,3\nNA\n1,0\n\"text\"\n" + end);
  const Listing out = run_commands("READ(good.dif) / NAMES\n");
  EXPECT_EQ(values("GDP"), (V{15, -99999})) << out.text;
  EXPECT_EQ(values("CPI2"), (V{2, -99999})) << out.text;
  EXPECT_TRUE(holds(out,
                    " ...NOTE..DIF FILE HAS   2 COLUMNS AND     2 ROWS\n"
                    " DIF FILE CONTAINS VARIABLES:\n"))
      << out.text;
  run_commands("READ(good.dif) A B\n");
  EXPECT_EQ(values("A"), (V{-99999, 15, -99999})) << "strings without NAMES are missing";
  EXPECT_TRUE(holds(run_commands("READ(good.dif) A B C\n"),
                    " ...ERROR..DIF FILE HAS    2 VARS, NOT    3 VARS"));
  struct Case {
    std::string text;
    const char* message;
  };
  for (const Case& c : {Case{"TABLE\n0,1\n", "NEAR LINE     2"},
                        {head + "0,1\nV\n" + end, "NEAR LINE    14"},
                        {head + row + "-1,0\nBOT\n0,1\nV\n" + end, "NEAR LINE    24"},
                        {head + "-1,0\nBOT\n0,1.2.3\nV\n0,2\nV\n" + end, "NEAR LINE    16"},
                        {head + row, "NEAR LINE    18"},
                        {head + end, "NO DATA FOUND"}}) {
    put("bad.dif", c.text);
    const Listing bad = run_commands("READ A\n7\nEND\nREAD(bad.dif) A B\n");
    EXPECT_TRUE(holds(bad, c.message)) << c.text << bad.text;
    EXPECT_EQ(values("A"), (V{7}));
  }
}

TEST_F(Containers, Databanks) {
  std::filesystem::create_directory("bank");
  const std::string set = "SET BANKNAME=bank\n";
  const Listing wrote =
      run_commands(set + "TIME 1980.3 4\nREAD X Y\n1 2\n3 4\n5 6\nEND\nWRITE X Y / DB\n");
  EXPECT_EQ(wrote.status, 0) << wrote.text;
  EXPECT_NE(bytes_of("bank/Y.DB").find("\n   4\n 1980.03\n 1981.01\n2\n"), std::string::npos);
  // Aligned with the calendar that is in force; else the calendar is taken over.
  const Listing later = run_commands(set + "TIME 1980 4\nREAD X / DB\n");
  EXPECT_EQ(values("X"), (V{-99999, -99999, 1, 3, 5})) << later.text;
  EXPECT_TRUE(holds(later,
                    " FREQUENCY OF DATA IN  .DB FILE=   4\n"
                    "  .DB FILE CONTAINS DATA FROM 1980.  3 TO 1981.  1\n"))
      << later.text;
  run_commands(set + "READ Y / DB\n");
  EXPECT_EQ(values("Y"), (V{2, 4, 6}));
  EXPECT_EQ(DATCOM.ITIME2, 3);
  for (const char* time : {"TIME 1980 12\n", "TIME 1981 4\n"}) {
    const Listing out = run_commands(set + time + "READ X / DB\n");
    EXPECT_TRUE(holds(out, " ...ERROR..DB FILE INCONSISTENT WITH TIME COMMAND")) << out.text;
    EXPECT_EQ(VARNUM(workspace(), "X"), 0);
  }
  // Dates in one and two decimals; observations; matrices; faults with their lines.
  struct Case {
    const char* text;
    V x;
    const char* said;
  };
  for (const Case& c :
       {Case{"\"c\n4\n1980.1\n1980.4\n1 2 3 4\n", {1, 2, 3, 4}, "FROM 1980.  1 TO 1980.  4"},
        {"\"c\n12\n1980.1\n1981.01\n1 2\n3 NA\n", {1, 2, 3, -99999}, "FROM 1980. 10 TO 1981.  1"},
        {"\"c\r\n   0\r\n 3.00\r\n 4.00\r\n1\r\n2\r\n",
         {-99999, -99999, 1, 2},
         "  .DB FILE CONTAINS OBSERVATIONS FROM    3 TO     4"},
        {"\"c\"\n2\n3\n1 2 3 4 5 6\n",
         {1, 2, 3, 4, 5, 6},
         " .DB FILE CONTAINS MATRIX WITH    2 ROWS AND   3 COLUMNS"},
        {"\"c\nx\n", {}, "READ ERROR IN .DB FILE AT LINE     2"},
        {"\"c\n4\n1980.5\n1981.1\n1\n", {}, "READ ERROR IN .DB FILE AT LINE     3"},
        {"\"c\n4\n1980.1\n1979.1\n1\n", {}, "READ ERROR IN .DB FILE AT LINE     4"},
        {"\"c\n0\n1.00\n3.00\n1\n2\nx y z\n", {}, "READ ERROR IN .DB FILE AT LINE     7"},
        {"\"c\n0\n1.00\n999999999.00\n1\n2\n", {}, "READ ERROR IN .DB FILE AT LINE     4"},
        {"\"c\n99999\n99999999\n1\n", {}, "READ ERROR IN .DB FILE AT LINE     3"},
        {"\"cCREATED BY KORVEL FOR  VARIABLE: Z       \"\n0\n1.\n1.\n5\n",
         {},
         "\n WRONG VARIABLE IN DATABANK\n"}}) {
    put("bank/x.db", c.text);
    std::filesystem::remove("bank/X.DB");
    const Listing out = run_commands(set + "READ X / DB\n");
    EXPECT_EQ(values("X"), c.x) << c.text << out.text;
    EXPECT_TRUE(holds(out, c.said)) << c.text << out.text;
  }
}

TEST_F(Containers, NamesAreLoadedAtFirstUse) {
  run_commands("READ X Y\n1 2\n3 4\nEND\nWRITE X Y / DB\nWRITE(OLD.DB) X / DB\n");
  const Listing on = run_commands("SET DB\nSAMPLE 1 2\nGENR Z=X+Y\nGENR X=5\nPRINT X / NONAMES\n");
  EXPECT_EQ(values("Z"), (V{3, 7})) << on.text;
  EXPECT_EQ(values("X"), (V{5, 5}));
  // The target of a formula is not loaded, nor anything while the switch is off or under scan.
  run_commands("SET DB\nSAMPLE 1 1\nGENR Y=8\n");
  EXPECT_EQ(values("Y"), (V{8}));
  EXPECT_EQ(run_commands("SAMPLE 1 2\nPRINT X\n").status, 1);
  const Listing scan = run_commands("SET DB\nSAMPLE 1 2\nPRINT NOTHERE\nPRINT X\n");
  EXPECT_EQ(VARNUM(workspace(), "X"), 0) << scan.text;
  // No name leads out of the folder.
  for (const char* name : {"../X", "/tmp/X", "A/../X", "", "X\n"}) {
    EXPECT_EQ(load_from_databank(workspace(), name), 0) << name;
  }
}

TEST_F(Containers, SaveKeepsTheOldFileAndRestoreTheRest) {
  run_commands("READ X\n1 2\nEND\nSKIPIF (X.GT.1)\nSAVE\nDELETE / ALL\n");
  const std::string saved = bytes_of("KORVEL.SAV");
  EXPECT_EQ(saved.size(), 16U + 224 + 8 + 8 + 16) << "SKIP$ is not saved";
  // Nothing to save: an error, and the file stands.
  EXPECT_EQ(run_commands("SAVE\n").status, 1);
  EXPECT_EQ(bytes_of("KORVEL.SAV"), saved);
  const Listing out = run_commands("READ X\n5 6 7\nEND\nRESTORE\nRESTORE Y\n");
  EXPECT_EQ(values("X"), (V{1, 2})) << out.text;
  EXPECT_TRUE(holds(out, " VARIABLE X HAS BEEN RESTORED\n")) << out.text;
  EXPECT_TRUE(holds(out, " HAS NO VARIABLE Y\n")) << out.text;
}

TEST_F(Containers, Snapshot) {
  run_commands("READ X\n1 2\nEND\nSET NOWARN BYVAR\n");
  FCOM.SSE = 2.5;
  temporary(temporary_place("R2")) = 0.75;
  ASSERT_TRUE(write_snapshot("snap"));
  run_commands("READ X\n1\nEND\n");
  FCOM.SSE = 0;
  ASSERT_TRUE(read_snapshot("snap"));
  EXPECT_FALSE(OSCOM.OWARN);
  EXPECT_TRUE(OSCOM.OBYV);
  EXPECT_EQ(FCOM.SSE, 2.5);
  EXPECT_EQ(temporary(temporary_place("R2")), 0.75);
  put("snap", bytes_of("snap").substr(1));
  OSCOM.OBYV = false;
  EXPECT_FALSE(read_snapshot("snap"));
  EXPECT_FALSE(OSCOM.OBYV);
}

}  // namespace
}  // namespace korvel
