// Units, enciphered files, and the pass phrase in every record of a run.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "engine/input.h"
#include "engine/output.h"
#include "engine/set.h"
#include "engine/units.h"
#include "harness.h"
#include "platform/child.h"

using korvel_test::holds;
using korvel_test::Listing;
using korvel_test::run_commands;
namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// A folder of its own as working folder.
class Files : public testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/korvel_files_XXXXXX";
    folder_ = mkdtemp(name);
    fs::current_path(folder_);
    fs::create_directory("tmp");
    setenv("TEMP", (folder_ / "tmp").c_str(), 1);
  }
  void TearDown() override {
    EXPECT_TRUE(fs::is_empty(folder_ / "tmp"));  // nothing of a run stays behind
    unsetenv("TEMP");
    fs::current_path(before_);
    std::error_code gone;  // the agent of gpg takes its own files away meanwhile
    fs::remove_all(folder_, gone);
  }
  fs::path folder_, before_ = fs::current_path();
};

TEST(PassPhrase, IsHiddenInEverySpellingAndNothingElseIs) {
  const struct {
    const char* line;
    const char* shown;
  } cases[] = {{"SET CRYPT=secret", "SET CRYPT=******"},
               {"set nowarn cr = \"my secret\" warn", "set nowarn cr = *********** warn"},
               {"SE CRYP='a b'", "SE CRYP=*****"},
               {"S CRYPTOGR=a=b,c WARN", "S CRYPTOGR=***** WARN"},
               {"IF(A.GT.1) SET CRY=x CRYPT=yy", "IF(A.GT.1) SET CRY=* CRYPT=**"},
               {"LAB: ?SET NOCRYPT=x", "LAB: ?SET NOCRYPT=*"},
               {"SET CRYPT=\"never closed", "SET CRYPT=****** closed"},
               {"SET CRYPT", "SET CRYPT"},
               {"SET CRYPT =", "SET CRYPT ="},
               {"SET CC C=1", "SET CC C=1"},
               {"GENR CRYPT=5", "GENR CRYPT=5"},
               {"SET MISSVALU=-1", "SET MISSVALU=-1"}};
  for (const auto& c : cases) {
    EXPECT_EQ(korvel::hide_pass_phrase(c.line), c.shown);
    EXPECT_EQ(korvel::holds_pass_phrase(c.line), std::string(c.line) != c.shown) << c.line;
  }
}

TEST_F(Files, PassPhraseIsInNoRecordOfARun) {
  const Listing run = run_commands(
      "FILE KEYBOARD keys\nFILE SCREEN screen\nSET LASTCOM CRYPT=&\n geheim\nPRINT C$\n"
      "DISPLAY CRYPT\nDO #=1,1\nSET CRYPT=geheim\nENDO\nSET NOWARN\n&\nCRYPT=geheim\n");
  EXPECT_EQ(run.status, 0) << run.text;
  EXPECT_TRUE(holds(run, "CRYPT     ********"));
  for (const std::string& text : {run.text, slurp("keys"), slurp("screen")}) {
    EXPECT_EQ(text.find("geheim"), std::string::npos) << text;
    EXPECT_EQ(text.find("GEHEIM"), std::string::npos) << text;
    EXPECT_NE(text.find("******"), std::string::npos) << text;
  }
}

TEST_F(Files, GpgRoundTripAndItsFailures) {
  if (korvel::find_program("gpg").empty()) GTEST_SKIP() << "gpg is not installed";
  setenv("GNUPGHOME", folder_.c_str(), 1);
  const std::string path = getenv("PATH");
  run_commands("DISPLAY WARN");  // the engine at its start
  korvel::OCOM.ODONT = false;
  const auto plain_file = [](const std::string& text) {
    const std::string name = korvel::private_file("fort.89");
    std::ofstream(name) << text;
    return name;
  };
  // 1. Without a pass phrase nothing is made, and the plain text goes all the same.
  std::string plain = plain_file("1 2 3\n");
  EXPECT_FALSE(korvel::encipher_file(plain, "-data;rm x.gpg"));
  EXPECT_FALSE(fs::exists(plain));
  EXPECT_FALSE(fs::exists("-data;rm x.gpg"));
  // 2. There and back, under a hostile name.
  korvel::word_setting("CRYPT") = "a 'b' \"c\" $(id)";
  plain = plain_file("1 2 3\n");
  ASSERT_TRUE(korvel::encipher_file(plain, "-data;rm x.gpg"));
  EXPECT_FALSE(fs::exists(plain));
  const std::string cipher = slurp("-data;rm x.gpg");
  EXPECT_GT(cipher.size(), 20u);
  EXPECT_EQ(cipher.find("1 2 3"), std::string::npos);
  EXPECT_FALSE(korvel::OCOM.OCRY);
  const std::string back = korvel::decipher_file("-data;rm x.gpg");
  ASSERT_FALSE(back.empty());
  EXPECT_EQ(slurp(back), "1 2 3\n");
  EXPECT_EQ(fs::status(back).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_TRUE(korvel::OCOM.OCRY);
  // 3. A wrong pass phrase, a missing file, no gpg: nothing comes out and the old file stands.
  korvel::word_setting("CRYPT") = "wrong";
  EXPECT_EQ(korvel::decipher_file("-data;rm x.gpg"), "");
  EXPECT_EQ(korvel::decipher_file("no such file"), "");
  setenv("PATH", "", 1);
  EXPECT_EQ(korvel::decipher_file("-data;rm x.gpg"), "");
  EXPECT_FALSE(korvel::encipher_file(plain_file("4"), "-data;rm x.gpg"));
  setenv("PATH", path.c_str(), 1);
  EXPECT_EQ(slurp("-data;rm x.gpg"), cipher);
  korvel::OCOM.OCRY = false;
  korvel::reset_settings();
  korvel::remove_private_files();
  unsetenv("GNUPGHOME");
}

TEST_F(Files, ScratchUnitsLieInThePrivateFolder) {
  run_commands("DISPLAY WARN");
  ASSERT_TRUE(korvel::open_scratch_unit(korvel::IOCOM.L8, 8));
  EXPECT_EQ(korvel::IOCOM.L8, 8);
  const fs::path path = korvel::unit_path(8);
  EXPECT_EQ(path.filename(), "KORV_8");
  EXPECT_EQ(fs::status(path.parent_path()).permissions(), fs::perms::owner_all);
  EXPECT_TRUE(fs::exists(path));
  korvel::release_units();
  korvel::remove_private_files();
  EXPECT_EQ(korvel::IOCOM.L8, -98);
}

TEST_F(Files, UnitsKeepTheirFilesWhenTheFolderChanges) {
  std::ofstream("d.dat") << "1\n2\n3\n";
  fs::create_directory("sub");
  std::ofstream("sub/d.dat") << "7\n8\n";
  const Listing run = run_commands(
      "FILE 11 d.dat\nREAD(11) A / OBS=1\nFILE CD sub\nREAD(11) B / OBS=1 NOREWIND\n"
      "READ(d.dat) C / OBS=1\nPRINT A B C / BEG=1 END=1\n");
  EXPECT_EQ(run.status, 0) << run.text;
  EXPECT_TRUE(holds(run, "1.000000       2.000000       7.000000")) << run.text;
  fs::current_path(folder_);
}

TEST_F(Files, WritesStayOutOfTheRunsOwnFilesAndPlantedLinks) {
  std::ofstream("victim") << "old";
  fs::create_symlink("victim", "fort.12");
  std::ofstream("in.kor") << "FILE OUTPUT in.kor\nSET NOSCAN\nFILE DELETE in.kor\nSET NOSCAN\n"
                             "FILE SCREEN in.kor\nSET NOSCAN\nSET OUTUNIT=12\nSET NOSCAN\n"
                             "FILE OUTPUT out.lst\nFILE SCREEN out.lst\nFILE DELETE sub\n";
  fs::create_directory("sub");
  const std::string script = slurp("in.kor");
  const Listing run = run_commands("FILE INPUT in.kor\n");
  EXPECT_EQ(slurp("in.kor"), script);
  EXPECT_EQ(slurp("victim"), "old");
  EXPECT_TRUE(holds(run, "OPEN ERROR ON UNIT12 ERROR=40 FILE=fort.12"));
  EXPECT_NE(slurp("out.lst").find("OUTPUT OF THIS RUN:out.lst"), std::string::npos);
  EXPECT_TRUE(fs::is_directory("sub"));
}

}  // namespace
