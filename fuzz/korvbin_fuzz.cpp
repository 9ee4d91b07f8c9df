// Binary containers: the bytes as they are, and cut into records whose frames match, so that what
// lies behind the frames is met as well.
#include <algorithm>
#include <cstdint>

#include "data_file.h"

using namespace korvel_fuzz;

namespace {

std::string framed(const std::string& record) {
  std::string n(4, '\0');
  for (std::size_t k = 0; k < 4; ++k) n[k] = static_cast<char>(record.size() >> (8 * k) & 255);
  return n + record + n;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool entered = enter_empty_folder();
  if (!entered || size > 20000) return 0;
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  constexpr std::size_t HEAD = 216, FRONT = 24;
  std::string records = framed("KORVBIN ");
  if (size > FRONT + HEAD) {  // the places that these bytes have in a whole file
    records += framed(bytes.substr(FRONT - 4, HEAD));
    records += framed(bytes.substr(FRONT + HEAD));
  }
  for (const std::string& text : {bytes, records}) {
    put("data.in", text);
    there_and_back();
    run("READ X\n1 2 3\nEND\nREAD(data.in) X / BINARY\nREAD(data.in) Y Z / BINARY\n");
    run("READ(data.in) X / SBINARY BEG=2 OBS=2\nREAD(data.in) / KORVEL\n");
  }
  return 0;
}
