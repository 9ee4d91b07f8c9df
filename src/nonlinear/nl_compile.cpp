// Equations of NLINEAR to code lists: generated variables put in, names of coefficients collected,
// derivatives found, start values.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/commands.h"
#include "engine/output.h"
#include "expr/genr_work.h"
#include "expr/genrdf.h"
#include "expr/operators.h"
#include "nonlinear/nl_parts.h"

namespace korvel {
namespace {

constexpr int SPARE_NAMES = 50;  // names beyond NCOEF that are still counted for the message
constexpr double DEFAULT_START = 0.1;

bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool in_name(char c) { return NAMCHK(c) >= 0 || c == '_'; }

// A column that an EQ of GENRVAR defines, as text.
struct Generated {
  std::string name, formula;
};

// The name in front of "=", empty when the text has no left side.
std::string_view left_name(std::string_view text) {
  std::size_t at = text.find_first_not_of(' ');
  if (at == std::string_view::npos || NAMCHK(text[at]) != 1) return {};
  const std::size_t from = at;
  while (at < text.size() && in_name(text[at])) ++at;
  const std::string_view name = text.substr(from, std::min<std::size_t>(at - from, KEYLEN));
  while (at < text.size() && text[at] == ' ') ++at;
  return at < text.size() && text[at] == '=' ? name : std::string_view{};
}

// The text with the names of generated columns replaced by their formulas, from `at` on.
std::string put_in(std::string_view text, std::size_t at, std::span<const Generated> columns) {
  std::string out(text.substr(0, at));
  while (at < text.size()) {
    const std::size_t from = at;
    const char c = text[at];
    if (NAMCHK(c) == 1) {
      while (at < text.size() && in_name(text[at])) ++at;
      const std::string_view name = text.substr(from, std::min<std::size_t>(at - from, KEYLEN));
      const auto known = std::ranges::find(columns, name, &Generated::name);
      if (known != columns.end()) {
        out += '(' + known->formula + ')';
        continue;
      }
    } else if (is_digit(c) || c == '.' || c == '$') {  // a number may hold letters
      ++at;
      while (at < text.size() && (in_name(text[at]) || text[at] == '.')) ++at;
    } else {
      ++at;
    }
    out += text.substr(from, at - from);
  }
  return out;
}

// What the compiler asks for names of coefficients.
struct NameContext {
  std::vector<std::string>& names;
  int limit;
};

int coefficient_operand(void* context, std::string_view name) {
  NameContext& c = *static_cast<NameContext*>(context);
  const auto at = std::ranges::find(c.names, name);
  if (at != c.names.end()) return static_cast<int>(at - c.names.begin()) + 1;
  if (static_cast<int>(c.names.size()) >= c.limit) return 0;
  c.names.emplace_back(name);
  return static_cast<int>(c.names.size());
}

// The compiler's warnings were given when the line was read.
class Silence {
 public:
  Silence() : warnings_(OSCOM.OWARN), output_(OCOM.OPUT) { OSCOM.OWARN = OCOM.OPUT = false; }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() {
    OSCOM.OWARN = warnings_;
    OCOM.OPUT = output_;
  }

 private:
  bool warnings_, output_;
};

int place_in_list(std::vector<ListItem>& list, int var) {
  const auto at = std::ranges::find(list, var, &ListItem::var);
  if (at != list.end()) return static_cast<int>(at - list.begin());
  list.push_back(ListItem{.var = var, .name = {}});
  return static_cast<int>(list.size()) - 1;
}

// The code list and the operands of a compiled equation, without its END.
void take_code(const Formula& formula, int limit, NlEquation& eq) {
  const std::span<const Quad> all = formula.list_of_quads();
  const auto end = std::ranges::find(all, static_cast<std::int32_t>(OP_END), &Quad::code);
  eq.code.assign(all.begin(), end);
  eq.value = eq.code.back().result;
  eq.operands.assign(formula.operands.begin(), formula.operands.end());
  eq.first_entry = limit + 1;
  eq.entries.clear();
  for (int k = limit + 1; k <= GENCOM.LHS; ++k) eq.entries.push_back(formula.entry(k));
  eq.coefficient.clear();
  for (int k = 1; k <= limit; ++k) {
    const bool occurs =
        std::ranges::any_of(eq.code, [&](const Quad& q) { return q.left == k || q.right == k; });
    if (occurs) eq.coefficient.push_back(k - 1);
  }
  eq.derivative.assign(eq.coefficient.size(), 0);
}

bool find_derivatives(Workspace ws, NlEquation& eq) {
  const int n = static_cast<int>(eq.coefficient.size());
  if (n == 0) return true;
  Scratch words(ws, DerivativeRoom::words(n));
  if (!words) return false;
  const DerivativeRoom room = DerivativeRoom::carve(words.words(), n);
  std::vector<std::int32_t> operands;
  for (const int k : eq.coefficient) operands.push_back(k + 1);
  const GradientList list = gradient_list(eq.code, operands, room, eq.derivative, eq.operands);
  if (list.count == 0) {
    mark_failed();
    return false;
  }
  const std::span<const Quad> code = room.code.first(static_cast<std::size_t>(list.count));
  eq.code.assign(code.begin(), code.end());
  eq.value = list.value;
  return true;
}

// Whether a code list reads operand k.
bool reads(const NlEquation& eq, int k) {
  return std::ranges::any_of(eq.code, [&](const Quad& q) { return q.left == k || q.right == k; });
}

// Names of the autoregressive coefficients, behind those of the equations.
void name_errors(NlModel& m) {
  const auto number = [](int n) { return std::to_string(n); };
  for (int i = 1; i <= m.p; ++i) {
    if (m.neq == 1 || !(NLCOM.DRHO || NLCOM.ACROSS)) {
      m.names.push_back("RHO" + number(i));
      continue;
    }
    for (int j = 1; j <= m.neq; ++j) {
      if (!NLCOM.ACROSS) m.names.push_back("RHO" + number(i) + "_" + number(j));
      for (int l = 1; NLCOM.ACROSS && l <= m.neq; ++l) {
        m.names.push_back("R" + number(i) + "_" + number(j) + "_" + number(l));
      }
    }
  }
}

bool known_name(const NlModel& m, const std::string& name) {
  return std::ranges::find(m.names, name) != m.names.end();
}

// A conflict is easier to mend when the names are seen.
bool conflict(Workspace ws, const NlModel& m, int equations, int names) {
  fail<"(' ...ERROR..CONFLICT..', I3, ' EQ STATEMENTS AND ', I3, ' COEFFICIENTS FOUND')">(equations,
                                                                                          names);
  if (names > 0) {
    say(" COEFFICIENTS FOUND:");
    WordRows rows(8);
    for (int k = 0; k < names; ++k) rows.add(m.names[static_cast<std::size_t>(k)]);
    rows.end();
  }
  for (const NlStart& start : NLBLOCK.starts) {
    if (known_name(m, start.name)) continue;
    if (VARNUM(ws, start.name) != 0) {
      say<"(' ...NOTE..', A, ' IS A VARIABLE, NOT A COEFFICIENT')">(start.name);
    } else {
      say<"(' ...NOTE..', A, ' IS IN NO EQUATION')">(start.name);
    }
  }
  return false;
}

bool bad_start() { return bad_option_value("STARTING"); }

}  // namespace

bool expand_equations(Workspace ws, NlModel& m) {
  std::vector<Generated> columns;
  m.texts.clear();
  for (const std::string& text : NLBLOCK.equations) {
    const std::string_view name = left_name(text);
    const std::size_t right = name.empty() ? 0 : text.find('=') + 1;
    std::string whole = put_in(text, right, columns);
    if (whole.size() > LINMAX) {
      fail(" ...ERROR..STATEMENT TOO LONG");
      return false;
    }
    if (!NLCOM.GENRVAR || name.empty() || VARNUM(ws, name) != 0) {
      m.texts.push_back(std::move(whole));
    } else {
      columns.push_back({std::string(name), whole.substr(right)});
    }
  }
  return true;
}

bool compile_equation(Workspace ws, std::string_view text, int limit, bool derivatives,
                      std::vector<std::string>& names, NlEquation& eq) {
  Scratch words(ws, formula_words());
  if (!words) return false;
  const Formula formula = carve_formula(words.words());
  std::fill_n(formula.list.begin(), limit, 0);
  NameContext context{names, limit};
  GenrJob job;
  job.text = text;
  job.IKOD = K_EQ;
  job.parameter = coefficient_operand;
  job.context = &context;
  job.listed = limit;
  bool compiled = false;
  {
    const Silence silence;
    OCOM.OGENR = true;
    compiled = GENR(ws, job, formula);
    OCOM.OGENR = false;
  }
  if (!compiled) {
    mark_failed();
    return false;
  }
  // The left side: a series, or one column of a matrix; a name that is new means nothing.
  eq.dependent = -1;
  eq.y = nullptr;
  const int target = GENCOM.NTRS;
  const bool fresh = OCOM.ONEWV;
  OCOM.ONEWV = false;
  take_code(formula, limit, eq);
  if (fresh) {
    char* field = ws.name_field(target);
    const std::string name(field, KEYLEN);
    std::memset(field, ' ', NAMELEN);
    std::ranges::replace(eq.entries, target, 0);
    if (!NLMODEL.is_function()) {
      fail<"(' ...ERROR..VARIABLE ', A, ' DOES NOT EXIST.')">(right_trimmed(name));
      return false;
    }
  } else if (target < 0) {
    fail(" ...ERROR..SYNTAX ERROR");
    return false;
  } else if (target > 0 && !NLMODEL.is_function()) {
    const int column = GENCOM.LHSCOL;
    eq.dependent = column > 0 ? target * DATCOM.MXCOL + column : target;
  }
  return !derivatives || find_derivatives(ws, eq);
}

bool compile_equations(Workspace ws, NlModel& m) {
  // 1. The lists. A name counts once, in the order of its first appearance.
  const int limit = std::min(m.NCOEF + SPARE_NAMES, DATCOM.MAXVAR / 2);
  m.names.clear();
  m.list.clear();
  if (m.eq.size() < m.texts.size()) m.eq.resize(m.texts.size());
  const int found = static_cast<int>(m.texts.size());
  for (int j = 0; j < found; ++j) {
    const auto at = static_cast<std::size_t>(j);
    if (!compile_equation(ws, m.texts[at], limit, !NLCOM.NUMERIC, m.names, m.eq[at])) return false;
  }
  const int names = static_cast<int>(m.names.size());
  // 2. Numbers that must agree.
  if (m.p > 0) name_errors(m);
  const bool strange = std::ranges::any_of(
      NLBLOCK.starts, [&](const NlStart& start) { return !known_name(m, start.name); });
  if (found != m.neq || names != m.NCOEF || strange) return conflict(ws, m, found, names);
  m.K = static_cast<int>(m.names.size());
  // 3. The data variables that the lists read, each once.
  for (int j = 0; j < m.neq; ++j) {
    NlEquation& eq = m.eq[static_cast<std::size_t>(j)];
    if (eq.dependent > 0) eq.dependent = place_in_list(m.list, eq.dependent);
    eq.places.assign(eq.entries.size(), -1);
    for (std::size_t i = 0; i < eq.entries.size(); ++i) {
      const int operand = eq.first_entry + static_cast<int>(i);
      const int var = eq.entries[i];
      if (var <= 0 || !reads(eq, operand)) continue;
      const Place place = INFO(ws, var);
      if (OCOM.ODONT) return false;
      if (place.LEN == 1 && place.ITYPE < STRING5) {  // a scalar is the same for all rows
        eq.operands[static_cast<std::size_t>(operand) - 1] = elements(ws, var)[0];
      } else {
        eq.places[i] = place_in_list(m.list, var);
      }
    }
  }
  m.variables = static_cast<int>(m.list.size());
  return true;
}

bool settle_start(Workspace ws, NlModel& m) {
  const auto K = static_cast<std::size_t>(m.K);
  const auto NCOEF = static_cast<std::size_t>(m.NCOEF);
  std::fill_n(m.b.begin(), NCOEF, DEFAULT_START);
  std::fill(m.b.begin() + m.NCOEF, m.b.end(), 0.0);
  if (NLCOM.SAME) {
    const std::span<const double> last = last_coefficients();
    if (last.size() != K && last.size() != NCOEF) {
      fail(" ...ERROR..SAME OPTION NEEDS PREVIOUS NL OR MLE COMMAND");
      return false;
    }
    std::ranges::copy(last, m.b.begin());
  }
  if (!NLCOM.STARTING.text.empty()) {
    const std::span<const double> start = elements(ws, NLCOM.STARTING.var);
    if (start.size() < NCOEF || INFO(ws, NLCOM.STARTING.var).ITYPE >= STRING5) {
      fail<"(' ...ERROR..START= VARIABLE HAS', I6, ' VALUES, NCOEF=', I6)">(start.size(), m.NCOEF);
      return false;
    }
    std::copy_n(start.begin(), start.size() >= K ? K : NCOEF, m.b.begin());
  }
  if (NLCOM.IN != 0 && !read_parameters(NLCOM.IN, "NL", m.b)) return false;
  for (const NlStart& start : NLBLOCK.starts) {
    const auto at = std::ranges::find(m.names, start.name);
    m.b[static_cast<std::size_t>(at - m.names.begin())] = start.value;
  }
  const bool finite = std::ranges::all_of(m.b, [](double b) { return std::isfinite(b); });
  return finite || bad_start();
}

}  // namespace korvel
