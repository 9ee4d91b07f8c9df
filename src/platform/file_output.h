// A file of bytes being written: replaced as a whole, or lengthened.
//
// A file that is replaced is written in the same folder under no name at all (under a hidden one
// where the file system can't do that) and takes its name when everything has been written, so that
// a failure, a full disk or a kill at any moment leaves the old file or the new one, and nothing
// beside it. Source: the write, flush and rename order of POSIX rename(2), which is atomic.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace korvel {

enum class WriteMode : std::uint8_t {
  replace,  // a new file in place of an old one
  append,   // behind what is there; abandon() cuts it off again
};

class FileOutput {
 public:
  FileOutput() = default;
  FileOutput(const FileOutput&) = delete;
  FileOutput& operator=(const FileOutput&) = delete;
  ~FileOutput();  // a file that was not committed is abandoned

  // Opens `path` for writing; false with error() set. A link is followed and its target replaced,
  // keeping the permissions of the old file; devices and pipes are written directly whatever the
  // mode is. Folders are refused.
  bool open(const std::string& path, WriteMode mode);
  // Buffered. Errors are kept for error(); nothing is written behind the first one.
  void write(std::string_view bytes);
  void write(const void* bytes, std::size_t count) {
    write({static_cast<const char*>(bytes), count});
  }
  // At least `wanted` (up to 64 KiB) free bytes of the buffer, to be filled in place; `used` of
  // them are then kept by advance().
  std::span<char> room(std::size_t wanted);
  void advance(std::size_t used) { filled_ += used; }
  // Everything on disk under the name of the file; false with error() set, and the old file stands.
  bool commit();
  // As if it had never been opened.
  void abandon();

  bool opened() const { return fd_ >= 0; }
  int error() const { return error_; }  // errno of the first failure, 0 none
  const std::string& path() const { return path_; }
  std::uint64_t bytes() const { return written_ + filled_; }

 private:
  void flush();
  void put(const char* bytes, std::size_t count);
  bool open_beside();
  bool take_name();
  std::string path_;       // as it is to be called, links followed
  std::string temporary_;  // name of the new file beside it, empty while it has none
  bool unnamed_ = false;   // the new file has no name yet
  std::string buffer_;
  std::size_t filled_ = 0;
  std::uint64_t written_ = 0;
  std::int64_t old_length_ = -1;  // of a file that is lengthened
  int fd_ = -1;
  int error_ = 0;
  bool direct_ = false;    // device or pipe
  bool replaces_ = false;  // an old file goes when this one comes
};

}  // namespace korvel
