// Whole runs: reader, dispatcher, tokeniser, options and every handler, on a small workspace. The
// input is a script; its output goes nowhere.
#include <cstdint>
#include <string>

#include <unistd.h>

#include <string_view>

#include "engine/run.h"

namespace {

// Files that a script names must not be met by chance: the run has a folder of its own.
bool enter_empty_folder() {
  char name[] = "/tmp/korvel_fuzz_XXXXXX";
  return mkdtemp(name) != nullptr && chdir(name) == 0;
}

// Scripts that ask for more memory or very long samples only cost time.
bool too_big(std::string_view script) {
  int digits = 0;
  for (std::size_t i = 0; i < script.size(); ++i) {
    digits = script[i] >= '0' && script[i] <= '9' ? digits + 1 : 0;
    if (digits > 5) return true;
    if (i > 0 && (script[i] | 32) == 'a' && (script[i - 1] | 32) == 'p') return true;
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered) return 0;
  korvel::RunSettings settings;
  settings.commands.assign(reinterpret_cast<const char*>(data), size);
  if (too_big(settings.commands)) return 0;
  settings.have_commands = true;
  settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = "/dev/null";
  settings.par = 64;
  settings.maxvar = 40;
  korvel::run_korvel(settings);
  return 0;
}
