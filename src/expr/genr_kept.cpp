// Code lists kept from one pass of a loop to the next.

#include "expr/genr_kept.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <vector>

#include "engine/bodies.h"
#include "engine/commands.h"
#include "expr/operators.h"

namespace korvel {
namespace {

// A loop body has tens of statements, not hundreds; one place for each value of the hash.
constexpr std::size_t PLACES = 128;
constexpr std::size_t TEXT = 192, QUADS = 48, ENTRIES = 16, CONSTANTS = 24;

struct KeptList {
  // What it rests on.
  int length = 0;  // of the text, 0: the place is empty
  int IKOD = 0;
  int NVARS = 0, MAXVAR = 0, MXCOL = 0;
  bool OUMIN = false;
  std::uint64_t names = 0;  // NAMES_CHANGED
  std::array<char, TEXT> text;
  // What the compiler has made of it.
  int quads = 0;
  int LHS = 0, ICON = 0, KCON = 0, NLAG = 0, NSUM = 0, NTRS = 0, NR = 0, LHSROW = 0, LHSCOL = 0;
  bool OCALC = false;
  std::array<Quad, QUADS> code;
  std::array<std::int32_t, ENTRIES> list;
  std::array<double, CONSTANTS> constant;
};

std::vector<KeptList> kept;  // laid out when the first loop asks

std::string_view statement(const GenrJob& job) {
  return job.text.substr(static_cast<std::size_t>(job.ISTART));
}

// Fowler, Noll and Vo's hash, taken by words of 8 characters.
std::size_t place_of(std::string_view text) {
  std::uint64_t h = 1469598103934665603U;
  while (!text.empty()) {
    std::uint64_t word = 0;
    const std::size_t n = std::min<std::size_t>(text.size(), sizeof word);
    std::memcpy(&word, text.data(), n);
    h = (h ^ word) * 1099511628211U;
    text.remove_prefix(n);
  }
  return static_cast<std::size_t>((h >> 32) % PLACES);
}

// Whether this statement's list may be kept and looked for.
bool can_keep(const GenrJob& job) {
  if (levels().empty() || OSCOM.ODMMP || OSCOM.ODB || OSCOM.OSCAN) return false;
  if (job.parameter != nullptr || job.coefficient != nullptr || job.any_name) return false;
  switch (job.IKOD) {
    case K_GENR:
    case K_GEN1:
    case K_IF:
    case K_IF1:
    case K_ENDIF:
    case K_MATRIX:
      break;
    default:
      return false;
  }
  const std::string_view text = statement(job);
  return !text.empty() && text.size() <= TEXT && text.find('$') == std::string_view::npos;
}

// Puts the list of an earlier pass into the formula. False: there is none.
bool recall_list(const GenrJob& job, const Formula& formula) {
  if (kept.empty()) return false;
  const std::string_view text = statement(job);
  const KeptList& k = kept[place_of(text)];
  const bool same = static_cast<std::size_t>(k.length) == text.size() && k.IKOD == job.IKOD &&
                    k.NVARS == DATCOM.NVARS && k.MAXVAR == DATCOM.MAXVAR &&
                    k.MXCOL == DATCOM.MXCOL && k.OUMIN == OSCOM.OUMIN && k.names == NAMES_CHANGED &&
                    std::memcmp(k.text.data(), text.data(), text.size()) == 0;
  if (!same) return false;
  GENCOM.MGE = 4 * k.quads;
  GENCOM.LHS = k.LHS;
  GENCOM.ICON = k.ICON;
  GENCOM.KCON = k.KCON;
  GENCOM.NLAG = k.NLAG;
  GENCOM.NSUM = k.NSUM;
  GENCOM.NTRS = k.NTRS;
  GENCOM.NR = k.NR;
  GENCOM.LHSROW = k.LHSROW;
  GENCOM.LHSCOL = k.LHSCOL;
  OCOM.ONEWV = false;
  OCOM.OCALC = k.OCALC;
  std::copy_n(k.code.begin(), k.quads, formula.code.begin());
  std::copy_n(k.list.begin(), k.LHS, formula.list.begin());
  std::copy_n(k.constant.begin(), k.ICON - first_constant() + 1,
              formula.operands.begin() + (first_constant() - 1));
  return true;
}

// Keeps the list that GENR has just made.
void keep_list(const GenrJob& job, const Formula& formula) {
  const auto constants = static_cast<std::size_t>(GENCOM.ICON - first_constant() + 1);
  const std::span<const Quad> code = formula.list_of_quads();
  if (OCOM.ONEWV || code.size() > QUADS || static_cast<std::size_t>(GENCOM.LHS) > ENTRIES ||
      constants > CONSTANTS) {
    return;
  }
  // The note about undefined lags belongs to each pass.
  if (std::ranges::any_of(code, [](const Quad& q) { return q.code == OP_LAG; })) return;
  if (kept.empty()) kept.resize(PLACES);
  const std::string_view text = statement(job);
  KeptList& k = kept[place_of(text)];
  k.length = static_cast<int>(text.size());
  k.IKOD = job.IKOD;
  k.NVARS = DATCOM.NVARS;
  k.MAXVAR = DATCOM.MAXVAR;
  k.MXCOL = DATCOM.MXCOL;
  k.OUMIN = OSCOM.OUMIN;
  k.names = NAMES_CHANGED;
  std::ranges::copy(text, k.text.begin());
  k.quads = static_cast<int>(code.size());
  k.LHS = GENCOM.LHS;
  k.ICON = GENCOM.ICON;
  k.KCON = GENCOM.KCON;
  k.NLAG = GENCOM.NLAG;
  k.NSUM = GENCOM.NSUM;
  k.NTRS = GENCOM.NTRS;
  k.NR = GENCOM.NR;
  k.LHSROW = GENCOM.LHSROW;
  k.LHSCOL = GENCOM.LHSCOL;
  k.OCALC = OCOM.OCALC;
  std::ranges::copy(code, k.code.begin());
  std::copy_n(formula.list.begin(), k.LHS, k.list.begin());
  std::copy_n(formula.operands.begin() + (first_constant() - 1), constants, k.constant.begin());
}

}  // namespace

bool compile_statement(Workspace ws, const GenrJob& job, const Formula& formula) {
  const bool keep = can_keep(job);
  if (keep && recall_list(job, formula)) return true;
  if (!GENR(ws, job, formula) || OSCOM.OSCAN) return false;
  if (keep) keep_list(job, formula);
  return true;
}

}  // namespace korvel
