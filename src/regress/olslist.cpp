// The model list of OLS and IMLS: from the variables as they were listed to the columns of a fit.

#include <algorithm>
#include <vector>

#include "engine/output.h"
#include "regress/ols_parts.h"

namespace korvel {
namespace {

// Grows to the longest list of the run and stays.
std::vector<ListItem> MODEL;
std::vector<ListItem> LISTED;
std::vector<ListItem> SECOND;  // columns of the second half of a double-length regression

bool is_column_of(int var, int matrix) {
  const Owner owner = owner_of(var);
  return matrix > 0 && owner.column > 0 && owner.var == matrix;
}

// The listed variables, with the columns of listed matrices in place of the matrix.
void CKNF(Workspace ws) {
  LISTED.clear();
  for (ListItem item : SCNCOM.list()) {
    item.name = {};
    LISTED.push_back(item);
    if (item.var <= 0 || item.var > DATCOM.MAXVAR) continue;
    const Place place = INFO(ws, item.var);
    if (place.ITYPE != MATRIX2 || place.N2 < 2) continue;
    LISTED.back().var = item.var * DATCOM.MXCOL + 1;
    for (int j = 2; j <= place.N2; ++j) {
      item.var = LISTED.back().var + 1;
      LISTED.push_back(item);
    }
  }
}

// Regressors of a model with principal components: other variables first, then columns of the
// matrix that PCOMPONE= names, each by itself.
bool check_components(Workspace ws) {
  if (OLSCOM.PCOMPONE == 0) return true;
  bool any = false;
  for (const ListItem& item : SCNCOM.list().subspan(1)) {
    if (item.var == OLSCOM.PCOMPONE && INFO(ws, item.var).N2 > 1) {
      fail(" ...ERROR..EACH COMPONENT MUST BE LISTED SEPARATELY");
      return false;
    }
    if (is_column_of(item.var, OLSCOM.PCOMPONE) || item.var == OLSCOM.PCOMPONE) {
      any = true;
    } else if (any) {
      fail<"(' ...ERROR..', A, ' MUST BE LISTED BEFORE ANY COMPONENTS')">(NAME(ws, item.var));
      return false;
    }
  }
  if (!any) fail(" ...ERROR..NO PRINCIPAL COMPONENTS IN REGRESSION");
  return any;
}

// Lags that lie on an inverse polynomial of order n: one column for each power 2..n (Mitchell and
// Speaker 1986). The power is kept in `column`. False when the order leaves no column.
bool add_inverse_lags(std::size_t& at) {
  const ListItem first = LISTED[at];
  while (at + 1 < LISTED.size() && LISTED[at + 1].var == first.var &&
         LISTED[at + 1].order == first.order && LISTED[at + 1].lag == LISTED[at].lag + 1) {
    ++at;
  }
  if (first.order < 2) {
    fail(" ...ERROR..INVERSE LAGS NEED AN ORDER OF 2 OR MORE, AS IN X(0.1,3)");
    return false;
  }
  for (int power = 2; power <= first.order; ++power) {
    ListItem item{.var = first.var, .name = {}};
    item.column = power;
    MODEL.push_back(item);
  }
  return true;
}

}  // namespace

std::span<ListItem> model_list() { return MODEL; }

int collect_variables(Workspace ws) {
  OlsCom& o = OLSCOM;
  if (!check_components(ws)) return -1;
  CKNF(ws);
  MODEL.clear();
  SECOND.clear();
  const bool complex = o.build == Build::Imls;
  // 1. The dependent variable stands first, for complex data its two parts.
  const std::size_t parts = complex ? 2 : 1;
  if (LISTED.size() < parts || (complex && LISTED.size() % 2 != 0)) {
    fail(" ...ERROR..REAL AND IMAGINARY COLUMNS MUST BE LISTED IN PAIRS");
    return -1;
  }
  const ListItem dependent = LISTED[0];
  int largest = 0;
  for (const ListItem& item : LISTED) largest = std::max(largest, item.lag);
  // 2. The regressors.
  for (std::size_t i = parts; i < LISTED.size(); ++i) {
    const ListItem& item = LISTED[i];
    if (item.var == dependent.var || (complex && item.var == LISTED[1].var)) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS ON BOTH SIDES OF EQUATION')">(NAME(ws, item.var));
      return -1;
    }
    if (o.build == Build::Dlrx && item.group) {
      SECOND.push_back(item);
      continue;
    }
    if (o.build == Build::Pilags && item.order > 0) {
      if (!add_inverse_lags(i)) return -1;
      continue;
    }
    o.lag_terms = o.lag_terms || item.order > 0;
    o.stepwise = o.stepwise || item.group;
    MODEL.push_back(item);
  }
  if (o.build == Build::Pilags) largest = 0;  // all past values count, however few there are
  const std::size_t regressors = MODEL.size();
  // 3. The constant, and the dependent variable behind it.
  if (o.CONSTANT) {
    const ListItem constant{.var = DATCOM.MCON, .name = {}};
    for (int k = 0; k < o.multiplicity; ++k) MODEL.push_back(constant);
  }
  OCOM.OFORCE = !o.CONSTANT;
  MODEL.push_back(dependent);
  o.NF = static_cast<int>(MODEL.size());
  if (o.NF < 2) {
    fail(" ...ERROR..INSUFFICIENT NUMBER OF VARIABLES SPECIFIED");
    return -1;
  }
  // 4. What else is loaded.
  if (complex) MODEL.push_back(LISTED[1]);
  if (o.build == Build::Dlrx) {
    if (SECOND.size() != regressors && SECOND.size() != regressors + 1) {
      fail(" ...ERROR..DLRX NEEDS A COLUMN IN PARENTHESES FOR EVERY REGRESSOR");
      return -1;
    }
    o.second_columns = static_cast<int>(SECOND.size());
    MODEL.insert(MODEL.end(), SECOND.begin(), SECOND.end());
  }
  return largest;
}

void add_weight(int var) { MODEL.push_back(ListItem{.var = var, .name = {}}); }

}  // namespace korvel
