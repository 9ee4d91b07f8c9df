// INDEXN: price and quantity indexes from pairs of price and quantity.
//
// All indexes are 1 in the base period. Fisher (1922), The Making of Index Numbers; the Divisia
// index in its discrete form of Tornqvist (1936): links exp(sum of average shares times log price
// changes). A value that can't be computed travels as NaN and is given as the cell without a value.

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "data/data.h"
#include "stats/index.h"
#include "stats/stats_results.h"

namespace korvel {
namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();
constexpr int KINDS = 4;        // Divisia, Paasche, Laspeyres, Fisher
constexpr int ROW = KINDS + 1;  // ... and the expenditure of an observation
constexpr std::array<std::string_view, std::size_t{2}* KINDS> STORED = {
    "DIVISIA", "PAASCHE", "LASPEYRES", "FISHER", "QDIVISIA", "QPAASCHE", "QLASPEYRES", "QFISHER"};

// A good at one observation, in the roles of the formulas: under QUANTITY p and q have changed
// places.
struct Good {
  double p = 0.0;
  double q = 0.0;
};

class Goods {
 public:
  explicit Goods(const IndexJob& job) : job_(job) {}
  int count() const { return static_cast<int>(job_.series.size() / 2); }
  Good at(int good, int obs) const {
    const double price = value(2 * good, obs);
    double quantity = value(2 * good + 1, obs);
    const bool sound = price > 0.0 && std::isfinite(price);
    if (!sound || !std::isfinite(quantity)) quantity = 0.0;
    if (sound && IndexOption::chosen<"EXPENDIT">()) quantity /= price;
    const double p = std::isfinite(price) ? price : 0.0;
    return IndexOption::chosen<"QUANTITY">() ? Good{quantity, p} : Good{p, quantity};
  }
  double value(int series, int obs) const {
    return job_.series[static_cast<std::size_t>(series)].x[obs - 1];
  }
  std::string_view name(int series) const {
    return job_.series[static_cast<std::size_t>(series)].name;
  }
  // Sum of p at one observation times q at another.
  double sum(int p_obs, int q_obs) const {
    double total = 0.0;
    for (int g = 0; g < count(); ++g) total += at(g, p_obs).p * at(g, q_obs).q;
    return total;
  }
  double share(int good, int obs, double expenditure) const {
    const Good g = at(good, obs);
    return g.p * g.q / expenditure;
  }

 private:
  const IndexJob& job_;
};

// An observation that can be used: no missing codes, and expenditure that shares can be taken of.
bool usable(const IndexJob& job, const Goods& goods, int obs) {
  if (job.skipped(obs)) return false;
  for (int k = 0; k < 2 * goods.count(); ++k) {
    if (goods.value(k, obs) == MACOM.XMISS) return false;
  }
  const double expenditure = goods.sum(obs, obs);
  return std::isfinite(expenditure) && expenditure != 0.0;
}

double ratio(double a, double b) { return b != 0.0 ? a / b : NONE; }

// The Divisia link from one observation to a later one. A good without a positive price in both
// leaves it alone.
double divisia_link(const Goods& goods, int before, int now) {
  const double total_before = goods.sum(before, before);
  const double total_now = goods.sum(now, now);
  double sum = 0.0;
  for (int g = 0; g < goods.count(); ++g) {
    const double p0 = goods.at(g, before).p;
    const double p1 = goods.at(g, now).p;
    if (!(p0 > 0.0) || !(p1 > 0.0)) continue;
    const double w0 = goods.share(g, before, total_before);
    const double w =
        IndexOption::chosen<"ALTERN">() ? w0 : 0.5 * (w0 + goods.share(g, now, total_now));
    sum += IndexOption::chosen<"ARITHMET">() ? w * (p1 / p0 - 1.0) : w * std::log(p1 / p0);
  }
  return IndexOption::chosen<"ARITHMET">() ? 1.0 + sum : std::exp(sum);
}

// ---- The base ----------------------------------------------------------------------------------

// What was typed behind BASEYEAR=: the option area has lost the decimals of a date.
Number typed_base() {
  for (int i = 1; i + 1 <= SCNCOM.NOPS && i + 2 <= MAXWORDS; ++i) {
    const Token& word = TOKCOM.token[static_cast<std::size_t>(i)];
    const Token& value = TOKCOM.token[static_cast<std::size_t>(i + 2)];
    const std::string_view table = "BASEYEAR";
    if (word.text.size() >= 2 && word.text.substr(0, KEYLEN) == table.substr(0, word.text.size()) &&
        value.value) {
      return FSUMS(value.text);
    }
  }
  return {};
}

// The base observation; 0 after the error line.
int base_observation(const IndexJob& job, const Goods& goods) {
  const auto invalid = [] {
    index_fail<"(' ...ERROR..INVALID BASE= OPTION')">();
    return 0;
  };
  if (!IndexOption::given<"BASEYEAR">()) {
    for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND; ++obs) {
      if (usable(job, goods, obs)) return obs;
    }
    index_fail<"(' ...ERROR..NO OBSERVATIONS FOUND')">();
    return 0;
  }
  int base = IndexOption::integer<"BASEYEAR">();
  Number typed = typed_base();
  if (DATCOM.ITIME2 != 0 && (typed.point || base >= DATCOM.ITIME1)) {
    if (!typed.point) {
      typed.whole = base;
      typed.fraction = base == DATCOM.ITIME1 ? DATCOM.ITIME2 : 1;
      typed.point = true;
    }
    const DateObs date = date_observation(typed);
    if (!date.ok) return invalid();
    base = date.obs;
  }
  if (base < 1 || base > DATCOM.MEND) return invalid();
  if (base < DATCOM.MBEG) {
    index_fail<"(' ...ERROR..BASEPERIOD=', I0, ' AND IS LESS THAN BEG=', I0)">(base, DATCOM.MBEG);
    return 0;
  }
  return usable(job, goods, base) ? base : invalid();
}

// ---- The rows ----------------------------------------------------------------------------------

// Five numbers an observation of MBEG..MEND.
class Rows {
 public:
  explicit Rows(std::span<double> words) : words_(words) {}
  double& at(int obs, int k) const {
    return words_[static_cast<std::size_t>((obs - DATCOM.MBEG) * ROW + k)];
  }
  // The first block is the index, the second what expenditure is worth in its prices.
  double cell(int obs, int k) const {
    const double index = at(obs, k % KINDS);
    const double v = k < KINDS ? index : ratio(at(obs, KINDS), index);
    return std::isfinite(v) ? v : NO_CELL;
  }

 private:
  std::span<double> words_;
};

void warn_prices(const Goods& goods, int obs) {
  if (!OSCOM.OWARN) return;
  for (int g = 0; g < goods.count(); ++g) {
    const double price = goods.value(2 * g, obs);
    if ((price > 0.0 && std::isfinite(price)) || price == MACOM.XMISS) continue;
    warn<
        "(' ...WARNING..THE PRICE VARIABLE ', A, ' IS', G13.5, ' IN OBS. ', I0,"
        " ' QUANTITY IS SET TO ZERO')">(goods.name(2 * g), price, obs);
  }
}

void form_rows(const IndexJob& job, const Goods& goods, int base, const Rows& rows) {
  const bool chained = IndexOption::chosen<"CHAINED">();
  std::array<double, KINDS> level = {1.0, 1.0, 1.0, 1.0};  // of Divisia, Paasche, Laspeyres
  int before = 0;
  for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND; ++obs) {
    for (int k = 0; k < ROW; ++k) rows.at(obs, k) = NONE;
    if (stop_requested()) continue;
    if (!job.skipped(obs)) warn_prices(goods, obs);
    if (!usable(job, goods, obs)) {
      warn<"(' ...WARNING..OBSERVATION', I6, ' IS SKIPPED')">(obs);
      continue;
    }
    if (before != 0) {
      level[0] *= divisia_link(goods, before, obs);
      level[1] *= ratio(goods.sum(obs, obs), goods.sum(before, obs));
      level[2] *= ratio(goods.sum(obs, before), goods.sum(before, before));
    }
    rows.at(obs, 0) = level[0];
    rows.at(obs, 1) = chained ? level[1] : ratio(goods.sum(obs, obs), goods.sum(base, obs));
    rows.at(obs, 2) = chained ? level[2] : ratio(goods.sum(obs, base), goods.sum(base, base));
    rows.at(obs, KINDS) = goods.sum(obs, obs);
    before = obs;
  }
  // Series that were linked up from the first observation are 1 in the base period.
  const double divisia = rows.at(base, 0);
  const double paasche = rows.at(base, 1);
  const double laspeyres = rows.at(base, 2);
  for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND; ++obs) {
    rows.at(obs, 0) /= divisia;
    if (chained) {
      rows.at(obs, 1) /= paasche;
      rows.at(obs, 2) /= laspeyres;
    }
    rows.at(obs, 3) = std::sqrt(rows.at(obs, 1) * rows.at(obs, 2));
  }
}

// ---- Output ------------------------------------------------------------------------------------

void print_heading(int from, int to) {
  const bool quantity = IndexOption::chosen<"QUANTITY">();
  Line title;
  Line names;
  Line dashes;
  names.put<"('   OBS.')">();
  dashes.put<"(7X)">();
  for (int k = from; k < to; ++k) {
    const std::string_view word = k % KINDS != 0 ? std::string_view{}
                                  : k == 0       ? (quantity ? "QUANTITY INDEX" : "PRICE INDEX")
                                                 : (quantity ? "PRICE" : "QUANTITY");
    if (!word.empty()) {
      title.column(8 + 13 * (k - from) + 5);
      title.put<"(A)">(word);
    }
    names.column(8 + 13 * (k - from) + 4);
    names.put<"(A9)">(STORED[static_cast<std::size_t>(k % KINDS)]);
    dashes.put<"(5X, ' -------')">();
  }
  OUTLINE();
}

void print_rows(const Rows& rows, int from, int to) {
  print_heading(from, to);
  for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND; ++obs) {
    Line row;
    row.put<"(I7)">(obs);
    for (int k = from; k < to; ++k) row.put<"(G13.5)">(rows.cell(obs, k));
    OUTLINE();
    if (stop_requested()) return;
  }
}

void print_shares(const IndexJob& job, const Goods& goods) {
  const int a_line = OSCOM.OWIDE ? 8 : 5;
  say(" EXPENDITURE SHARES");
  for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND; ++obs) {
    if (!usable(job, goods, obs)) continue;
    const double total = goods.sum(obs, obs);
    Line row;
    row.put<"(I7)">(obs);
    for (int g = 0; g < goods.count(); ++g) {
      if (g > 0 && g % a_line == 0) {
        OUTLINE();
        row = Line();
        row.column(8);
      }
      row.put<"(G13.5)">(goods.share(g, obs, total));
    }
    OUTLINE();
    if (stop_requested()) return;
  }
}

const NameOption& stored_option(int k) {
  return OPTCOM.VOPT[static_cast<std::size_t>(INDEXOPT.place("DIVISIA") + k)];
}

void print_tables(const IndexJob& job, const Goods& goods, const Rows& rows, int base) {
  if (IndexOption::chosen<"CHAINED">()) say(" ALL INDEXES ARE CHAINED");
  say<"(' BASE PERIOD IS OBSERVATION ', I0)">(base);
  for (int k = 0; k < 2 * KINDS; ++k) {
    if (stored_option(k).text.empty()) continue;
    say<"(1X, A, ' WILL BE STORED AS VARIABLE:', 1X, A)">(STORED[static_cast<std::size_t>(k)],
                                                          stored_option(k).text);
  }
  if (OSCOM.OWIDE) {
    print_rows(rows, 0, 2 * KINDS);
  } else {
    print_rows(rows, 0, KINDS);
    print_rows(rows, KINDS, 2 * KINDS);
  }
  if (IndexOption::chosen<"LIST">() || IndexOption::chosen<"MAX">()) print_shares(job, goods);
  if (!IndexOption::chosen<"DUMP">()) return;
  say("     OBS.      WSUM      P         LOGP");
  for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND; ++obs) {
    const double P = rows.at(obs, 0);
    if (std::isfinite(P)) say<"(I8, 3G13.5)">(obs, rows.at(obs, KINDS), P, std::log(P));
  }
}

}  // namespace

void INDEXN(Workspace ws, const IndexJob& job) {
  const Trace trace("INDEXN");
  // 1. The base.
  const Goods goods(job);
  const int base = base_observation(job, goods);
  if (base == 0) return;
  // 2. All rows: they are known only when the one of the base is.
  const std::int64_t all = std::int64_t{DATCOM.MEND} - DATCOM.MBEG + 1;
  const Scratch room(ws, ROW * all);
  if (!room) return index_failed();
  const Rows rows(room.words());
  form_rows(job, goods, base, rows);
  if (stop_requested()) return;
  // 3. Tables, then results.
  if (job.print) print_tables(job, goods, rows, base);
  for (int k = 0; k < 2 * KINDS; ++k) {
    const std::span<double> to = result_variable(ws, stored_option(k), SERIES, DATCOM.MEND);
    for (int obs = DATCOM.MBEG; obs <= DATCOM.MEND && !to.empty(); ++obs) {
      to[static_cast<std::size_t>(obs - 1)] = rows.cell(obs, k);
    }
  }
}

}  // namespace korvel
