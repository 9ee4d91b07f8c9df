// Files compressed by gzip.
#pragma once

#include <functional>
#include <string_view>

namespace korvel {

// By the first bytes of a file.
inline bool gzip_magic(std::string_view bytes) { return bytes.substr(0, 2) == "\x1F\x8B"; }

enum class GzipEnd {
  good,
  damaged,      // not what gzip writes, or cut off: what came before was handed on
  read_error,   // errno
  refused,      // the sink has had enough
  unavailable,  // this program was built without zlib
};

// Unpacks the file open as `fd`, from its beginning, and hands pieces of the text to the sink.
// Several compressed parts one after the other are one text, as gzip has it.
GzipEnd gunzip(int fd, const std::function<bool(std::string_view)>& sink);

}  // namespace korvel
