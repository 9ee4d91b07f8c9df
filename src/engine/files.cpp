#include "engine/files.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "engine/output.h"
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

// The name with a leading "~" replaced by HOME.
std::string home_name(std::string_view typed) {
  std::string name(trimmed(typed));
  if (!name.empty() && name[0] == '~' && (name.size() == 1 || name[1] == '/')) {
    const char* home = std::getenv("HOME");  // NOLINT(concurrency-mt-unsafe)
    if (home != nullptr) name = home + name.substr(1);
  }
  return name;
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

}  // namespace

std::string resolve_read_name(std::string_view typed) {
  const std::string name = home_name(typed);
  std::string found = find_in("", name);
  if (!found.empty() || name.empty() || name[0] == '/') return found.empty() ? name : found;
  const auto slash = RUNCOM.settings.input.rfind('/');
  if (slash != std::string::npos) found = find_in(RUNCOM.settings.input.substr(0, slash + 1), name);
  return found.empty() ? name : found;
}

std::string resolve_write_name(std::string_view typed) { return home_name(typed); }

bool file_allowed(const std::string& path) {
  if (!RUNCOM.settings.safe) return true;
  const std::unique_ptr<char, FreeText> folder(realpath(".", nullptr));
  const std::unique_ptr<char, FreeText> file(realpath(path.c_str(), nullptr));
  if (file == nullptr) return errno == ENOENT;  // the open that follows says that it is not there
  const std::string below = std::string(folder == nullptr ? "" : folder.get()) + "/";
  return folder != nullptr && std::string_view(file.get()).substr(0, below.size()) == below;
}

void refuse_in_safe_run() { fail(" ...ERROR..NOT ALLOWED IN A SAFE RUN"); }

TextOutput& main_output() {
  static TextOutput output;
  return output;
}

}  // namespace korvel
