#include "platform/text_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/gzip.h"
#include "platform/mapped_file.h"
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
  MemoryText(std::string text, std::string name, int error = 0, std::string cause = {})
      : own_(std::move(text)) {
    name_ = std::move(name);
    error_ = error;
    cause_ = std::move(cause);
    text_ = own_;
    rewind();
  }

 private:
  std::string own_;
};

class MappedText : public WholeText {
 public:
  // The first n bytes of the open file; null when it can't be mapped.
  static std::unique_ptr<TextInput> of(int fd, std::size_t n, std::string name) {
    auto text = std::make_unique<MappedText>();
    if (!text->file_.map(fd, n)) return nullptr;
    text->name_ = std::move(name);
    text->cause_ = "another program cut it off while it was read";
    text->text_ = text->file_.text();
    text->rewind();
    return text;
  }
  int error() const override { return file_.cut_off() ? EIO : 0; }
  void release(std::string_view part) const override { file_.release(part); }

 private:
  MappedFile file_;
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
// runs, and must go on as it was when it was opened.
constexpr std::size_t COPIED = std::size_t{1} << 23;

std::unique_ptr<TextInput> copied_text(int fd, std::size_t n, const std::string& path) {
  std::string text(n, '\0');
  std::size_t done = 0;
  int error = 0;
  while (done < n) {
    const ssize_t got = read(fd, text.data() + done, n - done);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) error = errno;
    if (got <= 0) break;
    done += static_cast<std::size_t>(got);
  }
  close(fd);
  text.resize(done);
  return std::make_unique<MemoryText>(std::move(text), path, error);
}

// ---- Compressed files

std::string& unpack_folder() {
  static std::string folder = "/tmp";
  return folder;
}

bool write_all(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = write(fd, text.data(), text.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    text.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// The unpacked text: in memory up to the size of a copied file, beyond that in a file without a
// name, which is then mapped like any other.
std::unique_ptr<TextInput> unpacked_text(int fd, const std::string& path) {
  std::string text;
  int file = -1, error = 0;
  std::size_t size = 0;
  const GzipEnd end = gunzip(fd, [&](std::string_view piece) {
    if (signal_received() != 0) {
      error = EINTR;
      return false;
    }
    size += piece.size();
    text.append(piece);
    if (text.size() <= COPIED) return true;
    if (file < 0) file = open(unpack_folder().c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    const bool kept = file >= 0 && write_all(file, text);
    if (!kept) error = errno;
    text.clear();
    return kept;
  });
  if (end == GzipEnd::read_error) error = errno;
  close(fd);
  if (end == GzipEnd::unavailable) {
    return std::make_unique<MemoryText>(
        std::string(), path, ENOSYS,
        "it is compressed, and this program was built without zlib (package zlib1g-dev); "
        "unpack it with gunzip");
  }
  std::string cause;
  if (end == GzipEnd::damaged) {
    error = EIO;
    cause = "the compressed file is damaged or cut off";
  }
  if (end == GzipEnd::refused) {
    cause = std::generic_category().message(error) + " while it was unpacked in " + unpack_folder();
  }
  if (file < 0 || error != 0) {
    if (file >= 0) close(file);
    return std::make_unique<MemoryText>(std::move(text), path, error, cause);
  }
  const bool kept = write_all(file, text);
  if (!kept) error = errno;
  auto mapped = kept ? MappedText::of(file, size, path) : nullptr;
  if (kept && mapped == nullptr) error = errno;
  close(file);
  if (mapped == nullptr) return std::make_unique<MemoryText>(std::string(), path, error);
  return mapped;
}

// ---- UTF-16

void append_utf8(std::string& out, std::uint32_t c) {
  const auto byte = [&](std::uint32_t b) { out.push_back(static_cast<char>(b)); };
  if (c < 0x80) {
    byte(c);
  } else if (c < 0x800) {
    byte(0xC0 | c >> 6);
    byte(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    byte(0xE0 | c >> 12);
    byte(0x80 | (c >> 6 & 0x3F));
    byte(0x80 | (c & 0x3F));
  } else {
    byte(0xF0 | c >> 18);
    byte(0x80 | (c >> 12 & 0x3F));
    byte(0x80 | (c >> 6 & 0x3F));
    byte(0x80 | (c & 0x3F));
  }
}

// The text behind a UTF-16 mark as UTF-8. A half of a pair that stands alone becomes U+FFFD.
std::string utf8_of_utf16(std::string_view bytes) {
  const std::size_t high = bytes[0] == '\xFE' ? 0 : 1;  // place of the high byte in a pair
  const auto unit = [&](std::size_t i) {
    const auto at = [&](std::size_t k) {
      return std::uint32_t{static_cast<unsigned char>(bytes[k])};
    };
    return at(2 * i + high) << 8 | at(2 * i + 1 - high);
  };
  constexpr std::uint32_t LOST = 0xFFFD;
  const std::size_t n = bytes.size() / 2;
  std::string out;
  out.reserve(n + n / 8);
  for (std::size_t i = 1; i < n; ++i) {
    const std::uint32_t c = unit(i);
    if (c < 0xD800 || c > 0xDFFF) {
      append_utf8(out, c);
    } else if (c < 0xDC00 && i + 1 < n && unit(i + 1) >= 0xDC00 && unit(i + 1) <= 0xDFFF) {
      append_utf8(out, 0x10000 + ((c - 0xD800) << 10) + (unit(i + 1) - 0xDC00));
      ++i;
    } else {
      append_utf8(out, LOST);
    }
  }
  return out;
}

std::unique_ptr<TextInput> decoded(std::unique_ptr<TextInput> text) {
  const std::string_view mark = text->whole() ? text->rest().substr(0, 2) : std::string_view();
  if (mark != "\xFF\xFE" && mark != "\xFE\xFF") return text;
  const std::string path = text->name();
  return std::make_unique<MemoryText>(utf8_of_utf16(text->rest()), path, text->error());
}

}  // namespace

std::string TextInput::cause() const {
  return cause_.empty() ? std::generic_category().message(error_) : cause_;
}

void set_unpack_folder(const std::string& folder) { unpack_folder() = folder; }

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
  char magic[2] = {};
  if (pread(fd, magic, sizeof(magic), 0) == sizeof(magic) && gzip_magic({magic, sizeof(magic)})) {
    return decoded(unpacked_text(fd, path));
  }
  const auto n = static_cast<std::size_t>(st.st_size);
  if (n <= COPIED) return decoded(copied_text(fd, n, path));
  auto mapped = MappedText::of(fd, n, path);
  if (mapped == nullptr) return std::make_unique<StreamText>(fd, true, path);
  close(fd);
  return decoded(std::move(mapped));
}

std::unique_ptr<TextInput> standard_text() {
  struct stat st {};
  if (fstat(0, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0 && lseek(0, 0, SEEK_CUR) == 0) {
    const auto n = static_cast<std::size_t>(st.st_size);
    if (auto mapped = MappedText::of(0, n, "-"); mapped != nullptr) return mapped;
  }
  return std::make_unique<StreamText>(0, false, "-");
}

std::unique_ptr<TextInput> memory_text(std::string text, std::string name) {
  return std::make_unique<MemoryText>(std::move(text), std::move(name));
}

}  // namespace korvel
