// Copies and redirects of the printed lines.
#include "engine/redirect.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <system_error>
#include <vector>

#include "engine/files.h"
#include "engine/host.h"
#include "engine/output.h"
#include "engine/run.h"
#include "engine/units.h"

namespace korvel {
namespace {

constexpr int SCREEN_UNIT = 86;    // L86 while the screen is mirrored
constexpr int KEYBOARD_UNIT = 87;  // shown in messages for the copy of the commands

struct Listing {
  int unit = 0;
  TextOutput file;
};
struct Redirects {
  std::vector<std::unique_ptr<Listing>> listings;
  TextOutput screen, keyboard;
};
Redirects& redirects() {
  static Redirects r;
  return r;
}

Listing* find_listing(int unit) {
  for (const auto& l : redirects().listings) {
    if (l->unit == unit) return l.get();
  }
  return nullptr;
}

void write_error(const std::string& name, int error) {
  error_line<"(' ...ERROR..WRITE ERROR ON FILE ', A, ': ', A)">(
      name, std::generic_category().message(error));
}

// The path of a file that printed lines may go to; empty after the refusal.
std::string listing_path(std::string_view typed) {
  std::string path = resolve_write_name(typed);
  if (file_of_run(path)) {
    fail<"(' ...ERROR..FILE IS THE INPUT OR OUTPUT OF THIS RUN:', A)">(path);
    return {};
  }
  return path;
}

bool names_web_page(std::string_view name) {
  return name.ends_with(".HTM") || name.ends_with(".htm");
}

}  // namespace

TextOutput& redirect() {
  Listing* listing = find_listing(IOCOM.LOUT);
  return listing == nullptr ? main_output() : listing->file;
}

TextOutput& screen_mirror() { return redirects().screen; }

bool redirect_output(int unit) {
  if (unit == 0 || unit == IOCOM.L66) {
    if (IOCOM.LOUT != 0) redirect().flush();
    IOCOM.LOUT = 0;
    check_redirects();
    return true;
  }
  if (find_listing(unit) == nullptr) {
    const std::string path = unit_path(unit);
    if (file_of_run(path)) {
      fail<"(' ...ERROR..FILE IS THE INPUT OR OUTPUT OF THIS RUN:', A)">(path);
      return false;
    }
    auto fresh = std::make_unique<Listing>();
    fresh->unit = unit;
    if (!AFILO(fresh->file, unit, path, {.links = unit_assigned(unit)})) return false;
    redirects().listings.push_back(std::move(fresh));
  }
  IOCOM.LOUT = unit;
  return true;
}

int close_listing(int unit) {
  Listing* listing = find_listing(unit);
  if (listing == nullptr) return 0;
  if (IOCOM.LOUT == unit) IOCOM.LOUT = 0;
  listing->file.close();
  const int error = listing->file.error();
  std::erase_if(redirects().listings, [unit](const auto& l) { return l->unit == unit; });
  return error;
}

void begin_web_form(std::string_view name) {
  if (!names_web_page(name) || IOCOM.OHTML) return;
  IOCOM.OHTML = true;
  say(" <HTML><PRE> ");
}

void change_output(std::string_view typed) {
  main_output().flush();
  if (main_output().error() != 0) return;  // told by the next line printed
  if (typed.empty()) {
    const std::string& start = RUNCOM.settings.output;
    if (start.empty() || start == "-") {
      main_output().attach(screen_descriptor());
      IOCOM.O6 = false;
    } else if (main_output().name() != start) {
      AFILO(main_output(), IOCOM.L6, start, {.position = "APPEND"});
    }
    return;
  }
  const std::string path = listing_path(typed);
  if (path.empty() || !AFILO(main_output(), IOCOM.L6, path, {})) return;
  IOCOM.O6 = true;
  IOCOM.OHTML = false;
  begin_web_form(path);
  say(" KORVEL - Version 11.0");
  say<"(' PAR= ', I0)">(RUNCOM.par);
}

void mirror_screen(std::string_view typed) {
  const std::string path = listing_path(typed);
  if (path.empty() || !AFILO(redirects().screen, SCREEN_UNIT, path, {})) return;
  OSCOM.OSCR = true;
  IOCOM.L86 = SCREEN_UNIT;
}

bool keep_log(bool start) {
  const std::string& name = RUNCOM.settings.log;
  if (name.empty()) return true;
  if (!redirects().screen.change(name, !start, false)) return false;
  OSCOM.OSCR = true;
  IOCOM.L86 = SCREEN_UNIT;
  return true;
}

void mirror_keyboard(std::string_view typed) {
  if (typed.empty()) {
    redirects().keyboard.flush();
    check_redirects();
    redirects().keyboard.close();
    return;
  }
  const std::string path = listing_path(typed);
  if (!path.empty()) AFILO(redirects().keyboard, KEYBOARD_UNIT, path, {});
}

bool keyboard_copied() { return redirects().keyboard.opened(); }

void copy_command(std::string_view line) {
  redirects().keyboard.line(line);
  redirects().keyboard.flush();  // what was typed must outlive a fall of the machine
  check_redirects();
}

void check_redirects() {
  // Each is ended before its line is printed, so that the line can't come back here.
  TextOutput& screen = redirects().screen;
  if (screen.opened() && screen.error() != 0) {
    const int error = screen.error();
    screen.close();
    IOCOM.L86 = 0;
    OSCOM.OSCR = false;
    write_error(screen.name(), error);
  }
  TextOutput& keyboard = redirects().keyboard;
  if (keyboard.opened() && keyboard.error() != 0) {
    const int error = keyboard.error();
    keyboard.close();
    write_error(keyboard.name(), error);
  }
  for (std::size_t i = 0; i < redirects().listings.size();) {
    const Listing& listing = *redirects().listings[i];
    if (listing.file.error() == 0) {
      ++i;
      continue;
    }
    const std::string name = listing.file.name();
    const int error = listing.file.error();
    close_listing(listing.unit);
    write_error(name, error);
  }
}

void flush_redirects() {
  redirects().screen.flush();
  redirects().keyboard.flush();
  for (const auto& listing : redirects().listings) listing->file.flush();
  check_redirects();
}

void close_redirects() {
  flush_redirects();
  redirects().screen.close();
  redirects().keyboard.close();
  redirects().listings.clear();
  IOCOM.LOUT = IOCOM.L86 = 0;
}

bool is_redirect(dev_t device, ino_t inode) {
  const auto same = [&](const TextOutput& file) {
    struct stat st {};
    return file.opened() && fstat(file.descriptor(), &st) == 0 && st.st_dev == device &&
           st.st_ino == inode;
  };
  return same(redirects().screen) || same(redirects().keyboard) ||
         std::ranges::any_of(redirects().listings, [&](const auto& l) { return same(l->file); });
}

void raw_line(std::string_view text) {
  const bool screen = on_host() ? !IOCOM.O6 : main_output().terminal();
  const bool terminal = IOCOM.LOUT == 0 && screen;
  do {
    Line row;
    row.text(text.substr(0, LINELEN));
    if (terminal) {
      for (int i = 0; i < LINELEN; ++i) {
        char& c = row.data()[i];
        if ((c >= 0 && c < ' ' && c != '\t') || c == '\x7f') c = ' ';
      }
    }
    OUTLINE();
    text.remove_prefix(std::min<std::size_t>(text.size(), LINELEN));
  } while (!text.empty());
}

}  // namespace korvel
