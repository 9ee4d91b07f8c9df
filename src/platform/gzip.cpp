#include "platform/gzip.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

#ifdef KORVEL_ZLIB
#include <zlib.h>
#endif

namespace korvel {

#ifdef KORVEL_ZLIB

namespace {

constexpr std::size_t PIECE = std::size_t{1} << 18;
constexpr int GZIP_ONLY = 15 + 16;  // the largest window, a gzip header in front

// Guard of the decompressor's state.
struct Stream {
  z_stream z{};
  bool ready = inflateInit2(&z, GZIP_ONLY) == Z_OK;
  Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    if (ready) inflateEnd(&z);
  }
};

}  // namespace

GzipEnd gunzip(int fd, const std::function<bool(std::string_view)>& sink) {
  Stream stream;
  if (!stream.ready) return GzipEnd::damaged;
  z_stream& z = stream.z;
  std::vector<unsigned char> in(PIECE), out(PIECE);
  off_t at = 0;
  bool inside = true;  // a compressed part has begun and not ended
  for (;;) {
    const ssize_t n = pread(fd, in.data(), in.size(), at);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return GzipEnd::read_error;
    if (n == 0) return inside ? GzipEnd::damaged : GzipEnd::good;
    at += n;
    z.next_in = in.data();
    z.avail_in = static_cast<uInt>(n);
    do {
      if (!inside) {
        // Behind a part: another one, or filling that gzip passes over as well.
        if (*z.next_in != 0x1F) return GzipEnd::good;
        if (inflateReset(&z) != Z_OK) return GzipEnd::damaged;
        inside = true;
      }
      z.next_out = out.data();
      z.avail_out = static_cast<uInt>(out.size());
      const int result = inflate(&z, Z_NO_FLUSH);
      const std::size_t got = out.size() - z.avail_out;
      if (got > 0 && !sink({reinterpret_cast<const char*>(out.data()), got})) {
        return GzipEnd::refused;
      }
      if (result == Z_STREAM_END) {
        inside = false;
      } else if (result != Z_OK && result != Z_BUF_ERROR) {
        return GzipEnd::damaged;
      }
    } while (z.avail_in > 0 || (inside && z.avail_out == 0));
  }
}

#else

GzipEnd gunzip(int, const std::function<bool(std::string_view)>&) { return GzipEnd::unavailable; }

#endif

}  // namespace korvel
