#include "nonlinear/ranmar.h"

#include "engine/output.h"

namespace korvel {
namespace {

constexpr double UNIT = 16777216.0;  // 2**24
constexpr double FIRST_C = 362436.0 / UNIT, STEP_C = 7654321.0 / UNIT, RANGE_C = 16777213.0 / UNIT;
constexpr int STOP_CODE = 1;

}  // namespace

bool Ranmar::start(int seed1, int seed2) {
  if (seed1 < 0 || seed1 > 31328 || seed2 < 0 || seed2 > 30081) {
    error_line(" THE FIRST RANDOM NUMBER SEED MUST HAVE A VALUE BETWEEN 0 AND 31328");
    say(" THE SECOND SEED MUST HAVE A VALUE BETWEEN 0 AND 30081");
    end_unless_talking(STOP_CODE);
    return false;
  }
  int i = seed1 / 177 % 177 + 2, j = seed1 % 177 + 2;
  int k = seed2 / 169 % 178 + 1, l = seed2 % 169;
  for (double& word : U_) {
    double s = 0.0, t = 0.5;
    for (int bit = 0; bit < 24; ++bit) {
      const int m = i * j % 179 * k % 179;
      i = j;
      j = k;
      k = m;
      l = (53 * l + 1) % 169;
      if (l * m % 64 >= 32) s += t;
      t *= 0.5;
    }
    word = s;
  }
  c_ = FIRST_C;
  i_ = 96;
  j_ = 32;
  return true;
}

double Ranmar::operator()() {
  double u = U_[i_] - U_[j_];
  if (u < 0.0) u += 1.0;
  U_[i_] = u;
  i_ = i_ == 0 ? U_.size() - 1 : i_ - 1;
  j_ = j_ == 0 ? U_.size() - 1 : j_ - 1;
  c_ -= STEP_C;
  if (c_ < 0.0) c_ += RANGE_C;
  u -= c_;
  if (u < 0.0) u += 1.0;
  return u;
}

}  // namespace korvel
