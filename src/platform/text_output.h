// A text file or stream being written, with its own buffer.
#pragma once

#include <string>
#include <string_view>

namespace korvel {

class TextOutput {
 public:
  TextOutput() = default;
  TextOutput(const TextOutput&) = delete;
  TextOutput& operator=(const TextOutput&) = delete;
  ~TextOutput();
  // Opens (truncates) a file; false with errno set.
  bool open(const std::string& path);
  // Goes over to another file; what was open stays open when that fails. Without `links` a link
  // under that name is refused.
  bool change(const std::string& path, bool append, bool links);
  void attach(int fd);  // a descriptor that stays open: standard output
  // Appends a record and a line end. Errors are kept for error().
  void line(std::string_view record);
  void raw(std::string_view text);
  void flush();
  bool close();
  bool opened() const { return fd_ >= 0; }
  bool terminal() const;
  int error() const { return error_; }  // errno of the first failed write, 0 none
  const std::string& name() const { return name_; }
  int descriptor() const { return fd_; }

 private:
  std::string name_;
  std::string buffer_;
  int fd_ = -1;
  int error_ = 0;
  bool own_ = false;
};

}  // namespace korvel
