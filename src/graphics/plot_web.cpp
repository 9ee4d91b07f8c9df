// Pictures in web output: the tag in the page, and the list of pictures myplots.htm.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "engine/files.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/units.h"
#include "graphics/gnuplot.h"

namespace korvel {
namespace {

// A name as a page may hold it.
std::string page_text(std::string_view name) {
  std::string out;
  for (const char c : name) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case ' ':
        out += "%20";
        break;
      case '\\':
        out += '/';
        break;
      default:
        if (static_cast<unsigned char>(c) >= 32) out += c;
    }
  }
  return out;
}

// Adds a line to the list, under a lock: several runs may share a folder. The page is never closed,
// so that lines can be added for ever. 0, or the errno of the failure.
int add_to_list(const std::string& list, const std::string& line) {
  const int fd = ::open(list.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) return errno;
  int error = 0;
  struct stat st {};
  if (flock(fd, LOCK_EX) != 0 || fstat(fd, &st) != 0) error = errno;
  std::string text = st.st_size == 0 ? "<HTML>\nLIST OF RECENT PLOTS<br>\n" : "";
  text += line;
  if (error == 0 && write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    error = errno != 0 ? errno : ENOSPC;
    if (ftruncate(fd, st.st_size) != 0) error = errno;
  }
  if (close(fd) != 0 && error == 0) error = errno;
  return error;
}

}  // namespace

bool web_output() { return IOCOM.OHTML || OSCOM.OHTM; }

void show_on_page(const std::string& picture) {
  say<"('<IMG SRC=\"', A, '\">')">(page_text(picture));
  const std::string list = RUNCOM.vgnu + "myplots.htm";
  if (!output_allowed(list)) return refuse_in_safe_run();
  const bool inside = picture.starts_with(RUNCOM.vgnu);
  const std::string name = page_text(inside ? picture.substr(RUNCOM.vgnu.size()) : picture);
  const int error = add_to_list(list, "<a href=\"" + name + "\">" + name + "</A><BR>\n");
  if (error != 0) {
    fail<"(' ...ERROR..WRITE ERROR ON FILE ', A, ': ', A)">(list,
                                                            std::generic_category().message(error));
  }
}

}  // namespace korvel
