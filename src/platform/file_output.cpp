#include "platform/file_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace korvel {
namespace {

constexpr std::size_t BUFFER = std::size_t{1} << 18;
constexpr std::size_t MOST_ROOM = std::size_t{1} << 16;
constexpr int TRIES = 100;  // names of a new file that may be taken already
constexpr mode_t ALL_MAY = 0666;

// The file that a name means in the end: links are followed, also to a file that isn't there yet.
std::string followed(std::string path) {
  for (int links = 0; links < 40; ++links) {
    char to[PATH_MAX];
    const ssize_t n = readlink(path.c_str(), to, sizeof to);
    if (n <= 0 || n == static_cast<ssize_t>(sizeof to)) return path;
    const std::string target(to, static_cast<std::size_t>(n));
    const std::size_t slash = path.rfind('/');
    const bool beside = target[0] != '/' && slash != std::string::npos;
    path = beside ? path.substr(0, slash + 1) + target : target;
  }
  return path;
}

}  // namespace

FileOutput::~FileOutput() { abandon(); }

bool FileOutput::open(const std::string& path, WriteMode mode) {
  abandon();
  path_ = followed(path);
  temporary_.clear();
  filled_ = 0;
  written_ = 0;
  error_ = 0;
  old_length_ = -1;
  direct_ = replaces_ = false;
  struct stat old {};
  const bool exists = stat(path_.c_str(), &old) == 0;
  if (exists && S_ISDIR(old.st_mode)) {
    error_ = EISDIR;
    return false;
  }
  direct_ = exists && !S_ISREG(old.st_mode);
  if (exists && access(path_.c_str(), W_OK) != 0) {  // rename would replace a protected file
    error_ = errno;
    return false;
  }
  if (direct_) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
  } else if (mode == WriteMode::append) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, ALL_MAY);
    old_length_ = exists ? old.st_size : 0;
  } else {
    // The new file lies in the same folder, for only there a rename is possible and atomic.
    const std::size_t slash = path_.rfind('/');
    const std::size_t name = slash == std::string::npos ? 0 : slash + 1;
    for (int k = 0; k < TRIES && fd_ < 0; ++k) {
      temporary_ = path_.substr(0, name) + "." + path_.substr(name, NAME_MAX - 32) + "." +
                   std::to_string(getpid()) + "-" + std::to_string(k);
      fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ALL_MAY);
      if (fd_ < 0 && errno != EEXIST) break;
    }
    replaces_ = exists;
    if (fd_ >= 0 && exists && fchmod(fd_, old.st_mode & 07777) != 0) errno = 0;  // kept if allowed
  }
  if (fd_ < 0) {
    error_ = errno;
    temporary_.clear();
    return false;
  }
  if (buffer_.empty()) buffer_.resize(BUFFER);
  return true;
}

void FileOutput::flush() {
  std::size_t done = 0;
  while (done < filled_ && error_ == 0) {
    const ssize_t n = ::write(fd_, buffer_.data() + done, filled_ - done);
    if (n < 0) {
      if (errno != EINTR) error_ = errno;
      continue;
    }
    done += static_cast<std::size_t>(n);
  }
  written_ += filled_;
  filled_ = 0;
}

void FileOutput::write(std::string_view bytes) {
  // Large pieces go straight to the file.
  if (bytes.size() >= BUFFER) {
    flush();
    while (!bytes.empty() && error_ == 0) {
      const ssize_t n = ::write(fd_, bytes.data(), bytes.size());
      if (n < 0) {
        if (errno != EINTR) error_ = errno;
        continue;
      }
      written_ += static_cast<std::uint64_t>(n);
      bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return;
  }
  if (filled_ + bytes.size() > BUFFER) flush();
  std::memcpy(buffer_.data() + filled_, bytes.data(), bytes.size());
  filled_ += bytes.size();
}

std::span<char> FileOutput::room(std::size_t wanted) {
  if (filled_ + std::min(wanted, MOST_ROOM) > BUFFER) flush();
  return {buffer_.data() + filled_, BUFFER - filled_};
}

bool FileOutput::commit() {
  if (fd_ < 0) return error_ == 0;
  flush();
  // Before an old file is given up the new one must be on disk; a full disk may show only here.
  if (error_ == 0 && replaces_ && fsync(fd_) != 0 && errno != EINVAL) error_ = errno;
  if (error_ != 0) {
    const int cause = error_;
    abandon();
    error_ = cause;
    return false;
  }
  const int closed = ::close(fd_);
  fd_ = -1;
  if (closed != 0) error_ = errno;
  if (!temporary_.empty()) {
    if (error_ == 0 && std::rename(temporary_.c_str(), path_.c_str()) != 0) error_ = errno;
    if (error_ != 0) unlink(temporary_.c_str());
    temporary_.clear();
  }
  return error_ == 0;
}

void FileOutput::abandon() {
  if (fd_ < 0) return;
  if (old_length_ >= 0 && ftruncate(fd_, old_length_) != 0 && error_ == 0) error_ = errno;
  ::close(fd_);
  fd_ = -1;
  filled_ = 0;
  if (!temporary_.empty()) unlink(temporary_.c_str());
  temporary_.clear();
}

}  // namespace korvel
