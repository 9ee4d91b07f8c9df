// AFILE, AFILO and the places where READ stopped.
#include "engine/units.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "engine/files.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"

namespace korvel {
namespace {

struct Assignment {
  int unit = 0;
  std::string shown;  // the name in messages
  std::string path;
};
struct Units {
  std::vector<std::unique_ptr<DataUnit>> open;
  std::vector<Assignment> assigned;
};
Units& units() {
  static Units u;
  return u;
}

Assignment* assignment(int unit) {
  const auto at = std::ranges::find(units().assigned, unit, &Assignment::unit);
  return at == units().assigned.end() ? nullptr : &*at;
}

// The open place of a unit: by its number, or by the file it stands for.
DataUnit* open_place(int unit) {
  const std::string name = unit_path(unit);
  const std::string path = is_url(name) ? shown_url(name) : resolve_read_name(name);
  for (const auto& u : units().open) {
    if (u->unit == unit || u->path == path) return u.get();
  }
  return nullptr;
}

void open_error(int unit, int error, std::string_view path) {
  fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(
      unit > 0 ? unit : NAMED_UNIT, error, path);
}

// The text that a name stands for; null with errno set, or 0 when the failure has been reported. A
// fetched file leaves the disk as soon as it is open.
std::unique_ptr<TextInput> open_named(const std::string& name) {
  if (!is_url(name)) {
    errno = 0;
    return open_text(name);
  }
  const std::string fetched = fetch_url(name);
  if (fetched.empty()) {
    errno = 0;
    return nullptr;
  }
  auto text = open_text(fetched);
  const int cause = errno;
  unlink(fetched.c_str());
  errno = cause;
  return text;
}

}  // namespace

std::string unit_path(int unit) {
  const Assignment* a = assignment(unit);
  return a != nullptr ? a->path : "fort." + std::to_string(unit);
}

bool unit_assigned(int unit) { return assignment(unit) != nullptr; }

bool reserved_unit(int unit) {
  if (unit != 2 && unit != 3 && unit != 8) return false;
  fail<"(' ...ERROR..UNIT', I2, ' IS RESERVED FOR INTERNAL USE')">(unit);
  return true;
}

bool user_unit(int unit) {
  if (reserved_unit(unit)) return false;
  if (unit == IOCOM.L7 || (unit >= USER_FIRST && unit <= USER_LAST)) return true;
  fail<"(' ...ERROR..UNIT', I0, ' CAN NOT BE USED, UNITS FOR FILES ARE', I3, ' TO', I3)">(
      unit, USER_FIRST, USER_LAST);
  return false;
}

void DataUnit::backspace() {
  if (!text->whole() || passed == 0) return;
  const std::int64_t lines = text->line_number();
  text->rewind();
  const std::string_view before = text->rest().substr(0, passed);
  const std::size_t last = before.back() == '\n' ? before.size() - 1 : before.size();
  const std::size_t start = before.substr(0, last).rfind('\n');
  passed = start == std::string_view::npos ? 0 : start + 1;
  text->skip(passed, std::max<std::int64_t>(lines - 1, 0));
}

DataUnit* open_data_unit(int unit, std::string_view typed, bool rewind) {
  const std::string name = unit > 0 ? unit_path(unit) : std::string(trimmed(typed));
  const std::string path = is_url(name) ? shown_url(name) : resolve_read_name(name);
  auto& open = units().open;
  const auto at = std::ranges::find_if(open, [&](const auto& u) { return u->path == path; });
  if (at != open.end()) {
    if (!rewind) return at->get();
    open.erase(at);
  }
  if (!is_url(path) && !file_allowed(path)) {
    refuse_in_safe_run();
    return nullptr;
  }
  flush_redirects();  // what was printed to the file stands in it
  auto fresh = std::make_unique<DataUnit>();
  fresh->unit = unit;
  fresh->path = path;
  fresh->text = open_named(is_url(name) ? name : path);
  if (fresh->text == nullptr) {
    const int cause = errno;
    if (cause == ENOENT) {
      error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(typed.empty() ? std::string_view(path)
                                                                           : typed);
      mark_failed();
    } else if (cause != 0 || !OCOM.ODONT) {
      open_error(unit, cause, path);
    }
    return nullptr;
  }
  open.push_back(std::move(fresh));
  return open.back().get();
}

void close_data_unit(DataUnit* unit) {
  std::erase_if(units().open, [&](const auto& u) { return u.get() == unit; });
}

bool open_output_file(FileOutput& file, int unit, std::string_view typed, WriteMode mode) {
  const std::string path = unit > 0 ? unit_path(unit) : resolve_write_name(typed);
  if (!output_allowed(path)) {
    refuse_in_safe_run();
    return false;
  }
  if (file_of_run(path)) {
    fail<"(' ...ERROR..FILE IS THE INPUT OR OUTPUT OF THIS RUN:', A)">(path);
    return false;
  }
  struct stat st {};
  if (is_url(path)) {
    open_error(unit, ENOTSUP, shown_url(path));
    return false;
  }
  if (unit > 0 && !unit_assigned(unit) && lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
    open_error(unit, ELOOP, path);  // nobody named this file: a link there was put for us
    return false;
  }
  std::erase_if(units().open, [&](const auto& u) { return u->path == path; });
  if (file.open(path, mode)) return true;
  open_error(unit, file.error(), path);
  return false;
}

bool commit_output_file(FileOutput& file) {
  if (file.commit()) return true;
  fail<"(' ...ERROR..WRITE ERROR ON FILE ', A, ': ', A)">(
      file.path(), std::generic_category().message(file.error()));
  return false;
}

bool AFILE(int unit, std::string_view typed) {
  const Trace trace("AFILE");
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  if (!user_unit(unit)) return false;
  // 1. Released.
  if (typed.empty()) {
    if (!close_unit(unit)) return false;
    std::erase_if(units().assigned, [&](const Assignment& a) { return a.unit == unit; });
    say<"(' UNIT', I0, ' IS RELEASED')">(unit);
    return true;
  }
  // 2. A unit that is in use is closed, with a note.
  const Assignment* old = assignment(unit);
  if (old != nullptr) {
    if (OCOM.OPUT) inquire_unit(unit);
    if (!close_unit(unit)) return false;
  }
  // 3. The file. It need not be there yet; a name that can't be looked up is refused.
  Assignment fresh{unit, std::string(typed), resolve_write_name(typed)};
  if (is_url(typed)) {
    fresh.path = trimmed(typed);
    fresh.shown = shown_url(typed);
  } else {
    struct stat st {};
    if (stat(fresh.path.c_str(), &st) != 0 && errno != ENOENT) {
      fail<"(' ...ERROR..INQUIRE ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(unit, errno,
                                                                                   fresh.path);
      return false;
    }
    if (S_ISDIR(st.st_mode)) {
      open_error(unit, EISDIR, fresh.path);
      return false;
    }
  }
  begin_web_form(typed);
  std::erase_if(units().assigned, [&](const Assignment& a) { return a.unit == unit; });
  units().assigned.push_back(std::move(fresh));
  return true;
}

bool AFILO(TextOutput& file, int unit, const std::string& path, const FileAttributes& attributes) {
  if (RUNCOM.settings.safe) {
    refuse_in_safe_run();
    return false;
  }
  if (file.change(path, attributes.position == "APPEND", attributes.links)) {
    std::erase_if(units().open, [&](const auto& u) { return u->path == path; });
    return true;
  }
  const int cause = errno;
  open_error(unit, cause, path);
  if (OSCOM.ODMMP) {
    say(" ...ERROR..FILE OPEN PROBLEM:");
    say<"(' VCAR:', A)">(attributes.carriage);
    say(" VF:FORMATTED");
    say<"(' VPOS:', A)">(attributes.position);
    say(" VACC:SEQUENTIAL");
    say<"(' VSTA:', A)">(attributes.status);
    say(" IBLOCK:0");
    say<"(' IOS:', I0)">(cause);
  }
  return false;
}

bool open_scratch_unit(int& unit, int n) {
  if (unit >= 0) return true;
  const std::string path = private_file("KORV_" + std::to_string(n));
  if (path.empty()) return false;
  TextOutput file;
  if (!file.change(path, false, false)) {
    open_error(n, errno, path);
    return false;
  }
  units().assigned.push_back({n, path, path});
  unit = n;
  return true;
}

void inquire_unit(int unit) {
  const Assignment* a = assignment(unit);
  if (a != nullptr) {
    say<"(' ...NOTE..UNIT', I0, ' IS CURRENTLY ASSIGNED TO: ', A)">(unit, a->shown);
  } else if (open_place(unit) != nullptr || IOCOM.LOUT == unit) {
    say<"(' ...NOTE..UNIT', I0, ' IS CURRENTLY ASSIGNED TO: ', A)">(unit, unit_path(unit));
  } else {
    say<"(' ...NOTE..UNIT ', I0, ' IS NOT OPEN')">(unit);
  }
}

void rewind_unit(int unit) { close_data_unit(open_place(unit)); }

void backspace_unit(int unit) {
  if (DataUnit* place = open_place(unit)) {
    place->backspace();
  } else {
    say<"(' ...NOTE..UNIT ', I0, ' IS NOT OPEN')">(unit);
  }
}

bool close_unit(int unit) {
  close_data_unit(open_place(unit));
  const int error = close_listing(unit);
  if (error == 0) return true;
  fail<"(' ...ERROR..CLOSE ERROR ON UNIT', I0, ' ERROR=', I0)">(unit, error);
  return false;
}

void pin_names(const std::string& folder) {
  const auto pin = [&](std::string& path) {
    if (!path.empty() && path[0] != '/' && !is_url(path)) path = folder + "/" + path;
  };
  for (const auto& u : units().open) pin(u->path);
  for (Assignment& a : units().assigned) pin(a.path);
  for (std::string* path : {&RUNCOM.path, &RUNCOM.vproc, &RUNCOM.vtemp, &RUNCOM.vgnu,
                            &RUNCOM.vftpath, &RUNCOM.settings.output}) {
    if (*path != "-") pin(*path);
  }
  if (RUNCOM.settings.input != "-") pin(RUNCOM.settings.input);
}

void close_data_files() { units().open.clear(); }

void release_units() {
  units().assigned.clear();
  const IoCom start;
  IOCOM.L2 = start.L2;
  IOCOM.L3 = start.L3;
  IOCOM.L8 = start.L8;
  IOCOM.L10 = start.L10;
}

}  // namespace korvel
