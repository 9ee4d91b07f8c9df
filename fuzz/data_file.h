// What the fuzz targets of the data files share: a folder of their own, and short runs in it.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "engine/run.h"

namespace korvel_fuzz {

inline bool enter_empty_folder() {
  char name[] = "/tmp/korvel_fuzz_XXXXXX";
  return mkdtemp(name) != nullptr && chdir(name) == 0;
}

inline int run(const std::string& commands) {
  korvel::RunSettings settings;
  settings.commands = commands;
  settings.have_commands = true;
  settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = "/dev/null";
  settings.par = 64;
  settings.maxvar = 40;
  return korvel::run_korvel(settings);
}

inline void put(const char* name, const std::string& bytes) {
  std::ofstream(name, std::ios::binary) << bytes;
}
inline std::string get(const char* name) {
  std::ifstream in(name, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// What could be read from data.in must come out the same after a way through the text container and
// one through the binary one.
inline void there_and_back() {
  unlink("a");
  unlink("b");
  if (run("RESTORE(data.in)\nSAVE(a)\nDELETE / ALL_\nRESTORE(a)\nSAVE(t) / KORVEL\n"
          "DELETE / ALL_\nRESTORE(t)\nSAVE(b)\n") == 0 &&
      get("a") != get("b")) {
    std::abort();
  }
}

}  // namespace korvel_fuzz
