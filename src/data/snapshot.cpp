// The snapshot of a run on a private file: COMMONDB in the manner of the databank routines.
//
// The results of the last estimate, the 54 switches and the temporaries, with a count in front of
// each. The saved estimate itself is not in it, so that tests want a new estimation afterwards.

#include <array>
#include <bit>
#include <cstring>
#include <memory>
#include <type_traits>

#include "data/containers.h"
#include "platform/file_output.h"
#include "platform/text_input.h"

namespace korvel {
namespace {

constexpr std::string_view SNAPSHOT_MAGIC = "-888888 ";
constexpr std::size_t NSWITCHES = 54;
static_assert(sizeof(OsCom) == NSWITCHES, "the switches and nothing else");

// What is kept, as it lies in the file.
struct Snapshot {
  char magic[8];
  std::int32_t size = sizeof(Snapshot);
  std::int32_t LHS = 0;
  std::int32_t KCOEF = 0;
  std::int32_t KCOV = 0;
  FCom results;
  std::int32_t switches = NSWITCHES;
  std::array<std::uint8_t, NSWITCHES> on{};
  std::int32_t temporaries = NTEMPS;
  std::array<double, NTEMPS> TEMVAL{};
};
static_assert(std::is_trivially_copyable_v<Snapshot>);

}  // namespace

bool write_snapshot(const std::string& path) {
  Snapshot s{};
  std::memcpy(s.magic, SNAPSHOT_MAGIC.data(), sizeof s.magic);
  s.LHS = GENCOM.LHS;
  s.KCOEF = ADDCOM.KCOEF;
  s.KCOV = ADDCOM.KCOV;
  s.results = FCOM;
  std::memcpy(s.on.data(), &OSCOM, NSWITCHES);
  s.TEMVAL = TEMCOM.TEMVAL;
  FileOutput file;
  if (!file.open(path, WriteMode::replace)) return false;
  file.write(&s, sizeof s);
  return file.commit();
}

bool read_snapshot(const std::string& path) {
  const std::unique_ptr<TextInput> file = open_text(path);
  if (file == nullptr) return false;
  const std::string_view bytes = file->rest();
  Snapshot s;
  if (bytes.size() != sizeof s) return false;
  std::memcpy(&s, bytes.data(), sizeof s);
  const bool known = std::string_view(s.magic, sizeof s.magic) == SNAPSHOT_MAGIC &&
                     s.size == sizeof(Snapshot) && s.switches == NSWITCHES &&
                     s.temporaries == NTEMPS;
  const auto variable = [](int I) { return I >= 0 && I <= DATCOM.NVARS; };
  if (!known || s.LHS < 0 || !variable(s.KCOEF) || !variable(s.KCOV)) return false;
  GENCOM.LHS = s.LHS;
  ADDCOM.KCOEF = s.KCOEF;
  ADDCOM.KCOV = s.KCOV;
  FCOM = s.results;
  std::array<bool, NSWITCHES> on;
  for (std::size_t k = 0; k < NSWITCHES; ++k) on[k] = (s.on[k] & 1) != 0;
  OSCOM = std::bit_cast<OsCom>(on);
  TEMCOM.TEMVAL = s.TEMVAL;
  clear_estimate();
  return true;
}

}  // namespace korvel
