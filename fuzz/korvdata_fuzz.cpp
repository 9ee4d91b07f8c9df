// Text containers, whole and under READ's options.
#include <cstdint>

#include "data_file.h"

using namespace korvel_fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered || size > 20000) return 0;
  put("data.in", {reinterpret_cast<const char*>(data), size});
  there_and_back();
  run("READ X\n1 2 3\nEND\nREAD(data.in) X / KORVEL\nREAD(data.in) Y Z / KORVEL\n");
  run("READ(data.in) X / KORVEL BEG=2 OBS=2\nREAD(data.in) / BINARY\nREAD(data.in) / EOF\n");
  return 0;
}
