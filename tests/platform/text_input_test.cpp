// Text sources must give the same lines whatever they come from.
#include "platform/text_input.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "platform/parallel.h"

namespace korvel {
namespace {

struct Seen {
  std::string line;
  std::int64_t number;
  bool operator==(const Seen&) const = default;
};

// All lines; every third one is taken back and read again.
std::vector<Seen> lines_of(TextInput& source) {
  std::vector<Seen> seen;
  std::string_view line;
  int n = 0;
  while (source.line(line)) {
    if (++n % 3 == 0) {
      source.unread();
      if (!source.line(line)) break;
    }
    seen.push_back({std::string(line), source.line_number()});
  }
  return seen;
}

std::unique_ptr<TextInput> through_pipe(const std::string& path, const std::string& text,
                                        std::thread& writer) {
  unlink(path.c_str());
  EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
  writer = std::thread([path, text] {
    std::ofstream out(path, std::ios::binary);
    for (std::size_t at = 0; at < text.size(); at += 7) {
      out << text.substr(at, 7);
      out.flush();
    }
  });
  return open_text(path);
}

TEST(TextInput, AllSourcesGiveTheSameLines) {
  std::mt19937 random(3);
  const std::string path = "/tmp/korvel_text_" + std::to_string(getpid());
  for (int round = 0; round < 60; ++round) {
    std::string text = round % 4 == 0 ? "\xEF\xBB\xBF" : "";
    for (auto k = random() % 300; k > 0; --k) text += "ab\n\r \nx"[random() % 7];
    auto memory = memory_text(text, "memory");
    const auto expected = lines_of(*memory);
    std::ofstream(path, std::ios::binary) << text;
    auto mapped = open_text(path);
    ASSERT_NE(mapped, nullptr);
    EXPECT_EQ(lines_of(*mapped), expected);
    EXPECT_TRUE(mapped->rewind());
    EXPECT_EQ(lines_of(*mapped), expected);
    std::thread writer;
    auto pipe = through_pipe(path + ".fifo", text, writer);
    EXPECT_EQ(lines_of(*pipe), expected) << text;
    writer.join();
    // rest() and skip() leave the source behind what was taken.
    std::thread second;
    auto bulk = through_pipe(path + ".fifo", text, second);
    std::string_view line;
    if (bulk->line(line)) {
      const std::string rest(bulk->rest());
      const auto end = rest.find('\n');
      if (end != std::string::npos) {
        bulk->skip(end + 1, 1);
        std::vector<Seen> tail = lines_of(*bulk);
        EXPECT_EQ(tail, std::vector<Seen>(expected.begin() + 2, expected.end()));
      }
    }
    second.join();
  }
  unlink(path.c_str());
  unlink((path + ".fifo").c_str());
  EXPECT_EQ(open_text("/tmp"), nullptr);
  EXPECT_EQ(open_text("/no/such/file"), nullptr);
}

// A large file that loses its end while it is read: the lines that are left are whole, the reading
// comes to an end, and the source tells it. So does a file that loses less than a page.
TEST(TextInput, CutOffWhileRead) {
  const std::string path = "/tmp/korvel_cut_" + std::to_string(getpid());
  const std::string row = "12345678 12345678\n";
  std::string text;
  while (text.size() < (std::size_t{9} << 20)) text += row;
  for (const std::size_t left : {row.size() * 20000, text.size() - 10}) {
    std::ofstream(path, std::ios::binary) << text;
    const auto source = open_text(path);
    ASSERT_NE(source, nullptr);
    EXPECT_EQ(source->error(), 0);
    std::string_view line;
    for (int i = 0; i < 10; ++i) ASSERT_TRUE(source->line(line));
    ASSERT_EQ(truncate(path.c_str(), static_cast<off_t>(left)), 0);
    std::size_t whole = 10;
    while (source->line(line))
      if (line == row.substr(0, row.size() - 1)) ++whole;
    EXPECT_EQ(whole, left / row.size());
    EXPECT_EQ(source->error(), EIO);
  }
  unlink(path.c_str());
}

TEST(Parallel, RunsEverySectionOnce) {
  for (const int sections : {0, 1, 2, 3, 17, 100}) {
    std::vector<int> ran(static_cast<std::size_t>(sections), 0);
    for (int round = 0; round < 50; ++round) {
      parallel_sections(sections, [&](int s) { ++ran[static_cast<std::size_t>(s)]; });
    }
    EXPECT_EQ(ran, std::vector<int>(static_cast<std::size_t>(sections), 50));
  }
}

}  // namespace
}  // namespace korvel
