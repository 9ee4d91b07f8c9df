// The model of SYSTEM, 2SLS and INST: the list of the command, the lines of the block, the columns.

#include <algorithm>
#include <cmath>

#include "engine/commands.h"
#include "engine/input.h"
#include "engine/output.h"
#include "engine/run.h"
#include "regress/systems.h"

namespace korvel {
namespace {

constexpr std::string_view NO_LAST_EQUATION =
    " ...ERROR..END OF INPUT BEFORE THE LAST EQUATION OF THE SYSTEM";
constexpr std::string_view NOT_OF_BLOCK =
    " ...ERROR..ABOVE COMMAND IGNORED, IS NOT ALLOWED AT THIS TIME";

bool same_column(const ListItem& a, const ListItem& b) { return a.var == b.var && a.lag == b.lag; }

bool listed(std::span<const ListItem> list, const ListItem& item) {
  return std::ranges::any_of(list, [&](const ListItem& i) { return same_column(i, item); });
}

// Adds a listed variable, a matrix by its columns. False after an error.
bool add_listed(Workspace ws, ListItem item, std::vector<ListItem>& to) {
  if (item.order != 0 || item.endcon != 0) {
    fail<"(' ...ERROR..LAGS OF ', A, ' ON A POLYNOMIAL ARE NOT ALLOWED HERE')">(NAME(ws, item.var));
    return false;
  }
  item.name = {};
  item.group = false;
  int columns = 1;
  if (item.var > 0 && item.var <= DATCOM.MAXVAR && !OSCOM.OSCAN) {
    const Place place = INFO(ws, item.var);
    if (place.ITYPE == MATRIX2 && place.columns() > 1) {
      columns = place.N2;
      item.var = item.var * DATCOM.MXCOL + 1;
    }
  }
  for (int c = 0; c < columns; ++c, ++item.var) to.push_back(item);
  return true;
}

// An exogenous variable; listed twice it counts once.
bool add_exogenous(Workspace ws, const ListItem& item, SystemModel& model) {
  const std::size_t before = model.exogs.size();
  if (!add_listed(ws, item, model.exogs)) return false;
  for (std::size_t i = before; i < model.exogs.size();) {
    if (listed(std::span(model.exogs).first(i), model.exogs[i]))
      model.exogs.erase(model.exogs.begin() + static_cast<std::ptrdiff_t>(i));
    else
      ++i;
  }
  return true;
}

// Appends the equation of a list: its dependent variable, then regressors that `is_regressor`
// takes.
template <class F>
bool add_equation(Workspace ws, std::span<const ListItem> list, SystemModel& model,
                  F&& is_regressor) {
  SavedEquation equation;
  equation.first = model.K();
  equation.dependent = list[0];
  equation.dependent.name = {};
  if (list[0].order != 0) return add_listed(ws, list[0], model.list);  // reports it
  for (const ListItem& item : list.subspan(1)) {
    if (!is_regressor(item)) continue;
    if (same_column(item, list[0])) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS ON BOTH SIDES OF EQUATION')">(NAME(ws, item.var));
      return false;
    }
    if (!add_listed(ws, item, model.list)) return false;
  }
  if (model.constant) model.list.push_back(ListItem{.var = DATCOM.MCON, .name = {}});
  equation.K = model.K() - equation.first;
  if (equation.K == 0) {
    fail(" ...ERROR..INSUFFICIENT NUMBER OF VARIABLES SPECIFIED");
    return false;
  }
  model.equation.push_back(equation);
  ++model.M;
  return true;
}

bool stop_command() {
  return INPCOM.IKOD == K_STOP || INPCOM.IKOD == K_QUIT || INPCOM.IKOD == K_EXIT;
}

// What an equation line must be. False after an error.
bool good_equation() {
  if (SCNCOM.NF == 0) {
    fail(" ...ERROR..INSUFFICIENT NUMBER OF VARIABLES SPECIFIED");
    return false;
  }
  if (SCNCOM.NFPAR > 0) {
    fail(" ...ERROR..PARENTHESES ARE NOT ALLOWED IN AN EQUATION OF A SYSTEM");
    return false;
  }
  return true;
}

// The rest of a block that isn't run: `left` equations, then restrictions up to their END. In talk
// there is no block: the person goes on at the prompt; without CONTINUE nothing is run any more.
void pass_over_lines(Workspace ws, int left) {
  if (OSCOM.OTALK || !OSCOM.OCONT || left < 0) return;
  const OpenBlock block;
  for (bool restricted = false;;) {
    INPUT(ws);
    if (RUNCOM.ended || OCOM.OEOF || stop_requested()) return;
    if (INPCOM.IKOD == K_OLSQ && left > 0) {
      --left;
    } else if (INPCOM.IKOD == K_RESTRICT) {
      left = 0;
      restricted = true;
    } else {
      if (INPCOM.IKOD != K_END || !restricted) give_back_command();
      return;
    }
  }
}

// The number of equations when it stands there as a number, -1: it isn't known.
int plain_count() {
  const Number n = FSUMS(SCNCOM.count);
  const bool plain = n.used > 0 && n.used == static_cast<int>(SCNCOM.count.size());
  return plain && n.value >= 1.0 && n.value <= DATCOM.MAXVAR ? static_cast<int>(n.value) : -1;
}

// The next line of the block, which must be an equation. False after an error. `left` counts the
// equations that are still to come.
bool next_equation(Workspace ws, int& left) {
  const int failures = RUNCOM.failures;
  INPUT(ws);
  --left;
  if (RUNCOM.ended || stop_requested()) {
    OCOM.ODONT = true;
    return false;
  }
  if (OCOM.OEOF) {
    fail(NO_LAST_EQUATION);
    return false;
  }
  // An unknown word has been reported and passed over by the reader; a person types the line again.
  if (RUNCOM.failures != failures && !OSCOM.OTALK) {
    left -= RUNCOM.failures - failures;
    if (INPCOM.IKOD != K_OLSQ || left < 0) {
      give_back_command();
      ++left;
    }
    mark_failed();
    return false;
  }
  if (INPCOM.IKOD != K_OLSQ) {
    fail(NOT_OF_BLOCK);
    if (stop_command()) XXIT(0);
    ++left;
    return false;
  }
  SCANIT(ws);
  if (OCOM.ODONT || OCOM.OERR) return false;
  if (SCNCOM.NOPS > 0) warn(" ...WARNING..ALL OPTIONS MUST BE ON SYSTEM COMMAND");
  return good_equation();
}

bool read_equations(Workspace ws, int count, SystemModel& model) {
  const OpenBlock block;
  if (OSCOM.OTALK && OCOM.OPUT) {
    say<"(' ENTER ', I0, ' OLS COMMANDS')">(count);
  }
  for (int left = count; left > 0;) {
    if (!next_equation(ws, left) ||
        !add_equation(ws, SCNCOM.list(), model, [](const ListItem&) { return true; })) {
      if (!RUNCOM.ended && !OCOM.OEOF) pass_over_lines(ws, std::max(left, 0));
      return false;
    }
  }
  return true;
}

// ADDLAG: the lagged dependent variable and the lagged regressors of every equation are
// instruments too (Fair 1970).
bool add_lags(Workspace ws, SystemModel& model) {
  for (const SavedEquation& e : model.equation) {
    ListItem item = e.dependent;
    ++item.lag;
    if (!add_exogenous(ws, item, model)) return false;
    for (int k = e.first; k < e.first + e.K; ++k) {
      item = model.list[static_cast<std::size_t>(k)];
      if (item.var == DATCOM.MCON) continue;
      ++item.lag;
      if (!add_exogenous(ws, item, model)) return false;
    }
  }
  return true;
}

int column_place(SystemModel& model, const ListItem& item) {
  const auto same = [&](const ListItem& c) { return same_column(c, item); };
  auto found = std::ranges::find_if(model.column, same);
  if (found == model.column.end()) found = model.column.insert(model.column.end(), item);
  return static_cast<int>(found - model.column.begin());
}

}  // namespace

SystemModel& system_model() {
  static SystemModel model;
  return model;
}

int equation_count(Workspace ws) {
  const std::string_view word = SCNCOM.count;
  const Scalar number = word.empty() ? Scalar{} : scalar_value(ws, word, true);
  bool ok = number.ok;
  // A series in its place is the first exogenous variable of a list without the number.
  if (const int var = word.empty() ? 0 : VARNUM(ws, word); var > 0) {
    ok = ok && INFO(ws, var).LEN == 1;
  }
  if (!ok || !(number.value >= 1.0) || number.value > DATCOM.MAXVAR ||
      number.value != std::floor(number.value)) {
    fail(" ...ERROR..NO. OF EQUATIONS NOT GIVEN ON SYSTEM COMMAND");
    return 0;
  }
  return static_cast<int>(number.value);
}

void pass_over_system(Workspace ws) { pass_over_lines(ws, plain_count()); }

void check_system(Workspace ws) {
  const bool missing = SCNCOM.count.empty() || NAMCHK(SCNCOM.count[0]) != 1;
  if (missing && equation_count(ws) == 0) return;
  int left = plain_count();
  const int line = INPCOM.KLINE;
  const OpenBlock block;
  while (left > 0) {
    const int failures = RUNCOM.failures;
    OCOM.ODONT = OCOM.OERR = false;
    INPUT(ws);
    if (RUNCOM.ended || stop_requested()) return;
    left -= RUNCOM.failures - failures;  // an unknown word has been reported: a mistyped equation
    if (left <= 0 && !OCOM.OEOF) give_back_command();
    if (left <= 0) return;
    if (OCOM.OEOF) {
      INPCOM.KLINE = line;
      return fail(NO_LAST_EQUATION);
    }
    if (INPCOM.IKOD != K_OLSQ) {
      give_back_command();
      return fail(NOT_OF_BLOCK);
    }
    SCANIT(ws);
    if (!OCOM.ODONT && !OCOM.OERR) good_equation();
    --left;
  }
}

int read_system(Workspace ws, int count) {
  SystemModel& m = system_model();
  m.M = 0;
  m.constant = OLSCOM.CONSTANT;
  m.list.clear();
  m.equation.clear();
  m.exogs.clear();
  if (INPCOM.IKOD == K_SYSTEM) {
    for (const ListItem& item : SCNCOM.list()) {
      if (!add_exogenous(ws, item, m)) return -1;
    }
    m.instruments = !m.exogs.empty();
    if (!read_equations(ws, count, m)) return -1;
  } else {
    m.instruments = true;
    const std::span<const ListItem> list = SCNCOM.list();
    for (const ListItem& item : list) {
      if (item.group && !add_exogenous(ws, item, m)) return -1;
    }
    if (!add_equation(ws, list, m, [](const ListItem& item) { return !item.group; })) return -1;
  }
  if (SYSCOM.ADDLAG && SYSCOM.AUTO && m.instruments && !add_lags(ws, m)) return -1;
  int largest = 0;
  for (const ListItem& item : m.list) largest = std::max(largest, item.lag);
  for (const ListItem& item : m.exogs) largest = std::max(largest, item.lag);
  for (const SavedEquation& e : m.equation) largest = std::max(largest, e.dependent.lag);
  return largest;
}

void collect_columns(SystemModel& m) {
  m.column.clear();
  m.regressor.clear();
  m.dependent.clear();
  m.instrument.clear();
  m.equation_of.clear();
  for (const SavedEquation& e : m.equation) m.dependent.push_back(column_place(m, e.dependent));
  for (const ListItem& item : m.exogs) m.instrument.push_back(column_place(m, item));
  for (const ListItem& item : m.list) {
    m.regressor.push_back(item.var == DATCOM.MCON ? -1 : column_place(m, item));
  }
  // The constant is always there, for the means come with it.
  m.column.push_back(ListItem{.var = DATCOM.MCON, .name = {}});
  std::ranges::replace(m.regressor, -1, m.constant_column());
  if (SYSCOM.CONEXOGS) m.instrument.push_back(m.constant_column());
  for (int i = 0; i < m.M; ++i) {
    m.equation_of.insert(m.equation_of.end(),
                         static_cast<std::size_t>(m.equation[static_cast<std::size_t>(i)].K), i);
  }
}

}  // namespace korvel
