#include "engine/files.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "engine/input.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"

namespace korvel {
namespace {

struct FreeText {
  void operator()(char* text) const { std::free(text); }  // NOLINT(cppcoreguidelines-no-malloc)
};

bool is_file(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && !S_ISDIR(st.st_mode);
}

// The name as typed, in upper and in lower case below a folder; empty when none is there.
std::string find_in(const std::string& folder, const std::string& name) {
  std::string low = name, high = name;
  for (char& c : high) c = upper(c);
  for (char& c : low) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
  }
  for (const std::string& form : {name, high, low}) {
    if (is_file(folder + form)) return folder + form;
  }
  return {};
}

// The working folder and what lies in it, links followed.
bool below_folder(const char* real, bool or_same) {
  const std::unique_ptr<char, FreeText> folder(realpath(".", nullptr));
  if (folder == nullptr || real == nullptr) return false;
  const std::string_view path(real);
  if (or_same && path == folder.get()) return true;
  const std::string below = std::string(folder.get()) + "/";
  return path.substr(0, below.size()) == below;
}

}  // namespace

std::string home_name(std::string_view typed) {
  std::string name(trimmed(typed));
  if (!name.empty() && name[0] == '~' && (name.size() == 1 || name[1] == '/')) {
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe)
    if (home != nullptr) name = home + name.substr(1);
  }
  return name;
}

std::string resolve_read_name(std::string_view typed) {
  const std::string name = home_name(typed);
  std::string found;
  if (name.find('/') == std::string::npos && !RUNCOM.path.empty()) {
    found = find_in(RUNCOM.path, name);
  }
  if (found.empty()) found = find_in("", name);
  if (!found.empty() || name.empty() || name[0] == '/') return found.empty() ? name : found;
  const auto slash = RUNCOM.settings.input.rfind('/');
  if (slash != std::string::npos) found = find_in(RUNCOM.settings.input.substr(0, slash + 1), name);
  return found.empty() ? name : found;
}

std::string resolve_write_name(std::string_view typed) {
  const std::string name = home_name(typed);
  return name.find('/') == std::string::npos ? RUNCOM.path + name : name;
}

bool file_allowed(const std::string& path) {
  if (!RUNCOM.settings.safe) return true;
  const std::unique_ptr<char, FreeText> file(realpath(path.c_str(), nullptr));
  if (file == nullptr) return errno == ENOENT;  // the open that follows says that it is not there
  return below_folder(file.get(), false);
}

bool output_allowed(const std::string& path) {
  if (!RUNCOM.settings.safe) return true;
  const std::unique_ptr<char, FreeText> file(realpath(path.c_str(), nullptr));
  if (file != nullptr) return below_folder(file.get(), false);
  // A new file: its folder decides; a link that leads nowhere yet could lead outside.
  struct stat link {};
  if (lstat(path.c_str(), &link) == 0) return false;
  const std::size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  const std::unique_ptr<char, FreeText> real(realpath(folder.c_str(), nullptr));
  return below_folder(real.get(), true);
}

bool file_of_run(const std::string& path) {
  struct stat target {
  }, other{};
  if (stat(path.c_str(), &target) != 0 || !S_ISREG(target.st_mode)) return false;
  const auto same = [&](const struct stat& st) {
    return st.st_dev == target.st_dev && st.st_ino == target.st_ino;
  };
  const int out = main_output().descriptor();
  if (out >= 0 && fstat(out, &other) == 0 && same(other)) return true;
  if (stat(RUNCOM.settings.input.c_str(), &other) == 0 && same(other)) return true;
  return is_command_input(target.st_dev, target.st_ino) ||
         is_redirect(target.st_dev, target.st_ino);
}

void refuse_in_safe_run() { fail(" ...ERROR..NOT ALLOWED IN A SAFE RUN"); }

TextOutput& main_output() {
  static TextOutput output;
  return output;
}

}  // namespace korvel
