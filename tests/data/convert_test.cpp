// CONVERT: bytes in, bytes out; what it refuses leaves every file as it was.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "harness.h"

namespace korvel {
namespace {

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;

class Convert : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/korvel_convert_XXXXXX";
    folder = mkdtemp(name);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder + "/" + name, std::ios::binary) << bytes;
  }
  std::string read(const std::string& name) const {
    std::ifstream in(folder + "/" + name, std::ios::binary);
    if (!in) return "(none)";
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  Listing convert(const std::string& in, const std::string& out, const std::string& tail) const {
    return run_commands("CONVERT " + folder + "/" + in + " " + folder + "/" + out + " " + tail);
  }
  std::string folder;
};

TEST_F(Convert, Lines) {
  struct Case {
    std::string in, options, out;
  };
  for (const Case& c : {
           Case{"a\nb\n", "", "a\nb\n"},
           {"a\r\nb\rc\n\nd", "", "a\r\nb\rc\n\nd"},
           {"a\r\nb\rc\n\nd", "/ TOUNIX", "a\nb\nc\n\nd\n"},
           {"a\r\nb\rc\n\nd", "/TOPC", "a\r\nb\r\nc\r\n\r\nd\r\n"},
           {"a\r\nb\n", "/ ADDCR", "a\r\nb\r\n"},
           {"a\r\nb\n", "/ TOMAC", "a\rb\r"},
           {"1\t2,3\n", "/ DELTAB", "1 2,3\n"},
           {"1\t2,3\n", "/ DELTAB DELCOM", "1 2 3\n"},
           {"say \"x\"\n\xC3\xA9\n", "/ ADDQUOTE", "\"say \"\"x\"\"\"\n\"\xC3\xA9\"\n"},
           {"1\n2\n3\n4\n5\n", "/ BEG=2 END=4", "2\n3\n4\n"},
           {"1\n2\n3\n4\n5\n", "/ SKIPLINE=1 LINES=2", "2\n3\n"},
           {"1\n2\n", "/ SKIPLINE=9", ""},
           {"", "/ TOPC", ""},
           {std::string("a\0b\n", 4), "/ TOUNIX", std::string("a\0b\n", 4)},
       }) {
    write("in.dat", c.in);
    const Listing out = convert("in.dat", "out.dat", c.options);
    EXPECT_EQ(out.status, 0) << out.text;
    EXPECT_EQ(read("out.dat"), c.out) << c.options;
  }
}

TEST_F(Convert, Pieces) {
  write("in.dat", "1\n2\n3\n4\n5\n");
  convert("in.dat", "part.dat", "/ FSPLIT LINES=2 BEG=2");
  EXPECT_EQ(read("part1.dat") + "|" + read("part2.dat") + "|" + read("part3.dat"),
            "2\n3\n|4\n5\n|(none)");
  convert("in.dat", "p", "/ FSPLIT LINES=4 SUFFIX=txt");
  EXPECT_EQ(read("p1.txt") + "|" + read("p2.txt"), "1\n2\n3\n4\n|5\n");
}

TEST_F(Convert, NamesWithBlanksAndUnits) {
  write("my data.txt", "1\r\n");
  const std::string in = "\"" + folder + "/my data.txt\"";
  EXPECT_EQ(run_commands("CONVERT " + in + ", '" + folder + "/new data' /TOUNIX").status, 0);
  EXPECT_EQ(read("new data"), "1\n");
  // Without FILE a unit n is the file fort.n of the working folder.
  const Listing none = run_commands("CONVERT / INUNIT=37 OUTUNIT=38");
  EXPECT_TRUE(holds(none, "DOES NOT EXIST:fort.37")) << none.text;
}

TEST_F(Convert, RefusesAndKeepsFiles) {
  write("in.dat", "new\n");
  write("old.dat", "old\n");
  std::filesystem::create_hard_link(folder + "/in.dat", folder + "/link.dat");
  struct Bad {
    std::string out, options, message;
  };
  for (const Bad& b :
       {Bad{"in.dat", "", " ...ERROR..OUTPUT FILE IS THE INPUT FILE:"},
        {"link.dat", "", " ...ERROR..OUTPUT FILE IS THE INPUT FILE:"},
        {"old.dat", "/ MSFLAHEY", " ...ERROR..OPTION MSFLAHEY IS NOT AVAILABLE ON THIS SYSTEM"},
        {"old.dat", "/ DELETE", " ...ERROR..OPTION DELETE IS NOT AVAILABLE ON THIS SYSTEM"},
        {"old.dat", "/ LABELROW=1", " ...ERROR..OPTION LABELROW IS NOT AVAILABLE ON THIS SYSTEM"},
        {"old.dat", "/ FORM=BINARY", " ...ERROR..OPTION FORM IS NOT AVAILABLE ON THIS SYSTEM"},
        {"old.dat", "/ TOPC TOUNIX", " ...ERROR..ONLY ONE OF TOUNIX, TOPC AND TOMAC MAY BE GIVEN"},
        {"old.dat", "/ BEG=3 END=2", " ...ERROR..BEG, END, LINES AND SKIPLINE ARE INCONSISTENT"},
        {"old.dat", "/ LINES=0", " ...ERROR..BEG, END, LINES AND SKIPLINE ARE INCONSISTENT"},
        {"old.dat", "/ FSPLIT", " ...ERROR..FSPLIT NEEDS LINES="},
        {"old.dat", "/ NOSUCH", " ...ERROR..INVALID OPTION..NOSUCH"},
        {"old.dat", "third.dat", " ...ERROR..SYNTAX ERROR"},
        {"none/x", "", " ...ERROR..OPEN ERROR ON UNIT"}}) {
    const Listing out = convert("in.dat", b.out, b.options);
    EXPECT_TRUE(holds(out, b.message)) << b.options << out.text;
    EXPECT_EQ(out.status, 1);
    EXPECT_EQ(read("in.dat") + read("old.dat"), "new\nold\n") << b.options;
  }
  EXPECT_TRUE(holds(convert("none.dat", "old.dat", ""), "FILE DOES NOT EXIST:"));
  EXPECT_TRUE(holds(run_commands("CONVERT"), " ...ERROR..INPUT AND OUTPUT FILE MUST BE GIVEN"));
  EXPECT_EQ(read("old.dat"), "old\n");
}

}  // namespace
}  // namespace korvel
