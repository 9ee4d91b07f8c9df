// Files being written: what stands under the name at any time, and what is left when it fails.
#include "platform/file_output.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace korvel {
namespace {

namespace fs = std::filesystem;

class FileOutputTest : public testing::Test {
 protected:
  FileOutputTest() {
    char name[] = "/tmp/korvel_out_XXXXXX";
    folder = mkdtemp(name);
  }
  ~FileOutputTest() override { fs::remove_all(folder); }
  std::string path(const std::string& name) const { return folder + "/" + name; }
  void make(const std::string& name, const std::string& text) const {
    std::ofstream(path(name), std::ios::binary) << text;
  }
  std::string text(const std::string& name) const {
    std::ifstream in(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }
  std::ptrdiff_t files() const {
    return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
  }
  std::string folder;
  FileOutput file;
};

TEST_F(FileOutputTest, TheOldFileStandsUntilTheNewOneIsComplete) {
  make("x", "old");
  fs::permissions(path("x"), fs::perms{0640});
  const std::string large(1000000, 'z');
  ASSERT_TRUE(file.open(path("x"), WriteMode::replace));
  file.write("new ");
  file.write(large);
  EXPECT_EQ(text("x"), "old");
  file.abandon();
  EXPECT_EQ(text("x"), "old");
  ASSERT_TRUE(file.open(path("x"), WriteMode::replace));
  file.write("new ");
  file.write(large);
  EXPECT_EQ(file.bytes(), 1000004U);
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(text("x"), "new " + large);
  EXPECT_EQ(fs::status(path("x")).permissions(), fs::perms{0640});
  ASSERT_TRUE(file.open(path("y"), WriteMode::replace));
  file.write("y");
  EXPECT_FALSE(fs::exists(path("y")));
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(text("y"), "y");
  EXPECT_EQ(files(), 2);
}

TEST_F(FileOutputTest, AppendIsCutBack) {
  for (const char* wanted : {"a", "aa"}) {
    ASSERT_TRUE(file.open(path("x"), WriteMode::append));
    file.write("a");
    EXPECT_TRUE(file.commit());
    EXPECT_EQ(text("x"), wanted);
  }
  ASSERT_TRUE(file.open(path("x"), WriteMode::append));
  file.write(std::string(500000, 'b'));
  file.abandon();
  EXPECT_EQ(text("x"), "aa");
  ASSERT_TRUE(file.open(path("none"), WriteMode::append));
  file.abandon();
  EXPECT_EQ(files(), 1);
}

TEST_F(FileOutputTest, LinksStayAndTheirTargetsAreReplaced) {
  fs::create_directory(path("deep"));
  make("deep/x", "old");
  fs::create_symlink("deep/x", path("link"));
  fs::create_symlink("link", path("second"));
  fs::create_symlink("deep/fresh", path("open"));
  fs::create_symlink("circle", path("circle"));
  for (const char* name : {"second", "open"}) {
    ASSERT_TRUE(file.open(path(name), WriteMode::replace));
    file.write("new");
    EXPECT_TRUE(file.commit());
    EXPECT_TRUE(fs::is_symlink(path(name)));
  }
  EXPECT_EQ(text("deep/x"), "new");
  EXPECT_EQ(text("deep/fresh"), "new");
  EXPECT_FALSE(file.open(path("circle"), WriteMode::replace));
  EXPECT_EQ(file.error(), ELOOP);
}

TEST_F(FileOutputTest, NamesThatCannotBeWritten) {
  make("x", "old");
  const struct {
    std::string name;
    int error;
  } cases[] = {{"", EISDIR},
               {"new/", ENOENT},
               {"no/folder", ENOENT},
               {"x/y", ENOTDIR},
               {std::string(256, 'n'), ENAMETOOLONG},
               {std::string(5000, 'n'), ENAMETOOLONG}};
  for (const WriteMode mode : {WriteMode::replace, WriteMode::append}) {
    for (const auto& c : cases) {
      EXPECT_FALSE(file.open(path(c.name), mode)) << c.name.substr(0, 20);
      const bool as_expected =
          file.error() == c.error || (c.name == "new/" && file.error() == EISDIR);
      EXPECT_TRUE(as_expected) << c.name.substr(0, 20) << ' ' << file.error();
    }
  }
  const std::string longest(255, 'n');
  ASSERT_TRUE(file.open(path(longest), WriteMode::replace));
  file.write("x");
  EXPECT_TRUE(file.commit());
  EXPECT_EQ(text(longest), "x");
}

TEST_F(FileOutputTest, FullDisk) {
  for (const char* device : {"/dev/full", "/dev/null"}) {
    ASSERT_TRUE(file.open(device, WriteMode::replace));
    file.write("x");
    EXPECT_EQ(file.commit(), std::string(device) == "/dev/null");
  }
  // A limit on the size of files stands for a disk that fills up on the way.
  make("x", "old");
  std::signal(SIGXFSZ, SIG_IGN);
  struct rlimit old {};
  getrlimit(RLIMIT_FSIZE, &old);
  struct rlimit small = old;
  small.rlim_cur = 100000;
  setrlimit(RLIMIT_FSIZE, &small);
  for (const WriteMode mode : {WriteMode::replace, WriteMode::append}) {
    ASSERT_TRUE(file.open(path("x"), mode));
    for (int i = 0; i < 100; ++i) file.write(std::string(20000, 'b'));
    EXPECT_FALSE(file.commit());
    EXPECT_EQ(file.error(), EFBIG);
    EXPECT_EQ(text("x"), "old");
  }
  setrlimit(RLIMIT_FSIZE, &old);
  std::signal(SIGXFSZ, SIG_DFL);
  EXPECT_EQ(files(), 1);
}

}  // namespace
}  // namespace korvel
