// Databank files, asked for and loaded at first use, with and without a calendar.
#include <cstdint>

#include "data_file.h"

using namespace korvel_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered || size > 20000) return 0;
  put("X.DB", {reinterpret_cast<const char*>(data), size});
  unlink("a");
  unlink("b");
  if (run("READ X / DB\nSAVE(a)\nWRITE(t.db) X / DB ALL\n") == 0 &&
      run("READ(t.db) X / DB\nSAVE(b)\n") == 0 && get("a") != get("b")) {
    std::abort();
  }
  run("TIME 1980 4\nREAD X / DB\nREAD(X.DB)\n");
  run("SET DB\nSAMPLE 1 3\nGENR Y=X+1\nPRINT X\n");
  return 0;
}
