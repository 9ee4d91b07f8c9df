// SIMULATE: the system solved for its dependent variables, row by row.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "regress/systems.h"

namespace korvel {
namespace {

constexpr int MOST_ROUNDS = 100;

std::size_t at(int i) { return static_cast<std::size_t>(i); }

double value(const SystemData& data, int column, std::int64_t t) {
  const double* c = data.column[at(column)];
  return c == nullptr ? 1.0 : c[t];
}

void print_row(int obs, int rounds, double difference, std::span<const double> y) {
  Line row;
  row.put<"(' OB=', I7, ' IT= ', I4, ' DIFF=', G13.5, ' YHAT=')">(obs, rounds, difference);
  const int indent = row.cursor() + 1;
  const std::size_t a_line = OSCOM.OWIDE ? 6 : 2;
  for (std::size_t i = 0; i < y.size(); ++i) {
    if (i > 0 && i % a_line == 0) {
      OUTLINE();
      row = Line();
      row.column(indent);
    }
    row.put<"(G13.5)">(y[i]);
  }
  OUTLINE();
}

}  // namespace

// Gauss-Seidel: each equation in turn takes the values that the ones before it have just got.
// Regressors that are dependent variables of an equation, without a lag, are solved for; all others
// keep their actual values.
void simulate_system(Workspace ws, const SystemModel& model, const SystemData& data,
                     std::span<const double> coef) {
  const int M = model.M, K = model.K();
  Scratch room(ws, M + K);
  if (!room) return;
  const std::span<double> y = room.take(at(M));
  const std::span<double> solved = room.take(at(K));  // equation of a regressor, -1 none
  for (int k = 0; k < K; ++k) {
    const auto found = std::ranges::find(model.dependent, model.regressor[at(k)]);
    solved[at(k)] = found == model.dependent.end()
                        ? -1.0
                        : static_cast<double>(found - model.dependent.begin());
  }
  say(" DANGEROUS SIMULATION OF MODEL");
  KeptRows rows(ws);
  while (rows.next()) {
    if (stop_requested()) return;
    const std::int64_t t = data.first_row + rows.row;
    for (int i = 0; i < M; ++i) y[at(i)] = value(data, model.dependent[at(i)], t);
    double difference = 0.0;
    bool done = false;
    int round = 0;
    while (!done && round < MOST_ROUNDS) {
      ++round;
      done = true;
      difference = 0.0;
      for (int i = 0; i < M; ++i) {
        const SavedEquation& e = model.equation[at(i)];
        double sum = 0.0;
        for (int k = e.first; k < e.first + e.K; ++k) {
          const int j = static_cast<int>(solved[at(k)]);
          sum += coef[at(k)] * (j >= 0 ? y[at(j)] : value(data, model.regressor[at(k)], t));
        }
        const double change = std::fabs(sum - y[at(i)]);
        difference = std::max(difference, change);
        if (!(change <= SYSCOM.CONV * std::max(1.0, std::fabs(sum)))) done = false;
        y[at(i)] = sum;
      }
      if (!std::isfinite(difference)) break;
    }
    print_row(rows.obs, round, difference, y);
  }
}

}  // namespace korvel
