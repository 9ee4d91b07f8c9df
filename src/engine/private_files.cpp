// Files of the run's private folder: fetched, deciphered and enciphered ones.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "engine/files.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/set.h"
#include "engine/units.h"
#include "platform/child.h"
#include "platform/fetch.h"
#include "platform/private_folder.h"

namespace korvel {
namespace {

constexpr int FETCHED_UNIT = 4444;  // stands in messages for a file fetched from its address

int& made() {
  static int n = 0;  // of names that must differ within a run
  return n;
}

bool begins_like(std::string_view text, std::string_view head) {
  return text.size() >= head.size() &&
         std::equal(head.begin(), head.end(), text.begin(),
                    [](char h, char t) { return upper(h) == upper(t); });
}

// An address and the login that stood in braces in it.
struct Address {
  std::string url, user, password;
  bool closed = true;  // the brace
};
Address parse_address(std::string_view typed) {
  Address a;
  const auto open = typed.find('{');
  if (open == std::string_view::npos) {
    a.url = typed;
    return a;
  }
  const auto close = typed.find('}', open);
  if (close == std::string_view::npos) {
    a.closed = false;
    a.url = typed.substr(0, open);
    return a;
  }
  const std::string_view login = trimmed(typed.substr(open + 1, close - open - 1));
  const auto cut = login.find_first_of(" ,:");
  a.user = login.substr(0, cut);
  if (cut != std::string_view::npos) a.password = trimmed(login.substr(cut + 1));
  a.url = std::string(typed.substr(0, open)) + std::string(typed.substr(close + 1));
  return a;
}

// The end of a name, from the last point on, where it is a plain suffix: READ tells files by it.
std::string suffix_of(std::string_view name) {
  name = name.substr(0, name.find_first_of("?#"));
  const auto point = name.rfind('.');
  if (point == std::string_view::npos || name.size() - point > 8) return {};
  const std::string_view suffix = name.substr(point);
  const bool plain = std::ranges::all_of(suffix.substr(1), [](char c) { return NAMCHK(c) >= 0; });
  return plain ? std::string(suffix) : std::string();
}

// gpg takes a name that begins with "-" for one of its words.
std::string file_word(const std::string& path) {
  return path.starts_with('-') ? "./" + path : path;
}

// While gpg makes its file, so that no moment leaves it open to others.
class PrivateMode {
 public:
  PrivateMode() : old_(umask(077)) {}
  PrivateMode(const PrivateMode&) = delete;
  PrivateMode& operator=(const PrivateMode&) = delete;
  ~PrivateMode() { umask(old_); }

 private:
  mode_t old_;
};

// Runs gpg with the pass phrase on its descriptor 0. False after a reported failure.
bool run_gpg(const std::vector<std::string>& words) {
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  std::string phrase = word_setting("CRYPT");
  if (phrase.empty()) {
    fail(" ...ERROR..NO PASS PHRASE, USE SET CRYPT= BEFORE THIS COMMAND");
    return false;
  }
  phrase += '\n';
  std::string last;  // what gpg said in the end is the cause
  ChildIo io;
  io.input = phrase;
  io.line = [&](std::string_view line) {
    if (!trimmed(line).empty()) last = line;
    return true;
  };
  const PrivateMode mode;
  const ChildEnd end = run_child(words, io);
  explicit_bzero(phrase.data(), phrase.size());
  if (end.good()) return true;
  if (end.error == ENOENT) {
    fail(" ...ERROR..GPG IS NOT INSTALLED, INSTALL THE PACKAGE gnupg");
  } else if (end.error != 0) {
    fail<"(' ...ERROR..GPG DID NOT START: ', A)">(std::string_view(std::strerror(end.error)));
  } else if (end.signal != 0) {
    fail<"(' ...ERROR..GPG WAS ENDED BY SIGNAL ', I0)">(end.signal);
  } else {
    fail<"(' ...ERROR..GPG FAILED: ', A)">(last);
  }
  return false;
}

}  // namespace

std::string private_file(std::string_view name) {
  std::string path = private_path(RUNCOM.vtemp, name);
  if (path.empty()) {
    fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(
        NAMED_UNIT, errno, RUNCOM.vtemp + std::string(name));
  }
  return path;
}

void remove_private_files() {
  remove_private_folder();
  made() = 0;
}

bool is_url(std::string_view name) {
  name = trimmed(name);
  return begins_like(name, "http://") || begins_like(name, "https://") ||
         begins_like(name, "ftp://");
}

std::string shown_url(std::string_view url) {
  std::string shown = parse_address(trimmed(url)).url;
  const std::size_t host = shown.find("//") + 2;  // what stands before "@" is a login too
  const std::size_t at = shown.substr(0, shown.find('/', host)).rfind('@');
  if (at != std::string::npos && at > host) shown.erase(host, at + 1 - host);
  return shown;
}

std::string fetch_url(std::string_view url) {
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return {};
  }
  const Address address = parse_address(trimmed(url));
  if (!address.closed) {
    fail(" ...ERROR..MISSING } FOR USER AND PASSWORD IN FTP");
    return {};
  }
  std::string file = private_file("fetched" + std::to_string(++made()) + suffix_of(address.url));
  if (file.empty()) return {};
  const Fetched fetched = fetch(address.url, address.user, address.password, file);
  if (fetched.good()) return file;
  fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(
      FETCHED_UNIT, fetched.code, shown_url(url));
  if (!fetched.built) {
    say(" THIS KORVEL WAS BUILT WITHOUT libcurl, INSTALL THE PACKAGE libcurl4-openssl-dev AND "
        "BUILD IT");
  } else if (!fetched.library) {
    say(" THE LIBRARY libcurl IS NOT INSTALLED, INSTALL THE PACKAGE libcurl4");
  } else {
    say<"(1X, A)">(fetched.cause);
  }
  return {};
}

std::string decipher_file(const std::string& path) {
  if (!file_allowed(path)) {
    refuse_in_safe_run();
    return {};
  }
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) {
    error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(path);
    mark_failed();
    return {};
  }
  std::string plain = private_file("plain" + std::to_string(++made()));
  if (plain.empty()) return {};
  if (!run_gpg({"gpg", "--batch", "--passphrase-fd", "0", "-o", plain, file_word(path)})) {
    unlink(plain.c_str());
    return {};
  }
  OCOM.OCRY = true;
  return plain;
}

bool encipher_file(const std::string& plain, const std::string& path) {
  const std::string cipher = plain + ".gpg";
  const bool made_it = run_gpg({"gpg", "--batch", "--yes", "--no-version", "--comment", "",
                                "--passphrase-fd", "0", "-c", file_word(plain)});
  unlink(plain.c_str());
  bool written = false;
  if (made_it) {
    FileOutput file;
    const auto text = open_text(cipher);
    if (text == nullptr) {
      fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(NAMED_UNIT, errno,
                                                                                cipher);
    } else if (!file.open(path, WriteMode::replace)) {
      fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(NAMED_UNIT,
                                                                                file.error(), path);
    } else {
      file.write(text->rest());
      written = commit_output_file(file);
    }
  }
  unlink(cipher.c_str());
  return written;
}

}  // namespace korvel
