// Comma- and tab-separated files under READ. The first byte picks the options and the ending of the
// name. Besides not failing, a file must give the same variables whatever its line ends are.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "engine/run.h"
#include "engine/workspace.h"

namespace {

using namespace korvel;

constexpr std::string_view SETS[] = {
    "/ NAMES EOF", "/ NAMES EOF SKIPCOLS=1", "/ NAMES EOF SKIPLINE=1 SKIPROWS=1", "X Y / EOF",
    "X / EOF",     "/ NAMES OBS=3",          "X Y / EOF FORMAT=COMMA OBS=2",      "A / COLS=2 EOF",
};
constexpr std::string_view NAMES[] = {"data.csv", "data.tsv"};

bool enter_empty_folder() {
  char name[] = "/tmp/korvel_fuzz_XXXXXX";
  return mkdtemp(name) != nullptr && chdir(name) == 0;
}

// All elements of all variables after the READ, and how it ended.
std::vector<double> read(const std::string& text, std::string_view name,
                         const std::string& options) {
  const std::string file(name);
  std::ofstream(file, std::ios::binary) << text;
  RunSettings settings;
  settings.commands = "READ(" + file + ") " + options + "\n";
  settings.have_commands = true;
  settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = "/dev/null";
  settings.par = 64;
  settings.maxvar = 40;
  std::vector<double> all = {static_cast<double>(run_korvel(settings))};
  for (int i = 1; i <= DATCOM.NVARS; ++i) {
    const auto x = elements(workspace(), i);
    all.insert(all.end(), x.begin(), x.end());
  }
  return all;
}

bool same(const std::vector<double>& a, const std::vector<double>& b) {
  return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(double)) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered || size == 0 || size > 20000) return 0;
  const std::string text(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string_view name = NAMES[data[0] & 1];
  const unsigned choice = data[0] / 2U;
  const std::string options(SETS[choice % std::size(SETS)]);
  const std::vector<double> once = read(text, name, options);
  read(text, name, options + " CHARVARS=1");
  if (text.find_first_of("\r\x1F\xFE\xFF") != text.npos || text.find('\0') != text.npos) return 0;
  std::string other;
  for (const char c : text) other += c == '\n' ? "\r\n" : std::string(1, c);
  if (!same(once, read(other, name, options))) std::abort();
  return 0;
}
