// Jobs of FILE with files and folders.
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <vector>

#include "engine/file_command.h"
#include "engine/files.h"
#include "engine/output.h"
#include "engine/redirect.h"
#include "engine/run.h"
#include "engine/units.h"

namespace korvel {
namespace {

void missing(std::string_view name) {
  error_line<"(' ...WARNING..FILE DOES NOT EXIST:', A)">(name);
  mark_failed();
}

std::string working_folder() {
  char* whole = realpath(".", nullptr);
  std::string folder = whole == nullptr ? "." : whole;
  std::free(whole);  // NOLINT(cppcoreguidelines-no-malloc)
  return folder;
}

void no_folder(const std::string& path) {
  fail(" ...ERROR..DIRECTORY BELOW DOES NOT EXIST:");
  say<"(' PATH:', A)">(path);
}

}  // namespace

void list_file(std::string_view name) {
  const std::string path = resolve_read_name(name);
  main_output().flush();
  flush_redirects();
  errno = 0;
  const auto text = open_text(path);
  if (text == nullptr) {
    if (errno == ENOENT) return missing(name);
    return fail<"(' ...ERROR..OPEN ERROR ON UNIT', I0, ' ERROR=', I0, ' FILE=', A)">(NAMED_UNIT,
                                                                                     errno, path);
  }
  // A file that the lines are printed to grows while it is listed: only what is there now counts.
  const std::string_view now = text->whole() ? text->rest() : std::string_view{};
  std::string_view line;
  if (text->whole()) {
    for (std::size_t at = 0; at < now.size() && !stop_requested();) {
      const std::size_t end = std::min(now.find('\n', at), now.size());
      line = now.substr(at, end - at);
      if (line.ends_with('\r')) line.remove_suffix(1);
      raw_line(line);
      at = end + 1;
    }
    return;
  }
  while (!stop_requested() && text->line(line)) raw_line(line);
}

void list_folder(std::string_view name) {
  const std::string path = name.empty() ? "." : home_name(name);
  DIR* folder = opendir(path.c_str());
  if (folder == nullptr) return no_folder(path);
  std::vector<std::string> names;
  for (const dirent* entry = readdir(folder); entry != nullptr;
       entry = readdir(folder)) {  // NOLINT(concurrency-mt-unsafe)
    const std::string_view file = entry->d_name;
    if (file != "." && file != "..") names.emplace_back(file);
  }
  closedir(folder);
  std::ranges::sort(names);
  for (std::string& file : names) {
    if (stop_requested()) return;
    // A name may hold anything but "/": it stays one line and doesn't end its block.
    std::ranges::replace(file, '\n', '?');
    raw_line(" " + file);
  }
}

void print_folder() { raw_line(" " + working_folder()); }

void change_folder(std::string_view name) {
  if (name.empty()) return print_folder();
  const std::string path = home_name(name);
  const std::string before = working_folder();
  if (chdir(path.c_str()) != 0) return no_folder(path);
  pin_names(before);
}

void transfer_file(std::string_view url, bool text) {
  if (!is_url(url)) {
    return fail<"(' ...ERROR..NO ADDRESS, USE ftp://HOST/FILE OR http://HOST/FILE: ', A)">(url);
  }
  if (url.find('{') != std::string_view::npos && url.find('}') == std::string_view::npos) {
    fetch_url(url);  // says what is missing
    return;
  }
  // The last part of the address names the file.
  std::string address = shown_url(url);
  address.erase(std::min(address.find_first_of("?#"), address.size()));
  const std::string name = address.substr(address.rfind('/') + 1);
  if (name.empty() || name == "." || name == ".." || address.find('/', 8) == std::string::npos) {
    return fail<"(' ...ERROR..NO FILE NAME IN THE ADDRESS: ', A)">(address);
  }
  const std::string fetched = fetch_url(url);
  if (fetched.empty()) return;
  const auto source = open_text(fetched);
  FileOutput file;
  if (source != nullptr &&
      open_output_file(file, 0, RUNCOM.vftpath.empty() ? "./" + name : RUNCOM.vftpath + name,
                       WriteMode::replace)) {
    std::string_view line;
    if (text) {
      while (source->line(line)) {
        file.write(line);
        file.write("\n");
      }
    } else {
      file.write(source->rest());
    }
    if (commit_output_file(file) && OCOM.OPUT) {
      say<"(' ...NOTE..', I0, ' BYTES FETCHED INTO ', A)">(static_cast<std::int64_t>(file.bytes()),
                                                           file.path());
    }
  }
  unlink(fetched.c_str());
}

}  // namespace korvel
