#include "platform/text_output.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

namespace korvel {
namespace {
constexpr std::size_t BUFFER = std::size_t{1} << 16;
}

TextOutput::~TextOutput() { close(); }

bool TextOutput::open(const std::string& path) {
  close();
  fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  own_ = true;
  name_ = path;
  error_ = 0;
  return fd_ >= 0;
}

bool TextOutput::change(const std::string& path, bool append, bool links) {
  const int flags =
      O_WRONLY | O_CREAT | O_CLOEXEC | (append ? O_APPEND : O_TRUNC) | (links ? 0 : O_NOFOLLOW);
  const int fd = ::open(path.c_str(), flags, 0666);
  if (fd < 0) return false;
  close();
  fd_ = fd;
  own_ = true;
  name_ = path;
  error_ = 0;
  return true;
}

void TextOutput::attach(int fd) {
  close();
  fd_ = fd;
  own_ = false;
  name_ = "-";
  error_ = 0;
}

void TextOutput::line(std::string_view record) {
  if (buffer_.size() + record.size() + 1 > BUFFER) flush();
  buffer_.append(record);
  buffer_.push_back('\n');
}

void TextOutput::raw(std::string_view text) {
  if (buffer_.size() + text.size() > BUFFER) flush();
  buffer_.append(text);
}

void TextOutput::flush() {
  std::size_t done = 0;
  while (done < buffer_.size() && error_ == 0 && fd_ >= 0) {
    const ssize_t n = write(fd_, buffer_.data() + done, buffer_.size() - done);
    if (n < 0) {
      if (errno != EINTR) error_ = errno;
      continue;
    }
    done += static_cast<std::size_t>(n);
  }
  buffer_.clear();
}

bool TextOutput::close() {
  if (fd_ < 0) return true;
  flush();
  if (own_ && ::close(fd_) != 0 && error_ == 0) error_ = errno;
  fd_ = -1;
  return error_ == 0;
}

bool TextOutput::terminal() const { return fd_ >= 0 && isatty(fd_) == 1; }

}  // namespace korvel
