// AUTO: errors of first order. Least squares or maximum likelihood by iteration between b and RHO,
// or on a grid of RHO.

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "data/data.h"
#include "engine/output.h"
#include "expr/kernels/gsreg.h"
#include "regress/auto.h"

namespace korvel {
namespace {

constexpr ResultProfile AUTO_PROFILE{.word = "AUTO", .autocorrelated = true, .first_order = true};

// Grow to the longest of the run and stay.
std::vector<Gap> GAPS;
std::vector<PairSums> SUMS;

void add_gap(std::int64_t row, double steps) {
  const auto same = std::ranges::find(SUMS, steps, &PairSums::steps);
  const auto lengths = static_cast<std::size_t>(same - SUMS.begin());
  if (same == SUMS.end()) SUMS.push_back({.steps = steps});
  SUMS[lengths].count += 1.0;
  GAPS.push_back({.row = row, .steps = steps, .lengths = lengths});
}

// MISS: the gap that GAP= and NMISS= tell, else one wherever observations are skipped.
void find_gaps(Workspace ws, std::span<double> room) {
  GAPS.clear();
  SUMS.assign(1, PairSums{});
  if (!AUTCOM.MISS) return;
  if (AUTCOM.GAP > 0) return add_gap(AUTCOM.GAP, AUTCOM.NMISS + 1.0);
  if (!OLSCOM.skips) return;
  DATCOM.NSKIP = -1;
  SKIPKT(ws, room);
  for (std::size_t k = 0; k + 1 < room.size(); ++k) {
    if (room[k] > 0.0) add_gap(static_cast<std::int64_t>(k) + 1, room[k] + 1.0);
  }
}

// One estimation: the fit at a given RHO, and the RHO that its residuals give.
struct FirstOrder {
  Workspace ws;
  AutoRoom& room;
  double N = 0.0;
  double r = 0.0;
  double jacobian = 0.0;
  bool told = false;

  bool fit(double at) {
    r = at;
    transform_first(room.raw, r, AUTCOM.DROP, GAPS, room.star);
    jacobian = first_jacobian(r, AUTCOM.DROP, SUMS);
    return fit_rows(ws, room);
  }
  double likelihood() const { return auto_likelihood(N, FCOM.SSE, jacobian); }
  void residuals() const {
    gs_residuals(room.raw, room.fit.coef, room.e);
    sum_pairs(room.e, GAPS, SUMS);
  }
  double next() {
    residuals();
    if (only_rounding(room)) return 0.0;
    double rho = rho_least_squares(SUMS[0]);
    if (AUTCOM.ML && !GAPS.empty()) {
      rho = rho_search(SUMS, room.e[0], AUTCOM.DROP, N);
    } else if (AUTCOM.ML && !AUTCOM.DROP) {
      rho = rho_likelihood(SUMS[0], room.e[0], N);
    }
    return stable_rho(std::isfinite(rho) ? rho : 0.0, told);
  }
};

// RHO on the grid -.99(.01).99. Ties go to the smaller absolute value.
bool search_grid(FirstOrder& model) {
  double best = 0.0, highest = -std::numeric_limits<double>::infinity();
  for (int i = -99; i <= 99; ++i) {
    if (stop_requested() || !model.fit(i / 100.0)) return false;
    const double L = model.likelihood();
    const double value = AUTCOM.ML && FCOM.SSE > 0.0 ? L : -FCOM.SSE;
    print_auto_iteration(i + 100, model.r, L);
    if (value > highest || (value == highest && std::fabs(model.r) < std::fabs(best))) {
      highest = value;
      best = model.r;
    }
  }
  return model.fit(best);
}

// Ends with the fit at the first RHO that differs from the one before by less than CONV.
bool iterate(FirstOrder& model) {
  const AutCom& a = AUTCOM;
  // A difference of 1 is asked for as it stands.
  const bool differences = a.RHO == 1.0;
  double r = differences ? 1.0 : stable_rho(a.RHO, model.told);
  double change = std::numeric_limits<double>::infinity();
  for (int iteration = 1;; ++iteration) {
    if (stop_requested() || !model.fit(r)) return false;
    print_auto_iteration(iteration, r, model.likelihood());
    if (differences || change < a.CONV || change == 0.0) return true;
    if (iteration >= a.ITER) break;
    const double next = model.next();
    change = std::fabs(next - r);
    r = next;
  }
  constexpr double rounding = 1e-12;  // a smaller CONV asks for more than there is
  if (a.ITER > 1 && change > rounding) {
    warn<"(' ...WARNING..NO CONVERGENCE AFTER', I6, ' ITERATIONS. RHO CHANGED BY', G13.5)">(a.ITER,
                                                                                            change);
  }
  return true;
}

// DLAG: RHO and b are correlated, so the variance of b grows (Dhrymes 1971). The column of RHO is
// the residual one row back; a row without a neighbour has none.
bool adjust(const FirstOrder& model, std::span<double> work, AutoResult& result) {
  AutoRoom& room = model.room;
  const auto K = static_cast<std::size_t>(OLSCOM.NF - 1);
  const std::span<double> a = work.first(K);
  const std::int64_t lost = room.raw.rows - room.used.rows;
  const std::span<double> before = room.e;
  // e(t-1) in place, from the back, aligned with the rows of the fit.
  for (std::size_t t = before.size() - 1; t > 0; --t) before[t] = before[t - 1];
  before[0] = 0.0;
  for (const Gap& gap : GAPS) before[static_cast<std::size_t>(gap.row)] = 0.0;
  double square = 0.0;
  for (const double v : before) square += v * v;
  for (std::size_t k = 0; k < K; ++k) {
    double sum = 0.0;
    for (std::int64_t t = 0; t < room.used.rows; ++t) {
      sum += room.rows.x.at(k, t) * before[static_cast<std::size_t>(t + lost)];
    }
    a[k] = sum;
  }
  return adjust_dhrymes(a, square, work.subspan(K, K), room, result);
}

}  // namespace

void AUTO(Workspace ws) {
  const Trace trace("AUTO");
  const AutCom& o = AUTCOM;
  const int lost = o.DROP ? 1 : 0;
  // 1. Room, columns, gaps.
  Scratch scratch(ws, auto_words(DATCOM.NOB, lost, 0));
  if (!scratch) return;
  AutoRoom room;
  if (!load_auto(ws, scratch, lost, 0, room)) return;
  find_gaps(ws, room.e);
  FirstOrder model{.ws = ws, .room = room, .N = static_cast<double>(room.N())};
  // 2. The estimates.
  print_auto_header(ws, room.N(), false, GAPS);
  print_auto_heading(false);
  if (!(o.GS ? search_grid(model) : iterate(model))) return;
  // 3. RHO, and what its estimation adds to the variance of b.
  const double variance[] = {(1.0 - model.r * model.r) / model.N};
  const double rho[] = {model.r};
  AutoResult result{.r = rho, .m = {}, .variance = variance, .jacobian = model.jacobian};
  print_auto_rho(result, model.N);
  if (OLSCOM.DLAG) {
    model.residuals();
    if (!adjust(model, room.fit.work, result)) return;
    print_dhrymes(result, room.fit.coef[0]);
  }
  finish_auto(ws, room, AUTO_PROFILE, result);
}

}  // namespace korvel
