#include "engine/doctor.h"

#include <dlfcn.h>
#include <sys/resource.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

#include "engine/files.h"
#include "platform/child.h"
#include "platform/cpu.h"
#include "platform/memory.h"
#include "platform/parallel.h"

namespace korvel {
namespace {

constexpr std::size_t MIB = std::size_t{1} << 20;

void row(std::string& out, std::string_view what, const std::string& state) {
  constexpr std::size_t COLUMN = 22;
  out += "  ";
  out += what;
  if (what.size() < COLUMN) out.append(COLUMN - what.size(), ' ');
  out += state;
  out += '\n';
}

std::string install(std::string_view package) {
  return "missing; type:  sudo apt-get install " + std::string(package);
}

void program(std::string& out, const std::string& word, std::string_view package,
             std::string_view use) {
  const std::string path = find_program(word);
  const bool there = !path.empty() && access(path.c_str(), X_OK) == 0;
  row(out, word, (there ? path : install(package)) + "  (" + std::string(use) + ")");
}

void library(std::string& out, const char* file, std::string_view package, std::string_view use) {
  void* const handle = dlopen(file, RTLD_LAZY | RTLD_LOCAL);
  row(out, file, (handle != nullptr ? "found" : install(package)) + "  (" + std::string(use) + ")");
  if (handle != nullptr) dlclose(handle);
}

// A folder that files are made in: whether it can be written, and how much room it has.
void folder(std::string& out, std::string_view what, const std::string& path) {
  struct statvfs disk {};
  if (access(path.c_str(), W_OK | X_OK) != 0) {
    return row(out, what, path + " can't be written; name another one (TEMP=folder, FILE CD)");
  }
  std::string state = path;
  if (statvfs(path.c_str(), &disk) == 0) {
    const std::size_t free = std::size_t{disk.f_bavail} * disk.f_frsize;
    state += ", " + std::to_string(free / MIB) + " MiB free";
    if (free < MIB * 64) state += ": little; large results will not fit";
  }
  row(out, what, state);
}

std::string limit_text(int resource, rlim_t unit) {
  rlimit limit{};
  if (getrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0) return "unknown";
  if (limit.rlim_cur == RLIM_INFINITY) return "none";
  return std::to_string(limit.rlim_cur / unit);
}

}  // namespace

std::string doctor() {
  std::string out = "KORVEL 11.0\n\nProcessor and memory\n";
  const std::string_view widths[] = {"baseline", "AVX2", "AVX-512"};
  row(out, "vector width", std::string(widths[static_cast<int>(cpu_lanes())]));
  row(out, "threads", std::to_string(workers()));
  const std::size_t memory = available_memory();
  row(out, "memory to be had",
      std::to_string(memory / MIB) + " MiB, enough for PAR=" + std::to_string(memory / 1024));
  row(out, "limit of memory", limit_text(RLIMIT_AS, MIB) + " (MiB; ulimit -v)");
  row(out, "limit of a file", limit_text(RLIMIT_FSIZE, MIB) + " (MiB; ulimit -f)");
  row(out, "limit of open files", limit_text(RLIMIT_NOFILE, 1) + " (ulimit -n)");
  out += "\nFolders\n";
  const char* temp = std::getenv("TEMP");             // NOLINT(concurrency-mt-unsafe)
  if (temp == nullptr) temp = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
  folder(out, "temporary files", temp == nullptr ? "/tmp" : temp);
  folder(out, "working folder", ".");
  const std::string home = home_name("~");
  if (home == "~") {
    row(out, "HOME", "not set: the lines typed at the keyboard are not kept");
  } else {
    folder(out, "HOME", home);
  }
  out += "\nPrograms that commands start\n";
  program(out, "gnuplot", "gnuplot-nox", "plots");
  program(out, "gpg", "gnupg", "READ and WRITE with CRYPT");
  program(out, "xlsx2csv", "xlsx2csv", "READ of .xlsx files");
  out += "\nLibraries that are loaded when they are needed\n";
  library(out, "libedit.so.2", "libedit2", "editing and history at the keyboard");
  library(out, "libcurl.so.4", "libcurl4", "READ of http, https and ftp names");
  return out;
}

}  // namespace korvel
