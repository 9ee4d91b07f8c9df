// Text input by lines from files, pipes and terminals, and in bulk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace korvel {

// A text source. Regular files are mapped into memory; everything else is read as it comes.
// LF and CR LF end a line; a UTF-8 mark at the start is passed over. Files compressed by gzip are
// unpacked and UTF-16 (told by its mark) is made UTF-8 when they are opened.
class TextInput {
 public:
  virtual ~TextInput() = default;
  // Next physical line without its end, false at the end of the source. The view lives until the
  // next call that reads.
  virtual bool line(std::string_view& out) = 0;
  // Makes the line just read the next one again.
  virtual void unread() = 0;
  // All that is left, as one text (reads a pipe to its end). Followed by skip.
  virtual std::string_view rest() = 0;
  // Passes over the first n characters of rest(), which hold `lines` line ends.
  virtual void skip(std::size_t n, std::int64_t lines) = 0;
  // Goes back to the first line; false where that is impossible.
  virtual bool rewind() = 0;
  // Number of the line that was read last, from 1.
  virtual std::int64_t line_number() const = 0;
  virtual bool terminal() const = 0;
  // True for a terminal source that shows the prompt by itself.
  virtual bool shows_prompt() const { return false; }
  // True when all of the text lies in memory, so that rest() costs nothing and waits for nobody.
  virtual bool whole() const { return false; }
  // A part of rest() that will not be looked at again soon: its memory may be given back meanwhile.
  // Threads may call it at the same time.
  virtual void release(std::string_view /*part*/) const {}
  const std::string& name() const { return name_; }
  // errno of a failed read, 0 none: the source then ends there. cause() says it in words.
  virtual int error() const { return error_; }
  std::string cause() const;

 protected:
  std::string name_;
  int error_ = 0;
  std::string cause_;  // in place of the system's words for error_
};

// Opens a file for reading; null with errno set when that fails (folders are refused).
std::unique_ptr<TextInput> open_text(const std::string& path);
// Folder for the text of compressed files that is too large for memory: a file without a name.
void set_unpack_folder(const std::string& folder);
// Standard input.
std::unique_ptr<TextInput> standard_text();
// A text held in memory (commands given on the command line, tests).
std::unique_ptr<TextInput> memory_text(std::string text, std::string name);

}  // namespace korvel
