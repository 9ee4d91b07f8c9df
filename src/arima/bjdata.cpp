// The series of an ARIMA command and the variables that keep its results.
#include <algorithm>
#include <cmath>
#include <limits>

#include "arima/bj.h"
#include "data/data.h"

namespace korvel {

BjRows::BjRows(Workspace ws) : obs(DATCOM.MBEG - 1) {
  if (skipping()) skip_ = skip_vector(ws);
}

bool BjRows::next() {
  const auto marks = static_cast<int>(skip_.size());
  do {
    ++obs;
  } while (obs <= marks && obs <= DATCOM.MEND && skip_[static_cast<std::size_t>(obs - 1)] > 0.0);
  ++row;
  return obs <= DATCOM.MEND;
}

bool valid_series(Workspace ws, const ListItem& item) {
  if (item.lag != 0 || item.group) {
    return bj_fail<"(' ...ERROR..LAGS ARE NOT ALLOWED IN ', A)">(BJ_COMMAND,
                                                                 trimmed({INPCOM.COMWRD, KEYLEN}));
  }
  const Place place = item.var > 0 ? INFO(ws, item.var) : Place{};
  if (place.IADD <= 0 || place.ITYPE < SERIES || place.ITYPE > MATRIX2 || place.columns() > 1) {
    return bj_fail<"(' ...ERROR..VARIABLE ', A, ' IS NOT VALID')">(BJ_COMMAND, NAME(ws, item.var));
  }
  return true;
}

bool take_rows(Workspace ws, std::span<const ListItem> list, int BEG, int END) {
  DATCOM.MBEG = BEG;
  DATCOM.MEND = END == -999 ? DATCOM.IEND : END;
  if (DATCOM.MBEG < 1) {
    return bj_fail<"(' ...ERROR..SAMPLE RANGE BEGINS AT OBSERVATION', I7)">(BJ_COMMAND,
                                                                            DATCOM.MBEG);
  }
  CKSMPL(ws, list);
  if (OCOM.ODONT) {
    set_error(BJ_COMMAND);
    return false;
  }
  if (DATCOM.MEND < DATCOM.MBEG) {
    return bj_fail<"(' ...ERROR..BEG AND END OBSERVATIONS INCONSISTENT', 2I10)">(
        BJ_COMMAND, DATCOM.MBEG, DATCOM.MEND);
  }
  DATCOM.NOB = 0;
  for (BjRows rows(ws); rows.next();) ++DATCOM.NOB;
  return true;
}

bool load_rows(Workspace ws, int var, bool logs, std::span<double> to) {
  const std::span<const double> from = elements(ws, var);
  for (BjRows rows(ws); rows.next();) {
    const double value = from[static_cast<std::size_t>(rows.obs - 1)];
    if (logs && !(value > 0.0)) {
      return bj_fail<"(' ...ERROR..ILLEGAL LOG IN OBS ', I0, ' VALUE IS ', G13.5)">(
          BJ_COMMAND, rows.obs, value);
    }
    to[static_cast<std::size_t>(rows.row)] = logs ? std::log(value) : value;
  }
  return true;
}

bool difference_series(const BjOrders& o, std::span<const double> y, std::span<double> room,
                       std::span<double>& w) {
  if (o.lost() >= static_cast<std::int64_t>(y.size())) return false;
  if (room.data() != y.data()) std::copy(y.begin(), y.end(), room.begin());
  w = room.first(y.size());
  for (int d = 0; d < o.NDIFF; ++d) w = difference(w, 1);
  for (int d = 0; d < o.NSDIFF; ++d) w = difference(w, static_cast<std::size_t>(o.NSPAN));
  return true;
}

std::span<double> store_series(Workspace ws, const NameOption& option, int length) {
  const int var = make_result(ws, option, SERIES, length, 1);
  if (var == 0) return {};
  const std::span<double> to = elements(ws, var);
  std::fill(to.begin(), to.end(), MACOM.XMISS);
  return to;
}

std::string difference_title(const BjOrders& o) {
  std::string title = "(1-B)";
  title += o.NDIFF > 0 ? std::to_string(o.NDIFF) : " ";
  title += "(1-B";
  std::string span = o.NSDIFF > 0 ? std::to_string(o.NSPAN) : "";
  while (span.size() < 2) span += ' ';
  title += span + ")";
  title += o.NSDIFF > 0 ? std::to_string(o.NSDIFF) : " ";
  return title;
}

}  // namespace korvel
