// RANMAR: the universal generator of Marsaglia, Zaman and Tsang (1990), Statistics and Probability
// Letters 8, 35-39. It serves the annealing alone and touches nothing of RANCOM.
#pragma once

#include <array>
#include <cstddef>

namespace korvel {

class Ranmar {
 public:
  // False, and a stop of the run, for seeds out of range: seed1 0 to 31328, seed2 0 to 30081.
  bool start(int seed1, int seed2);
  // The next uniform deviate, 24 bits, from 0 (inclusive) to 1.
  double operator()();

 private:
  std::array<double, 97> U_{};
  double c_ = 0.0;
  std::size_t i_ = 96, j_ = 32;
};

}  // namespace korvel
