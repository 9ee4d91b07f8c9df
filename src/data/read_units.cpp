#include "data/read_units.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "data/data.h"
#include "engine/files.h"
#include "engine/output.h"

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

// The name that a unit stands for: the one assigned to it, else fort.n.
std::string unit_path(int unit) {
  for (const Assignment& a : units().assigned) {
    if (a.unit == unit) return a.path;
  }
  return "fort." + std::to_string(unit);
}

}  // namespace

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

void assign_data_unit(int unit, std::string_view path) {
  std::erase_if(units().open, [&](const auto& u) { return u->unit == unit; });
  std::erase_if(units().assigned, [&](const Assignment& a) { return a.unit == unit; });
  if (!path.empty()) units().assigned.push_back({unit, std::string(path)});
}

void close_data_files() { units().open.clear(); }

}  // namespace korvel
