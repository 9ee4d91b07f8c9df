// Runs gnuplot and looks at what it has made.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>
#include <system_error>
#include <vector>

#include "engine/output.h"
#include "engine/run.h"
#include "graphics/gnuplot.h"
#include "platform/child.h"
#include "platform/signals.h"

namespace korvel {
namespace {

constexpr int SECONDS = 60;                       // that gnuplot may take for one command
constexpr std::int64_t CLOCK_GRAIN = 20'000'000;  // nanoseconds by which file times may lag

std::int64_t nanoseconds(const timespec& t) {
  return std::int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

struct PictureKind {
  std::string_view suffix, start, end;
};
constexpr std::string_view PNG_START("\x89PNG\r\n\x1a\n", 8);
constexpr std::string_view PNG_END("IEND\xae\x42\x60\x82", 8);
constexpr std::array<PictureKind, 8> KINDS = {{{"png", PNG_START, PNG_END},
                                               {"gif", "GIF8", {}},
                                               {"jpg", "\xff\xd8", {}},
                                               {"svg", "<?xml", "</svg>"},
                                               {"pdf", "%PDF-", "%%EOF"},
                                               {"ps", "%!PS", {}},
                                               {"eps", "%!PS", {}},
                                               {"txt", {}, {}}}};

// The line of gnuplot's complaint that tells the cause: the one behind the mark of the place, which
// names file and line.
struct Complaint {
  std::string first, cause;
  void take(std::string_view line) {
    const std::string_view text = trimmed(line);
    if (text.empty() || text == "^") return;
    if (first.empty()) first = text;
    if (cause.empty() && text.find("line ") != std::string_view::npos) cause = text;
  }
};

}  // namespace

std::string gnuplot_program() {
  if (!RUNCOM.vgnu.empty()) {
    std::string own = RUNCOM.vgnu + "gnuplot";
    struct stat st {};
    if (stat(own.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(own.c_str(), X_OK) == 0) {
      return own.find('/') == std::string::npos ? "./" + own : own;
    }
  }
  return find_program("gnuplot");
}

std::int64_t written_at(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 ? nanoseconds(st.st_mtim) : -1;
}

std::int64_t clock_now() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return nanoseconds(now) - CLOCK_GRAIN;
}

std::string run_gnuplot(const std::string& command_file, const std::string& screen, bool stays) {
  // The settings of the user's own gnuplot are left aside: the picture is that of the command file.
  std::vector<std::string> words = {gnuplot_program(), "-d"};
  if (stays) words.emplace_back("-persist");
  words.push_back(command_file[0] == '-' ? "./" + command_file : command_file);
  Complaint complaint;
  ChildIo io;
  io.output = screen;
  io.seconds = SECONDS;
  io.line = [&](std::string_view line) {
    complaint.take(line);
    return true;
  };
  const ChildEnd end = run_child(words, io);
  if (signal_received() == SIGINT) {  // it was meant for the plot
    forget_signal();
    return "STOPPED";
  }
  if (end.late) return "GNUPLOT TOOK MORE THAN 60 SECONDS";
  if (end.error != 0) return std::generic_category().message(end.error);
  if (end.good()) return {};
  if (!complaint.cause.empty()) return complaint.cause;
  if (!complaint.first.empty()) return complaint.first;
  if (end.signal != 0) return "GNUPLOT WAS ENDED BY SIGNAL " + std::to_string(end.signal);
  return "GNUPLOT ENDED WITH STATUS " + std::to_string(end.status);
}

std::string picture_fault(const std::string& path, std::string_view kind, std::int64_t start) {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return "THERE IS NO FILE " + path;
  if (st.st_size == 0) return path + " IS EMPTY";
  if (nanoseconds(st.st_mtim) < start) return path + " IS AN OLDER FILE";
  for (const PictureKind& k : KINDS) {
    if (k.suffix != kind || !S_ISREG(st.st_mode)) continue;
    constexpr off_t tail = 64;
    std::array<char, tail> first{}, last{};
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::generic_category().message(errno);
    const ssize_t a = pread(fd, first.data(), first.size(), 0);
    const ssize_t b = pread(fd, last.data(), last.size(), std::max<off_t>(st.st_size - tail, 0));
    close(fd);
    const std::string_view head(first.data(), static_cast<std::size_t>(std::max<ssize_t>(a, 0)));
    const std::string_view foot(last.data(), static_cast<std::size_t>(std::max<ssize_t>(b, 0)));
    if (!head.starts_with(k.start) || foot.find(k.end) == std::string_view::npos) {
      return path + " IS NOT WHOLE";
    }
  }
  return {};
}

}  // namespace korvel
