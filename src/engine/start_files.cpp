#include "engine/start_files.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>

#include "engine/output.h"
#include "platform/file_output.h"

namespace korvel {
namespace {

constexpr std::string_view SETTINGS_FILE = "KORVELWX.INI";
constexpr std::string_view START_FILE = "CONFIG.KOR";
constexpr std::size_t MOST_BYTES = std::size_t{1} << 20;

constexpr std::array<std::string_view, 6> KEYS = {"IPAR",  "IMAX",  "VPREF",
                                                  "VTEMP", "VUSER", "VPROC"};
using Values = std::array<std::string, KEYS.size()>;  // as the file holds them

// The text of a file that the user or root owns; empty when it is not there. What is refused is
// told in `complaint`.
std::string own_file(const std::string& path, std::string& complaint) {
  std::string text;
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return text;
  struct stat st {};
  const bool known = fstat(fd, &st) == 0;
  if (!known || !S_ISREG(st.st_mode) || (st.st_uid != geteuid() && st.st_uid != 0) ||
      (st.st_mode & S_IWOTH) != 0) {
    complaint = "NOT READ, IT MUST BELONG TO YOU AND NOBODY ELSE MAY WRITE IT: " + path;
  } else if (static_cast<std::size_t>(st.st_size) > MOST_BYTES) {
    complaint = "NOT READ, IT IS TOO LARGE: " + path;
  } else {
    text.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    while (done < text.size()) {
      const ssize_t n = read(fd, text.data() + done, text.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    text.resize(done);
  }
  close(fd);
  return text;
}

Values values_of(std::string_view text) {
  Values values;
  for (std::string& value : values) {
    const auto end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    if (line.ends_with('\r')) line.remove_suffix(1);
    value = trimmed(line);
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return values;
}

// A blank value is 0. False when it is no whole number of the range.
bool whole_number(std::string_view text, std::int64_t most, std::int64_t& n) {
  n = 0;
  if (text.empty()) return true;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), n);
  return error == std::errc{} && end == text.data() + text.size() && n >= 0 && n <= most;
}

constexpr std::int64_t MOST_PAR = 16777215, MOST_VARS = 999999;

std::string folder_name(std::string name) {
  if (!name.empty() && !name.ends_with('/')) name += '/';
  return name;
}

}  // namespace

std::string module_folder() {
  Dl_info info{};
  link_map* map = nullptr;
  std::string file = "/proc/self/exe";  // linked into the program itself
  const bool found = dladdr1(reinterpret_cast<void*>(&module_folder), &info,
                             reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) != 0;
  if (found && map != nullptr && map->l_name != nullptr && map->l_name[0] != '\0') {
    file = map->l_name;
  }
  char* whole = realpath(file.c_str(), nullptr);
  if (whole == nullptr) return {};
  const std::string path = whole;
  std::free(whole);  // NOLINT(cppcoreguidelines-no-malloc)
  return path.substr(0, path.rfind('/') + 1);
}

Configuration read_configuration(std::string& complaint) {
  const std::string folder = module_folder();
  if (folder.empty()) return {};
  const std::string path = folder + std::string(SETTINGS_FILE);
  const Values values = values_of(own_file(path, complaint));
  Configuration c;
  std::int64_t IMAX = 0;
  if (!whole_number(values[0], MOST_PAR, c.IPAR) || !whole_number(values[1], MOST_VARS, IMAX)) {
    complaint = "LINES 1 AND 2 MUST BE WHOLE NUMBERS: " + path;
    c.IPAR = IMAX = 0;
  }
  c.IMAX = static_cast<int>(IMAX);
  c.VPREF = folder_name(values[2]);
  c.VTEMP = folder_name(values[3]);
  c.VUSER = folder_name(values[4]);
  c.VPROC = folder_name(values[5]);
  return c;
}

int store_configuration(std::string_view lines) {
  const std::string folder = module_folder();
  if (folder.empty()) return ENOENT;
  const std::string path = folder + std::string(SETTINGS_FILE);
  std::string complaint;
  Values values = values_of(own_file(path, complaint));
  if (!complaint.empty()) return EPERM;
  while (!lines.empty()) {
    const auto end = std::min(lines.find('\n'), lines.size());
    const std::string_view line = trimmed(lines.substr(0, end));
    lines.remove_prefix(std::min(end + 1, lines.size()));
    if (line.empty()) continue;
    const auto sign = line.find('=');
    const auto key = std::ranges::find(KEYS, trimmed(line.substr(0, sign)));
    if (sign == std::string_view::npos || key == KEYS.end()) return EINVAL;
    const auto place = static_cast<std::size_t>(key - KEYS.begin());
    values[place] = trimmed(line.substr(sign + 1));
    std::int64_t n = 0;
    if (place < 2 && !whole_number(values[place], place == 0 ? MOST_PAR : MOST_VARS, n))
      return EINVAL;
  }
  FileOutput file;
  if (!file.open(path, WriteMode::replace)) return file.error();
  for (const std::string& value : values) file.write(value + "\n");
  return file.commit() ? 0 : file.error();
}

std::unique_ptr<TextInput> open_start_file(const std::string& folder, std::string& complaint) {
  if (folder.empty()) return nullptr;
  const std::string path = folder + std::string(START_FILE);
  std::string text = own_file(path, complaint);
  if (text.empty()) return nullptr;
  return memory_text(std::move(text), path);
}

}  // namespace korvel
