#include "engine/units.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <vector>

#include "engine/files.h"
#include "engine/output.h"
#include "engine/run.h"

namespace korvel {
namespace {

struct Assignment {
  int unit = 0;
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

// Whether two names mean one file, links and other spellings included.
bool same_file(const struct stat& a, int descriptor) {
  struct stat b {};
  return descriptor >= 0 && fstat(descriptor, &b) == 0 && a.st_dev == b.st_dev &&
         a.st_ino == b.st_ino;
}

// A file that this run reads its commands from or prints to can't be written by a command.
bool in_use(const std::string& path) {
  struct stat target {};
  if (stat(path.c_str(), &target) != 0 || !S_ISREG(target.st_mode)) return false;
  if (same_file(target, main_output().descriptor())) return true;
  struct stat script {};
  return stat(RUNCOM.settings.input.c_str(), &script) == 0 && script.st_dev == target.st_dev &&
         script.st_ino == target.st_ino;
}

}  // namespace

std::string unit_path(int unit) {
  for (const Assignment& a : units().assigned) {
    if (a.unit == unit) return a.path;
  }
  return "fort." + std::to_string(unit);
}

bool reserved_unit(int unit) {
  if (unit != 2 && unit != 3 && unit != 8) return false;
  fail<"(' ...ERROR..UNIT', I2, ' IS RESERVED FOR INTERNAL USE')">(unit);
  return true;
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
  const std::string path = resolve_read_name(unit > 0 ? unit_path(unit) : std::string(typed));
  auto& open = units().open;
  const auto at = std::ranges::find_if(open, [&](const auto& u) { return u->path == path; });
  if (at != open.end()) {
    if (!rewind) return at->get();
    open.erase(at);
  }
  if (!file_allowed(path)) {
    refuse_in_safe_run();
    return nullptr;
  }
  auto fresh = std::make_unique<DataUnit>();
  fresh->unit = unit;
  fresh->path = path;
  errno = 0;
  fresh->text = open_text(path);
  if (fresh->text == nullptr) {
    if (errno == ENOENT) {
      error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(typed.empty() ? std::string_view(path)
                                                                           : typed);
      mark_failed();
    } else {
      fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(
          unit > 0 ? unit : NAMED_UNIT, errno, path);
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
  if (!file_allowed(path)) {
    refuse_in_safe_run();
    return false;
  }
  if (in_use(path)) {
    fail<"(' ...ERROR..FILE IS THE INPUT OR OUTPUT OF THIS RUN:', A)">(path);
    return false;
  }
  std::erase_if(units().open, [&](const auto& u) { return u->path == path; });
  if (file.open(path, mode)) return true;
  fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(
      unit > 0 ? unit : NAMED_UNIT, file.error(), path);
  return false;
}

bool commit_output_file(FileOutput& file) {
  if (file.commit()) return true;
  fail<"(' ...ERROR..WRITE ERROR ON FILE ', A, ': ', A)">(
      file.path(), std::generic_category().message(file.error()));
  return false;
}

bool AFILE(int unit, std::string_view typed) {
  std::erase_if(units().open, [&](const auto& u) { return u->unit == unit; });
  std::erase_if(units().assigned, [&](const Assignment& a) { return a.unit == unit; });
  if (!typed.empty()) units().assigned.push_back({unit, std::string(typed)});
  return true;
}

void close_data_files() { units().open.clear(); }

}  // namespace korvel
