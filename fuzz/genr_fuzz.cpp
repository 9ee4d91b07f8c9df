// The formula compiler and both ways of the evaluator on a small workspace. The first byte picks
// the command and the switches, the rest is the statement.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include "engine/commands.h"
#include "engine/files.h"
#include "engine/output.h"
#include "engine/run.h"
#include "expr/expr.h"
#include "expr/trans.h"

namespace {

using namespace korvel;

constexpr int N = 12;
constexpr int MOSTVARS = 40;

void furnish(Workspace ws) {
  RESET(ws);
  OCOM = OCom{};
  RANCOM = RanCom{};
  OSCOM.OTALK = false;
  OSCOM.ORANST = true;
  for (const char* name : {"A", "B", "SHORT", "S", "T"}) {
    const int rows = name[0] == 'S' ? (name[1] == 'H' ? 7 : 1) : N;
    const int I = NEWVAR(ws, name, {.LEN = rows});
    double v = name[0] == 'B' ? -3.0 : 1.0;
    for (double& x : elements(ws, I)) x = v++;
  }
  ws.DATA(ws.KADD(VARNUM(ws, "T")) + 1) = MATRIX2;
  ws.DATA(ws.KADD(VARNUM(ws, "T")) + 3) = 3;
  DATCOM.IBEG = 1;
  DATCOM.IEND = N;
  DATCOM.NOBS = DATCOM.MAXOB = N;
}

// A number that stands for all data of the workspace; NaNs count alike.
std::uint64_t what_is_left(Workspace ws) {
  std::uint64_t hash = 1469598103934665603ULL;
  for (int a = 1; a <= ADDCOM.LASADD; ++a) {
    const double v = ws.DATA(a);
    std::uint64_t bits = 0;
    if (v == v) std::memcpy(&bits, &v, sizeof bits);
    hash = (hash ^ bits) * 1099511628211ULL;
  }
  return hash;
}

// Statements that are slow because they are asked to be: long draws, and fine integrals of them.
bool slow(const std::string& text) {
  return text.find("SAMP") != std::string::npos || text.size() > 2000;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool ready = [] {
    std::int64_t largest = 0;
    main_output().open("/dev/null");
    RUNCOM.settings.mirror_errors = false;
    return new_workspace(64, MOSTVARS, &largest);
  }();
  if (!ready || size < 1) return 0;
  static constexpr int KINDS[] = {K_GENR,     K_IF,       K_SKIPIF, K_ENDIF,
                                  K_DERIVATI, K_INTEGRAT, K_MATRIX, K_TEST};
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  LCUC(text.data(), static_cast<int>(text.size()));
  if (slow(text)) return 0;
  const Workspace ws = workspace();
  const int ikod = KINDS[data[0] & 7];
  std::uint64_t left[2] = {0, 0};
  for (const TransPath path : {TransPath::scalar, TransPath::blocks}) {
    furnish(ws);
    OSCOM.OSMISS = (data[0] & 8) != 0;
    OSCOM.OBACK = (data[0] & 16) != 0;
    OSCOM.ODMMP = (data[0] & 32) != 0;
    OSCOM.OUMIN = (data[0] & 64) == 0;
    OSCOM.OWARN = (data[0] & 128) == 0;
    DATCOM.MBEG = 1;
    // An integral that does not settle takes a million values at each observation.
    DATCOM.MEND = ikod == K_INTEGRAT ? 1 : N;
    GenrJob job;
    job.text = text;
    job.IKOD = ikod;
    TransJob trans;
    trans.IKOD = ikod;
    trans.path = path;
    trans.variable = VARNUM(ws, "A");
    if (ikod == K_INTEGRAT) job.integration = "U";
    trans.upper.value = 1.0;
    if (ikod == K_MATRIX || ikod == K_TEST) {  // compiled only
      Scratch room(ws, formula_words());
      if (room) GENR(ws, job, carve_formula(room.words()));
      continue;
    }
    run_formula(ws, job, trans);
    left[path == TransPath::blocks ? 1 : 0] = what_is_left(ws);
  }
  if (left[0] != left[1]) __builtin_trap();  // both ways leave the same data
  return 0;
}
