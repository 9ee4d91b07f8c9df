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
constexpr int LINKS = 40;   // links that are followed
constexpr mode_t ALL_MAY = 0666;

// The file that a name means in the end: links are followed, also to a file that isn't there yet.
// Empty when they run in a circle.
std::string followed(std::string path) {
  for (int links = 0; links < LINKS; ++links) {
    char to[PATH_MAX];
    const ssize_t n = readlink(path.c_str(), to, sizeof to);
    if (n <= 0 || n == static_cast<ssize_t>(sizeof to)) return path;
    const std::string target(to, static_cast<std::size_t>(n));
    const std::size_t slash = path.rfind('/');
    const bool beside = target[0] != '/' && slash != std::string::npos;
    path.resize(beside ? slash + 1 : 0);
    path.append(target);
  }
  return {};
}

// Characters of the folder's part of a path, its last "/" included.
std::size_t folder_length(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? 0 : slash + 1;
}

// The k-th name to be tried for the new file beside `path`.
std::string beside(const std::string& path, int k) {
  const std::size_t name = folder_length(path);
  return path.substr(0, name) + "." + path.substr(name, NAME_MAX - 32) + "." +
         std::to_string(getpid()) + "-" + std::to_string(k);
}

std::string by_descriptor(int fd) { return "/proc/self/fd/" + std::to_string(fd); }

}  // namespace

FileOutput::~FileOutput() { abandon(); }

// Opens the new file: it lies in the same folder, for only there a rename is possible and atomic.
bool FileOutput::open_beside() {
  const std::string folder = path_.substr(0, folder_length(path_));
  fd_ = ::open(folder.empty() ? "." : folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, ALL_MAY);
  if (fd_ >= 0 && access(by_descriptor(fd_).c_str(), F_OK) == 0) return unnamed_ = true;
  if (fd_ >= 0) ::close(fd_);  // without /proc it could never get a name
  for (int k = 0; k < TRIES; ++k) {
    temporary_ = beside(path_, k);
    fd_ = ::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, ALL_MAY);
    if (fd_ >= 0) return true;
    if (errno != EEXIST) break;
  }
  temporary_.clear();
  return false;
}

bool FileOutput::open(const std::string& path, WriteMode mode) {
  abandon();
  path_ = followed(path);
  temporary_.clear();
  filled_ = 0;
  written_ = 0;
  error_ = 0;
  old_length_ = -1;
  direct_ = replaces_ = unnamed_ = false;
  if (path_.empty()) {
    error_ = path.empty() ? ENOENT : ELOOP;
    path_ = path;
    return false;
  }
  struct stat old {};
  const bool device = stat(path.c_str(), &old) == 0 && !S_ISREG(old.st_mode);
  if (device) path_ = path;  // what /dev/stdout leads to may have no name in any folder
  const bool exists = stat(path_.c_str(), &old) == 0;
  if (!exists && errno != ENOENT) {  // too long a name, no way into its folder
    error_ = errno;
    return false;
  }
  if ((exists && S_ISDIR(old.st_mode)) || path_.back() == '/') {
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
  } else if (mode == WriteMode::append && exists) {
    fd_ = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    old_length_ = old.st_size;
  } else if (open_beside()) {
    replaces_ = exists;
    // Kept where that is allowed.
    if (exists && fchmod(fd_, old.st_mode & 07777) != 0) errno = 0;
  }
  if (fd_ < 0) {
    error_ = errno;
    return false;
  }
  if (buffer_.empty()) buffer_.resize(BUFFER);
  return true;
}

void FileOutput::put(const char* bytes, std::size_t count) {
  while (count > 0 && error_ == 0) {
    const ssize_t n = ::write(fd_, bytes, count);
    if (n < 0) {
      if (errno != EINTR) error_ = errno;
      continue;
    }
    bytes += n;
    count -= static_cast<std::size_t>(n);
    written_ += static_cast<std::uint64_t>(n);
  }
}

void FileOutput::flush() {
  put(buffer_.data(), filled_);
  filled_ = 0;
}

void FileOutput::write(std::string_view bytes) {
  if (fd_ < 0 || error_ != 0 || bytes.empty()) return;
  // Large pieces go straight to the file.
  if (bytes.size() >= BUFFER / 4) {
    flush();
    return put(bytes.data(), bytes.size());
  }
  if (filled_ + bytes.size() > BUFFER) flush();
  std::memcpy(buffer_.data() + filled_, bytes.data(), bytes.size());
  filled_ += bytes.size();
}

std::span<char> FileOutput::room(std::size_t wanted) {
  if (filled_ + std::min(wanted, MOST_ROOM) > BUFFER) flush();
  return {buffer_.data() + filled_, BUFFER - filled_};
}

// Gives the finished file its name. Where there is no file of that name yet, one that somebody
// makes meanwhile is replaced as well.
bool FileOutput::take_name() {
  if (unnamed_) {
    const std::string self = by_descriptor(fd_);
    const auto link_as = [&](const std::string& name) {
      return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    if (!replaces_ && link_as(path_)) return true;
    bool linked = false;
    for (int k = 0; k < TRIES && !linked; ++k) {
      temporary_ = beside(path_, k);
      linked = link_as(temporary_);
      if (!linked && errno != EEXIST) break;
    }
    if (!linked) {
      error_ = errno;
      temporary_.clear();
      return false;
    }
  }
  if (temporary_.empty()) return true;
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
    error_ = errno;
    unlink(temporary_.c_str());
  }
  temporary_.clear();
  return error_ == 0;
}

bool FileOutput::commit() {
  if (fd_ < 0) return error_ == 0;
  flush();
  // Before an old file is given up the new one must be on disk; a full disk may show only here.
  if (error_ == 0 && replaces_ && fsync(fd_) != 0 && errno != EINVAL) error_ = errno;
  // What has no name yet gets it through its descriptor. (Network file systems, which may tell only
  // at the close that they could not take everything, have no files without a name.)
  if (error_ == 0 && unnamed_) take_name();
  if (error_ != 0) {
    const int cause = error_;
    abandon();
    error_ = cause;
    return false;
  }
  const int closed = ::close(fd_);
  fd_ = -1;
  if (closed != 0 && errno != EINTR) error_ = errno;
  unnamed_ = false;
  if (error_ == 0) return take_name();
  if (!temporary_.empty()) unlink(temporary_.c_str());
  temporary_.clear();
  return false;
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
