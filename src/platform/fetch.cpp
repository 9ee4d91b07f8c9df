// Files fetched through libcurl, which is loaded when it is first needed.
#include "platform/fetch.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "platform/loaded_library.h"
#include "platform/progress.h"
#include "platform/signals.h"

#ifdef KORVEL_CURL
// The checks of easy.h count as calls of the library, which is not linked here.
#define CURL_DISABLE_TYPECHECK
#include <curl/curl.h>
#undef curl_easy_setopt

namespace korvel {
namespace {

constexpr long CONNECT_SECONDS = 30, ALL_SECONDS = 600, SILENT_SECONDS = 60, MOST_REDIRECTS = 10;

// The few routines used, by their addresses in the loaded library.
struct Curl {
  void* library = nullptr;
  decltype(&curl_easy_init) init = nullptr;
  decltype(&curl_easy_setopt) set = nullptr;
  decltype(&curl_easy_perform) perform = nullptr;
  decltype(&curl_easy_cleanup) cleanup = nullptr;
  decltype(&curl_easy_strerror) text = nullptr;
};

const Curl& curl() {
  static const Curl loaded = [] {
    Curl c;
    c.library = dlopen("libcurl.so.4", RTLD_NOW | RTLD_LOCAL);
    if (c.library == nullptr) return c;
    look_up(c.library, "curl_easy_init", c.init);
    look_up(c.library, "curl_easy_setopt", c.set);
    look_up(c.library, "curl_easy_perform", c.perform);
    look_up(c.library, "curl_easy_cleanup", c.cleanup);
    look_up(c.library, "curl_easy_strerror", c.text);
    if (c.init == nullptr || c.set == nullptr || c.perform == nullptr || c.cleanup == nullptr ||
        c.text == nullptr) {
      c.library = nullptr;
    }
    return c;
  }();
  return loaded;
}

struct Transfer {
  int fd = -1;
  int error = 0;  // errno of a failed write
  bool show = false;
  std::int64_t shown = -1;  // kibibytes on the terminal
};

std::size_t receive(char* bytes, std::size_t one, std::size_t count, void* to) {
  auto& transfer = *static_cast<Transfer*>(to);
  std::size_t done = 0;
  while (done < one * count) {
    const ssize_t n = write(transfer.fd, bytes + done, one * count - done);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      transfer.error = errno;
      return 0;
    }
    done += static_cast<std::size_t>(n);
  }
  return done;
}

void show(std::string_view text) {
  if (write(2, text.data(), text.size()) < 0) return;
}

int progress(void* to, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) {
  auto& transfer = *static_cast<Transfer*>(to);
  if (transfer.show && now / 1024 != transfer.shown) {
    transfer.shown = now / 1024;
    std::string line = "\r" + std::to_string(transfer.shown) + " KB";
    if (total > 0) line += " of " + std::to_string(total / 1024) + " KB";
    show(line);
  }
  return signal_received();  // anything but 0 ends the transfer
}

}  // namespace

Fetched fetch(const std::string& url, const std::string& user, const std::string& password,
              const std::string& file) {
  const Curl& c = curl();
  CURL* handle = c.library == nullptr ? nullptr : c.init();
  if (handle == nullptr) return {.library = false};
  Transfer transfer;
  unlink(file.c_str());
  transfer.fd = open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (transfer.fd < 0) {
    const int cause = errno;
    c.cleanup(handle);
    return {.code = CURLE_WRITE_ERROR, .cause = std::strerror(cause)};  // NOLINT
  }
  transfer.show = progress_shown();
  c.set(handle, CURLOPT_URL, url.c_str());
#if LIBCURL_VERSION_NUM >= 0x075500
  // A page must not send us on to a file of this machine.
  c.set(handle, CURLOPT_PROTOCOLS_STR, "http,https,ftp");
  c.set(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https,ftp");
#else
  const long protocols = CURLPROTO_HTTP | CURLPROTO_HTTPS | CURLPROTO_FTP;
  c.set(handle, CURLOPT_PROTOCOLS, protocols);
  c.set(handle, CURLOPT_REDIR_PROTOCOLS, protocols);
#endif
  c.set(handle, CURLOPT_USERAGENT, "KORVEL/11.0");
  c.set(handle, CURLOPT_NOSIGNAL, 1L);
  c.set(handle, CURLOPT_FAILONERROR, 1L);
  c.set(handle, CURLOPT_FOLLOWLOCATION, 1L);
  c.set(handle, CURLOPT_MAXREDIRS, MOST_REDIRECTS);
  c.set(handle, CURLOPT_CONNECTTIMEOUT, CONNECT_SECONDS);
  c.set(handle, CURLOPT_TIMEOUT, ALL_SECONDS);
  c.set(handle, CURLOPT_LOW_SPEED_LIMIT, 1L);
  c.set(handle, CURLOPT_LOW_SPEED_TIME, SILENT_SECONDS);
  c.set(handle, CURLOPT_ACCEPT_ENCODING, "");
  c.set(handle, CURLOPT_WRITEFUNCTION, &receive);
  c.set(handle, CURLOPT_WRITEDATA, &transfer);
  c.set(handle, CURLOPT_NOPROGRESS, 0L);
  c.set(handle, CURLOPT_XFERINFOFUNCTION, &progress);
  c.set(handle, CURLOPT_XFERINFODATA, &transfer);
  if (!user.empty()) {
    c.set(handle, CURLOPT_USERNAME, user.c_str());
    c.set(handle, CURLOPT_PASSWORD, password.c_str());
  }
  Fetched fetched;
  fetched.code = c.perform(handle);
  if (transfer.shown >= 0) show("\n");
  if (fetched.code != 0) fetched.cause = c.text(static_cast<CURLcode>(fetched.code));
  c.cleanup(handle);
  if (close(transfer.fd) != 0 && transfer.error == 0) transfer.error = errno;
  if (transfer.error != 0) {
    if (fetched.code == 0) fetched.code = CURLE_WRITE_ERROR;
    fetched.cause = std::strerror(transfer.error);  // NOLINT(concurrency-mt-unsafe)
  }
  if (fetched.code != 0) unlink(file.c_str());
  return fetched;
}

}  // namespace korvel

#else

namespace korvel {

Fetched fetch(const std::string&, const std::string&, const std::string&, const std::string&) {
  return {.built = false};
}

}  // namespace korvel

#endif
