// Children, the private folder and their safety.
#include "platform/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "platform/private_folder.h"
#include "platform/signals.h"

namespace {

using korvel::ChildEnd;
using korvel::ChildIo;
using korvel::run_child;
namespace fs = std::filesystem;

struct Heard {
  ChildEnd end;
  std::vector<std::string> lines;
};

Heard hear(const std::vector<std::string>& words, const std::string& input = {},
           std::size_t most = 1u << 30) {
  Heard heard;
  ChildIo io;
  io.input = input;
  io.line = [&](std::string_view line) {
    heard.lines.emplace_back(line);
    return heard.lines.size() < most;
  };
  heard.end = run_child(words, io);
  return heard;
}

double seconds_of(const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

TEST(Child, LinesComeInOrderAndArgumentsAreNoShellText) {
  const Heard heard = hear({"sh", "-c", "echo a; echo b >&2; printf 'c\\r\\n\\nlast'; exit 3"});
  EXPECT_EQ(heard.lines, (std::vector<std::string>{"a", "b", "c", "", "last"}));
  EXPECT_EQ(heard.end.status, 3);
  EXPECT_FALSE(heard.end.good());
  const Heard hostile = hear({"printf", "[%s]", "; echo x", "$(id)", "a\nb", "-n", "'\""});
  EXPECT_EQ(hostile.lines, (std::vector<std::string>{"[; echo x][$(id)][a", "b][-n]['\"]"}));
  const int own = open("/dev/null", O_RDONLY);        // as a host would have it: not close-on-exec
  const Heard files = hear({"ls", "/proc/self/fd"});  // the last one is the folder being listed
  EXPECT_EQ(files.lines, (std::vector<std::string>{"0", "1", "2", "3"}));
  close(own);
  EXPECT_TRUE(hear({"cat"}).lines.empty());  // /dev/null
}

TEST(Child, TalkLargerThanAnyPipeDoesNotLock) {
  std::string input;
  for (int i = 0; i < 200000; ++i) input += std::to_string(i) + "\n";
  const Heard heard = hear({"cat"}, input);
  ASSERT_EQ(heard.lines.size(), 200000u);
  EXPECT_EQ(heard.lines.back(), "199999");
  EXPECT_TRUE(heard.end.good());
  EXPECT_TRUE(hear({"true"}, input).end.good());  // a child that doesn't read
  std::size_t bytes = 0;
  for (const std::string& piece : hear({"head", "-c", "1000000", "/dev/zero"}).lines)
    bytes += piece.size();
  EXPECT_EQ(bytes, 1000000u);  // no line end at all
}

TEST(Child, ProgramsAreFoundOnlyInNamedFolders) {
  EXPECT_EQ(hear({"no-such-program-here"}).end.error, ENOENT);
  const std::string old = std::getenv("PATH");
  const fs::path here = fs::current_path(), folder = fs::temp_directory_path() / "korvel_planted";
  fs::create_directory(folder);
  std::ofstream(folder / "gpg") << "#!/bin/sh\necho planted\n";
  fs::permissions(folder / "gpg", fs::perms::owner_all);
  fs::current_path(folder);
  for (const char* path : {"", ".", ":.:", "./", "no/such:../korvel_planted"}) {
    setenv("PATH", path, 1);
    EXPECT_EQ(hear({"gpg"}).end.error, ENOENT) << path;
  }
  setenv("PATH", old.c_str(), 1);
  fs::current_path(here);
  fs::remove_all(folder);
}

TEST(Child, EndsOnDemandAndLeavesTheBackgroundAlone) {
  EXPECT_LT(seconds_of([] {
              const Heard heard = hear({"yes"}, {}, 100);
              EXPECT_EQ(heard.lines.size(), 100u);
              EXPECT_NE(heard.end.signal, 0);
            }),
            5);
  EXPECT_LT(seconds_of([] {
              EXPECT_EQ(hear({"sh", "-c", "sleep 30 & echo on"}).lines.size(), 1u);
              hear({"sh", "-c", "yes & echo on"});
            }),
            5);
  // A stop ends the child and what it has started, also what doesn't listen to SIGTERM.
  korvel::catch_signals();
  EXPECT_LT(
      seconds_of([] {
        const Heard heard = hear({"sh", "-c", "trap '' TERM; kill -TERM $PPID; sleep 30; echo no"});
        EXPECT_TRUE(heard.lines.empty());
        EXPECT_NE(heard.end.signal, 0);
      }),
      5);
  EXPECT_EQ(hear({"echo", "x"}).end.error, EINTR);  // and nothing more is started
  korvel::forget_signal();
}

TEST(Child, OutputFileIsPrivateAndNoLinkIsFollowed) {
  const fs::path folder = fs::temp_directory_path() / "korvel_output";
  fs::create_directory(folder);
  std::ofstream(folder / "victim") << "old";
  fs::create_symlink(folder / "victim", folder / "out");
  ChildIo io;
  io.output = (folder / "out").string();
  std::vector<std::string> said;
  io.line = [&](std::string_view line) { return said.emplace_back(line), true; };
  const std::vector<std::string> words{"sh", "-c", "echo data; echo trouble >&2"};
  EXPECT_TRUE(run_child(words, io).good());
  EXPECT_EQ(said, (std::vector<std::string>{"trouble"}));
  EXPECT_EQ(fs::file_size(folder / "victim"), 3u);
  EXPECT_FALSE(fs::is_symlink(folder / "out"));
  EXPECT_EQ(fs::status(folder / "out").permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  fs::remove_all(folder);
}

TEST(PrivateFolder, IsMadeOnceKeptFromOthersAndRemoved) {
  const fs::path parent = fs::temp_directory_path() / "korvel_parent";
  fs::remove_all(parent);
  fs::create_directory(parent);
  for (const char* name : {"", "../x", "a/b", ".", ".."}) {
    EXPECT_EQ(korvel::private_path(parent.string(), name), "") << name;
  }
  EXPECT_EQ(korvel::private_path((parent / "missing").string(), "x"), "");
  const fs::path file = korvel::private_path(parent.string() + "/", "x");
  ASSERT_FALSE(file.empty());
  EXPECT_EQ(fs::status(file.parent_path()).permissions(), fs::perms::owner_all);
  std::ofstream(file) << "secret";
  EXPECT_EQ(korvel::private_path("/elsewhere", "y"), file.parent_path() / "y");
  // Somebody puts a link in its place: it isn't used, and what it leads to isn't emptied.
  const fs::path moved = parent / "moved", victim = parent / "victim";
  fs::rename(file.parent_path(), moved);
  fs::create_directory(victim);
  std::ofstream(victim / "keep") << "keep";
  fs::create_directory_symlink(victim, file.parent_path());
  EXPECT_EQ(korvel::private_path(parent.string(), "x"), "");
  fs::remove(file.parent_path());
  fs::rename(moved, file.parent_path());
  EXPECT_EQ(korvel::private_path(parent.string(), "x"), file);
  korvel::remove_private_folder();
  EXPECT_FALSE(fs::exists(file.parent_path()));
  EXPECT_TRUE(fs::exists(victim / "keep"));
  // Removing, too, must not follow.
  const fs::path second = korvel::private_path(parent.string(), "x");
  fs::rename(second.parent_path(), moved);
  fs::create_directory_symlink(victim, second.parent_path());
  korvel::remove_private_folder();
  EXPECT_TRUE(fs::exists(victim / "keep"));
  fs::remove_all(parent);
}

}  // namespace
