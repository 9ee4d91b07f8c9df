// Files mapped into memory that may be cut off by another program meanwhile.
#pragma once

#include <cstddef>
#include <string_view>

namespace korvel {

// A file seen as one text without being copied. Touching a page that another program has cut off
// the file would end the process; here it turns into a page of line ends, so that whoever reads
// lines comes to an end, and cut_off() tells. The handler of SIGBUS that does this stands only
// while such a file is open and passes on every fault that is none of its own.
class MappedFile {
 public:
  MappedFile() = default;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();
  // Maps the first n bytes of the open file, once; n > 0. False when the system refuses it or too
  // many files are mapped: the caller reads the file in another way then.
  bool map(int fd, std::size_t n);
  // The text; one character may be read behind it, a 0 or a line end.
  std::string_view text() const { return {start_, size_}; }
  // True when the file has lost a part of the text, or the system could not read it.
  bool cut_off() const;
  // Drops the whole pages inside the part; they come back from the file when they are touched.
  void release(std::string_view part) const;

 private:
  char* start_ = nullptr;
  std::size_t size_ = 0;
  int fd_ = -1;    // of our own, to ask for the size that is left
  int slot_ = -1;  // in the list that the handler goes through
};

}  // namespace korvel
