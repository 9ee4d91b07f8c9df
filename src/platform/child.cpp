// Children: posix_spawn with an argument list, pipes, and an orderly end.
#include "platform/child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <utility>
#include <vector>

#include "platform/signals.h"

namespace korvel {
namespace {

constexpr std::size_t CHUNK = std::size_t{1} << 16;
constexpr int POLL_MS = 50;      // how soon a stop or the end of a silent child is noticed
constexpr int PATIENCE = 1000;   // milliseconds from the request to end to the kill
constexpr long FIRST_NAP = 200;  // microseconds, doubled up to POLL_MS

// A descriptor, closed at the end.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~Descriptor() { reset(); }
  void reset() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  int get() const { return fd_; }
  bool open() const { return fd_ >= 0; }

 private:
  int fd_;
};

struct Pipe {
  Descriptor read, write;
};

// A pipe above the standard descriptors, so that setting those up in the child can't hit it.
bool make_pipe(Pipe& made) {
  int fd[2];
  if (pipe2(fd, O_CLOEXEC) != 0) return false;
  const Descriptor low_read(fd[0]), low_write(fd[1]);
  made.read = Descriptor(fcntl(fd[0], F_DUPFD_CLOEXEC, 3));
  made.write = Descriptor(fcntl(fd[1], F_DUPFD_CLOEXEC, 3));
  return made.read.open() && made.write.open();
}

// Actions and attributes of posix_spawn, freed at the end.
struct Spawn {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  Spawn() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  Spawn(const Spawn&) = delete;
  Spawn& operator=(const Spawn&) = delete;
  ~Spawn() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
};

// Where the child's standard descriptors come from; -1: this program's own.
struct Streams {
  int in = -1, out = -1, error = -1;
  bool null_in = false;
  bool own_group = true;  // a group of its own can be ended as a whole, but can't read the terminal
};

// The child's number, or -1 with *error.
pid_t spawn(std::span<const std::string> words, const Streams& io, int* error) {
  *error = ENOENT;
  if (words.empty()) return -1;
  const std::string file = find_program(words[0]);
  if (file.empty()) return -1;
  std::vector<char*> arguments;
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);

  Spawn s;
  if (io.null_in) posix_spawn_file_actions_addopen(&s.actions, 0, "/dev/null", O_RDONLY, 0);
  if (io.in >= 0) posix_spawn_file_actions_adddup2(&s.actions, io.in, 0);
  if (io.out >= 0) posix_spawn_file_actions_adddup2(&s.actions, io.out, 1);
  if (io.error >= 0) posix_spawn_file_actions_adddup2(&s.actions, io.error, 2);
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
  posix_spawn_file_actions_addclosefrom_np(&s.actions, 3);  // those of a host are not ours to mark
#endif
  sigset_t ordinary, none;
  sigemptyset(&none);
  sigemptyset(&ordinary);
  for (const int number : {SIGPIPE, SIGXFSZ, SIGINT, SIGTERM, SIGHUP}) sigaddset(&ordinary, number);
  posix_spawnattr_setsigdefault(&s.attributes, &ordinary);
  posix_spawnattr_setsigmask(&s.attributes, &none);
  posix_spawnattr_setpgroup(&s.attributes, 0);
  posix_spawnattr_setflags(&s.attributes,
                           static_cast<short>(POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK |
                                              (io.own_group ? POSIX_SPAWN_SETPGROUP : 0)));
  pid_t child = -1;
  *error = posix_spawn(&child, file.c_str(), &s.actions, &s.attributes, arguments.data(), environ);
  return *error == 0 ? child : -1;
}

std::int64_t milliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

void nap(long microseconds) {
  const timespec t{0, microseconds * 1000};
  nanosleep(&t, nullptr);
}

// Whether a child must end now. A Ctrl-C on the terminal has reached a child that reads there.
bool stop_child(bool shares_terminal) {
  const int number = signal_received();
  return number != 0 && !(shares_terminal && number == SIGINT);
}

constexpr int UNKNOWN_END =
    127 << 8;  // a host that reaps all children leaves no status: no success

// True when the child has ended.
bool ended_child(pid_t child, int* status) {
  const pid_t got = waitpid(child, status, WNOHANG);
  if (got < 0 && errno == ECHILD) *status = UNKNOWN_END;
  return got == child || (got < 0 && errno == ECHILD);
}

// Waits for a child, at most `patience` milliseconds (below 0: until it ends or a stop is asked
// for). False: it still runs.
bool wait_child(pid_t child, int patience, bool shares_terminal, int* status) {
  long pause = FIRST_NAP, waited = 0;
  for (;;) {
    if (ended_child(child, status)) return true;
    if (patience < 0 ? stop_child(shares_terminal) : waited > patience * 1000L) return false;
    nap(pause);
    waited += pause;
    pause = std::min(pause * 2, POLL_MS * 1000L);
  }
}

// Asks a child to end, then makes it.
void end_child(pid_t child, bool group, int* status) {
  const pid_t target = group ? -child : child;
  kill(target, SIGTERM);
  if (!wait_child(child, PATIENCE, false, status)) {
    kill(target, SIGKILL);
    waitpid(child, status, 0);
  } else if (group) {
    kill(target, SIGKILL);  // what the child had started and what has not listened
  }
}

// Cuts what comes through a pipe into lines.
class LineCutter {
 public:
  explicit LineCutter(const std::function<bool(std::string_view)>& sink) : sink_(sink) {}
  // False when the sink wants no more.
  bool take(std::string_view bytes) {
    while (!bytes.empty()) {
      const std::size_t end = bytes.find('\n');
      const std::string_view piece = bytes.substr(0, end);
      if (end == std::string_view::npos) {
        hold_.append(piece);
        // A line without an end is handed on in pieces, so that it can't fill the memory.
        return hold_.size() < CHUNK || finish();
      }
      if (hold_.empty()) {
        if (!send(piece)) return false;
      } else {
        hold_.append(piece);
        if (!finish()) return false;
      }
      bytes.remove_prefix(end + 1);
    }
    return true;
  }
  bool finish() {
    if (hold_.empty()) return true;
    const bool more = send(hold_);
    hold_.clear();
    return more;
  }

 private:
  bool send(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    return sink_(line);
  }
  const std::function<bool(std::string_view)>& sink_;
  std::string hold_;
};

// A conversation with a child over its pipes.
struct Talk {
  pid_t child;
  Descriptor& feed;
  std::string_view input;
  Descriptor& hear;
  LineCutter& lines;
  bool shares_terminal;
  std::int64_t until = 0;  // milliseconds of the steady clock, 0: no limit
  bool ended = false;
  int status = 0;
  bool late() const { return until != 0 && milliseconds() > until; }
};

// Feeds and hears a child until it closes its output or ends. What it wrote before its end fits the
// pipe (CHUNK bytes); whoever writes more is in the background. False: it is to be ended.
bool converse(Talk& talk) {
  std::array<char, CHUNK> bytes;
  std::size_t left = CHUNK;
  while (talk.hear.open() || talk.feed.open()) {
    if (stop_child(talk.shares_terminal) || talk.late()) return false;
    pollfd wait[2] = {{talk.hear.get(), POLLIN, 0}, {talk.feed.get(), POLLOUT, 0}};
    const int ready = poll(wait, 2, talk.ended ? 0 : POLL_MS);
    if (ready < 0) continue;  // a signal: looked at above
    if (talk.feed.open() && wait[1].revents != 0) {
      const ssize_t n = write(talk.feed.get(), talk.input.data(), talk.input.size());
      if (n > 0) talk.input.remove_prefix(static_cast<std::size_t>(n));
      if (talk.input.empty() || (n < 0 && errno != EAGAIN && errno != EINTR)) talk.feed.reset();
    }
    if (talk.hear.open() && wait[0].revents != 0) {
      const ssize_t n = read(talk.hear.get(), bytes.data(), std::min(bytes.size(), left));
      if (n > 0) {
        if (!talk.lines.take({bytes.data(), static_cast<std::size_t>(n)})) return false;
        if (talk.ended) left -= static_cast<std::size_t>(n);
      } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
        talk.hear.reset();
      }
    }
    if (talk.ended && (ready == 0 || left == 0)) break;
    if (!talk.ended) talk.ended = ended_child(talk.child, &talk.status);
  }
  return true;
}

std::vector<pid_t>& started() {
  static std::vector<pid_t> children;
  return children;
}

void reap_started() {
  std::erase_if(started(), [](pid_t child) { return waitpid(child, nullptr, WNOHANG) != 0; });
}

}  // namespace

// Folders of PATH that depend on the working folder are passed over: a "gpg" that lies among
// somebody's data must not be run.
std::string find_program(const std::string& word) {
  if (word.find('/') != std::string::npos) return word;
  const char* path = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
  std::string_view folders = path == nullptr ? "/usr/local/bin:/usr/bin:/bin" : path;
  while (!folders.empty() && !word.empty()) {
    const std::size_t end = folders.find(':');
    const std::string_view folder = folders.substr(0, end);
    if (!folder.empty() && folder[0] == '/') {
      std::string file = std::string(folder) + "/" + word;
      struct stat st {};
      if (stat(file.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(file.c_str(), X_OK) == 0) {
        return file;
      }
    }
    folders.remove_prefix(end == std::string_view::npos ? folders.size() : end + 1);
  }
  return {};
}

ChildEnd run_child(std::span<const std::string> words, const ChildIo& io) {
  ChildEnd end;
  reap_started();
  if (signal_received() != 0) return {.error = EINTR};
  // 1. The child's three streams.
  Pipe input, output;
  Descriptor file;
  Streams streams;
  streams.null_in = io.input.empty() && !io.inherit_input;
  streams.own_group = !io.inherit_input;
  if (!io.input.empty()) {
    if (!make_pipe(input)) return {.error = errno};
    fcntl(input.write.get(), F_SETFL, O_NONBLOCK);
    streams.in = input.read.get();
  }
  if (io.line) {
    if (!make_pipe(output)) return {.error = errno};
    fcntl(output.read.get(), F_SETFL, O_NONBLOCK);
    streams.out = streams.error = output.write.get();
  }
  if (!io.output.empty()) {
    unlink(io.output.c_str());
    file = Descriptor(open(io.output.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!file.open()) return {.error = errno};
    streams.out = file.get();
  }
  // 2. The child, and its ends of the pipes closed here, so that their close can be seen.
  const WriteSignalsOff quiet;
  const pid_t child = spawn(words, streams, &end.error);
  if (child < 0) return end;
  input.read.reset();
  output.write.reset();
  file.reset();
  // 3. Talk with it, then wait.
  LineCutter lines(io.line);
  const std::int64_t until = io.seconds > 0 ? milliseconds() + io.seconds * 1000L : 0;
  Talk talk{child, input.write, io.input, output.read, lines, io.inherit_input, until};
  bool live = converse(talk);
  input.write.reset();
  if (live && !talk.ended) {
    const int patience = until == 0 ? -1 : static_cast<int>(std::max(until - milliseconds(), 0L));
    live = talk.ended = wait_child(child, patience, io.inherit_input, &talk.status);
  }
  end.late = !live && talk.late();
  if (live) {
    lines.finish();
  } else if (!talk.ended) {
    end_child(child, streams.own_group, &talk.status);
  }
  const int status = talk.status;
  if (WIFEXITED(status)) end.status = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) end.signal = WTERMSIG(status);
  return end;
}

int start_child(std::span<const std::string> words) {
  reap_started();
  int error = 0;
  const pid_t child = spawn(words, {.null_in = true}, &error);
  if (child < 0) {
    errno = error;
    return -1;
  }
  started().push_back(child);
  return child;
}

void wait_for_children() {
  for (const pid_t child : started()) {
    int status = 0;
    if (!wait_child(child, -1, false, &status)) end_child(child, true, &status);
  }
  started().clear();
}

}  // namespace korvel
