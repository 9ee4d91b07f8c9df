// DIF files. The first byte picks the options.
#include <cstdint>

#include "data_file.h"

using namespace korvel_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered || size == 0 || size > 20000) return 0;
  constexpr const char* SETS[] = {" / NAMES",           " A B",
                                  " A / ROWS=2 COLS=2", " / NAMES SKIPCOLS=1 SKIPROWS=1",
                                  " A / OBS=2 BEG=2",   " A B C / EOF"};
  put("data.dif", {reinterpret_cast<const char*>(data) + 1, size - 1});
  const std::string options = SETS[data[0] % std::size(SETS)];
  // What was read is written, and comes back the same.
  unlink("a");
  unlink("b");
  if (run("READ(data.dif)" + options + "\nSAVE(a)\nWRITE(t.dif) / NAMES\n") == 0 &&
      run("READ(t.dif) / NAMES\nSAVE(b)\n") == 0 && get("a") != get("b") &&
      options.find("NAMES") != std::string::npos && options.find("SKIP") == std::string::npos) {
    std::abort();
  }
  return 0;
}
