#include "platform/text_input.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/signals.h"

namespace korvel {
namespace {

constexpr std::string_view UTF8_MARK = "\xEF\xBB\xBF";

// A text that lies in memory as a whole: a mapped file or a string.
class WholeText : public TextInput {
 public:
  bool line(std::string_view& out) override {
    if (at_ >= text_.size()) return false;
    before_ = at_;
    const char* from = text_.data() + at_;
    const auto* end = static_cast<const char*>(std::memchr(from, '\n', text_.size() - at_));
    std::size_t n = end != nullptr ? static_cast<std::size_t>(end - from) : text_.size() - at_;
    at_ += n + (end != nullptr ? 1 : 0);
    if (n > 0 && from[n - 1] == '\r') --n;
    out = {from, n};
    ++number_;
    return true;
  }
  void unread() override {
    at_ = before_;
    --number_;
  }
  std::string_view rest() override { return text_.substr(at_); }
  void skip(std::size_t n, std::int64_t lines) override {
    at_ += n;
    before_ = at_;
    number_ += lines;
  }
  bool rewind() override {
    at_ = text_.substr(0, UTF8_MARK.size()) == UTF8_MARK ? UTF8_MARK.size() : 0;
    before_ = at_;
    number_ = 0;
    return true;
  }
  std::int64_t line_number() const override { return number_; }
  bool terminal() const override { return false; }
  bool whole() const override { return true; }

 protected:
  std::string_view text_;

 private:
  std::size_t at_ = 0, before_ = 0;
  std::int64_t number_ = 0;
};

class MemoryText : public WholeText {
 public:
  MemoryText(std::string text, std::string name) : own_(std::move(text)) {
    name_ = std::move(name);
    text_ = own_;
    rewind();
  }

 private:
  std::string own_;
};

class MappedText : public WholeText {
 public:
  MappedText(void* p, std::size_t n, std::string name) : map_(p), size_(n) {
    name_ = std::move(name);
    text_ = {static_cast<const char*>(p), n};
    rewind();
  }
  MappedText(const MappedText&) = delete;
  MappedText& operator=(const MappedText&) = delete;
  ~MappedText() override {
    if (map_ != nullptr) munmap(map_, size_);
  }

 private:
  void* map_;
  std::size_t size_;
};

// Pipes and terminals: bytes as they come, kept from the start of the last line on.
class StreamText : public TextInput {
 public:
  StreamText(int fd, bool own, std::string name) : fd_(fd), own_(own) { name_ = std::move(name); }
  StreamText(const StreamText&) = delete;
  StreamText& operator=(const StreamText&) = delete;
  ~StreamText() override {
    if (own_) close(fd_);
  }
  bool line(std::string_view& out) override {
    before_ = at_;
    std::size_t searched = at_;
    for (;;) {
      const auto end = hold_.find('\n', searched);
      if (end != std::string::npos) {
        deliver(out, end - at_);
        at_ = end + 1;
        return true;
      }
      searched = hold_.size();
      const std::size_t shift = before_;
      if (!more()) break;
      searched -= shift;
    }
    if (at_ >= hold_.size()) return false;
    deliver(out, hold_.size() - at_);
    at_ = hold_.size();
    return true;
  }
  void unread() override {
    at_ = before_;
    --number_;
  }
  std::string_view rest() override {
    before_ = at_;
    while (more()) {
    }
    return std::string_view(hold_).substr(at_);
  }
  void skip(std::size_t n, std::int64_t lines) override {
    at_ += n;
    before_ = at_;
    number_ += lines;
  }
  bool rewind() override { return false; }
  std::int64_t line_number() const override { return number_; }
  bool terminal() const override { return isatty(fd_) == 1; }

 private:
  void deliver(std::string_view& out, std::size_t n) {
    if (n > 0 && hold_[at_ + n - 1] == '\r') --n;
    out = std::string_view(hold_).substr(at_, n);
    if (number_ == 0 && out.substr(0, 3) == UTF8_MARK) out.remove_prefix(3);
    ++number_;
  }
  // Reads what is there, after dropping what lies before the kept line. False at the end.
  bool more() {
    if (ended_) return false;
    hold_.erase(0, before_);
    at_ -= before_;
    before_ = 0;
    const std::size_t have = hold_.size();
    constexpr std::size_t chunk = std::size_t{1} << 16;
    hold_.resize(have + chunk);
    ssize_t n = 0;
    do {
      n = read(fd_, hold_.data() + have, chunk);
    } while (n < 0 && errno == EINTR && !signal_received());
    hold_.resize(have + (n > 0 ? static_cast<std::size_t>(n) : 0));
    if (n < 0 && errno != EINTR) error_ = errno;
    ended_ = n == 0 || error_ != 0;  // a signal only interrupts the wait
    return n > 0;
  }

  int fd_;
  bool own_;
  bool ended_ = false;
  std::string hold_;
  std::size_t at_ = 0, before_ = 0;
  std::int64_t number_ = 0;
};

// Files up to this size are copied instead of mapped: a script may be saved by an editor while it
// runs, and touching a mapped page that has been cut off would end the program.
constexpr std::size_t COPIED = std::size_t{1} << 23;

std::unique_ptr<TextInput> copied_text(int fd, std::size_t n, const std::string& path) {
  std::string text(n, '\0');
  std::size_t done = 0;
  while (done < n) {
    const ssize_t got = read(fd, text.data() + done, n - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  close(fd);
  text.resize(done);
  return std::make_unique<MemoryText>(std::move(text), path);
}

}  // namespace

std::unique_ptr<TextInput> open_text(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st {};
  if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    close(fd);
    errno = EISDIR;
    return nullptr;
  }
  // Files that tell no size (those of /proc) are read as they come.
  if (!S_ISREG(st.st_mode) || st.st_size == 0) return std::make_unique<StreamText>(fd, true, path);
  const auto n = static_cast<std::size_t>(st.st_size);
  if (n <= COPIED) return copied_text(fd, n, path);
  void* p = mmap(nullptr, n, PROT_READ, MAP_PRIVATE, fd, 0);
  if (p == MAP_FAILED) return std::make_unique<StreamText>(fd, true, path);
  close(fd);
  return std::make_unique<MappedText>(p, n, path);
}

std::unique_ptr<TextInput> standard_text() {
  struct stat st {};
  if (fstat(0, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 && lseek(0, 0, SEEK_CUR) == 0) {
    const auto n = static_cast<std::size_t>(st.st_size);
    void* p = mmap(nullptr, n, PROT_READ, MAP_PRIVATE, 0, 0);
    if (p != MAP_FAILED) return std::make_unique<MappedText>(p, n, "-");
  }
  return std::make_unique<StreamText>(0, false, "-");
}

std::unique_ptr<TextInput> memory_text(std::string text, std::string name) {
  return std::make_unique<MemoryText>(std::move(text), std::move(name));
}

}  // namespace korvel
