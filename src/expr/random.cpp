// FRAND and FRANDN: uniform deviates by an additive lagged generator on real numbers, normal
// deviates by Forsythe's method (Brent 1974, Communications of the ACM 17, 704-706, algorithm 488).
//
// State: RANCOM, for the life of the process. The bulk forms give the very stream of the single
// ones; they keep the state in a local copy while they run.

#include <array>
#include <bit>
#include <chrono>
#include <cstdint>
#include <ctime>

#include "engine/output.h"
#include "expr/expr.h"

namespace korvel {
namespace {

constexpr std::array<int, 6> LEVELS = {22, 60, 63, 127, 153, 532};  // I127 by RANLEVEL
constexpr int TABLE = 532;
constexpr int PIECE = 12;  // bits that one step of the congruential filler adds to a word

// D(0) to D(28): d(i) is the difference of neighbouring ends of the intervals of the normal law.
constexpr std::array<double, 29> D = {
    0.0,         0.67448975,  0.47585963,  0.383771164, 0.328611323, 0.291142827,
    0.263684322, 0.242508452, 0.225567444, 0.211634166, 0.199924267, 0.189910758,
    0.181225181, 0.1736014,   0.166841909, 0.160796729, 0.155349717, 0.150409384,
    0.145902577, 0.141770033, 0.137963174, 0.134441762, 0.13117215,  0.128125965,
    0.12527909,  0.122610883, 0.12010356,  0.117741707, 0.0};
constexpr int LAST_D = 27;

// I leading ones: what takes them and the digit in front of them (0 or 1) off, and A, minus the sum
// of D(1) to D(I).
struct Shift {
  double scale = 0;
  std::array<double, 2> ones{};
  double A = 0;
};
constexpr auto SHIFTS = [] {
  std::array<Shift, LAST_D + 1> table{};
  double scale = 4.0;
  double A = 0.0;
  for (std::size_t i = 0; i < table.size(); ++i) {
    A -= D[i];
    table[i] = {scale, {scale * 0.5 - 2.0, scale - 2.0}, A};
    scale *= 2.0;
  }
  return table;
}();
constexpr std::uint64_t QUARTER_BITS = std::bit_cast<std::uint64_t>(0.25);
constexpr std::uint64_t HALF_EXPONENT = std::bit_cast<std::uint64_t>(0.5) >> 52;
constexpr std::uint64_t SIGN_BIT = std::uint64_t{1} << 63;

int whole_seed(double seed) {
  if (!(seed > -2147483649.0 && seed < 2147483648.0)) return 0;
  return static_cast<int>(seed);
}

// Mantissa bits of the working type, and what the filler needs of them.
void measure_precision() {
  int IW = 0;
  volatile double S = 0.0;  // sums go through storage: a wider register would count more bits
  volatile double R = 0.0;
  double T = 0.5;
  R = S;
  S = S + T;
  while (S > R && S < 1.0) {
    ++IW;
    T *= 0.5;
    R = S;
    S = S + T;
  }
  RANCOM.IW = IW;
  RANCOM.IKT = (IW - 1) / PIECE;
  const int rest = IW - PIECE * RANCOM.IKT;
  const int power = PIECE * RANCOM.IKT - IW + PIECE + 1;
  RANCOM.IID = power > 31 ? 0 : 1 << power;
  for (int i = 0; i < rest; ++i) RANCOM.RMC *= 0.5;
  RANCOM.RM = 1.0 / 4096.0;
}

// Fills the table from the seed; R1 is the word made last.
void fill_table(int seed) {
  if (RANCOM.IW < 1) measure_precision();
  const std::int64_t size = seed < 0 ? -std::int64_t{seed} : std::int64_t{seed};
  int K = static_cast<int>(size % 8190) + 1;
  for (RANCOM.II2 = RANCOM.I127; RANCOM.II2 > 0; --RANCOM.II2) {
    double word = 0.0;
    for (int i = 0; i < RANCOM.IKT; ++i) {
      K = 17 * K % 8191;
      word = (K * 0.5 + word) * RANCOM.RM;
    }
    K = 17 * K % 8191;
    word = (static_cast<double>(RANCOM.IID > 0 ? K / RANCOM.IID : 0) + word) * RANCOM.RMC;
    RANCOM.R3[RANCOM.II2 - 1] = word;
    RANCOM.R1 = word;
  }
}

// The running generator: a copy of the words that a draw changes.
class Stream {
 public:
  Stream() : R1_(RANCOM.R1), U1_(RANCOM.U1), II2_(RANCOM.II2), I127_(RANCOM.I127) {}
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() {
    RANCOM.R1 = R1_;
    RANCOM.U1 = U1_;
    RANCOM.II2 = II2_;
  }

  // One uniform. A word and R1 are below 1, so a sum that reaches 1 is taken again by halves.
  double uniform() {
    if (II2_ == 0) II2_ = I127_;
    double& word = RANCOM.R3[II2_ - 1];
    const double sum = R1_ + word;
    const double folded = (R1_ - 0.5) + (word - 0.5);
    // Chosen by mask: a branch would be guessed wrong every other time.
    const std::uint64_t over = 0 - static_cast<std::uint64_t>(sum >= 1.0);
    auto V = std::bit_cast<double>((std::bit_cast<std::uint64_t>(folded) & over) |
                                   (std::bit_cast<std::uint64_t>(sum) & ~over));
    if (V <= 0.0) [[unlikely]]
      V = 0x1p-54;  // the sum was rounded up to 1
    R1_ = V;
    word = V;
    --II2_;
    return V;
  }

  // One normal from the quotient that the call before has left: its first binary digit was that
  // call's sign, the rest is U1, whose I leading ones pick the interval. Taking digits off is
  // exact, so it is done in one step. Leaves a new quotient.
  double normal_step(double& quotient) {
    const auto bits = std::bit_cast<std::uint64_t>(quotient);
    const std::uint64_t upper = bits >> 52 == HALF_EXPONENT;
    int I = bits < QUARTER_BITS ? 0 : std::countl_one(bits << 12) + 1 - static_cast<int>(upper);
    double U;
    if (I >= static_cast<int>(LAST_D) || quotient >= 1.0) [[unlikely]] {
      U = pick_slowly(quotient, I);
    } else {
      const Shift& shift = SHIFTS[static_cast<std::size_t>(I)];
      U = quotient * shift.scale - shift.ones[upper];
    }
    const double A = SHIFTS[static_cast<std::size_t>(I)].A;
    const double width = D[static_cast<std::size_t>(I) + 1];
    double W = width * U;
    double T = (0.5 * W - A) * W;
    U = uniform();
    while (T > U) {  // not accepted yet
      const double next = uniform();
      if (next < U) {
        T = next;
      } else {  // rejected: a new place in the interval
        U = (next - U) / (1.0 - U);
        W = width * U;
        T = (0.5 * W - A) * W;
      }
      U = uniform();
    }
    quotient = (U - T) / (1.0 - T);
    const std::uint64_t lower = 0 - static_cast<std::uint64_t>(quotient < 0.5);
    return std::bit_cast<double>(std::bit_cast<std::uint64_t>(W - A) ^ (lower & SIGN_BIT));
  }

  double normal() {
    double quotient = U1_ * 0.5;
    const double z = normal_step(quotient);
    take_quotient(quotient);
    return z;
  }
  void normals(std::span<double> x) {
    double quotient = U1_ * 0.5;
    for (double& z : x) z = normal_step(quotient);
    take_quotient(quotient);
  }

 private:
  // The same by single steps, for a quotient of 1 or more ones than the table has: U1, sets I.
  double pick_slowly(double quotient, int& I) {
    double U = quotient + quotient;
    if (U >= 1.0) U -= 1.0;
    for (I = 0;;) {
      U = U + U;
      if (U == 2.0) U = uniform();
      if (U < 1.0 || I == LAST_D) return U;
      ++I;
      U -= 1.0;
    }
  }
  void take_quotient(double quotient) {
    U1_ = quotient + quotient;
    if (U1_ >= 1.0) U1_ -= 1.0;
  }

  double R1_, U1_;
  int II2_;
  int I127_;
};

bool running(int seed) { return RANCOM.R1 < 1.0 && seed == 0; }

// Milliseconds since midnight, local time, with hundredths of a second as the clock gives them.
int clock_seed() {
  const auto now = std::chrono::system_clock::now();
  const auto since = now.time_since_epoch();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  std::tm local{};
  localtime_r(&seconds, &local);
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(since).count() % 1000;
  const int hundredths = static_cast<int>(ms / 10);
  return local.tm_hour * 3600000 + local.tm_min * 60000 + local.tm_sec * 1000 + hundredths;
}

}  // namespace

double FRAND(double seed) {
  const int s = whole_seed(seed);
  if (!running(s)) fill_table(s);
  return Stream().uniform();
}

double FRANDN(double seed) {
  const int s = whole_seed(seed);
  if (RANCOM.U1 < 0.0 || s != 0) RANCOM.U1 = FRAND(seed);
  if (!running(0)) fill_table(0);
  return Stream().normal();
}

void fill_uniform(std::span<double> x) {
  if (!running(0)) fill_table(0);
  Stream stream;
  for (double& v : x) v = stream.uniform();
}

void fill_normal(std::span<double> x) {
  if (x.empty()) return;
  if (RANCOM.U1 < 0.0) RANCOM.U1 = FRAND(0.0);
  Stream stream;
  stream.normals(x);
}

void seed_random() {
  if (OSCOM.ORANST) return;
  RANCOM.U1 = -1.0;
  RANCOM.IW = -1;
  RANCOM.RMC = 1.0;
  RANCOM.R1 = 2.0;
  for (int i = 0; i < 127; ++i) RANCOM.R3[i] = 0.0;
  const double seed = GENCOM.LSEED != 0 ? GENCOM.LSEED : clock_seed();
  FRAND(seed);
  FRANDN(seed);
  OSCOM.ORANST = true;
}

void set_ranseed(int seed) {
  if (seed != GENCOM.LSEED) OSCOM.ORANST = false;
  GENCOM.LSEED = seed;
}

void set_ranlevel(int level) {
  if (level < 1 || level > static_cast<int>(LEVELS.size())) {
    return warn<"(' ...WARNING..RANLEVEL IS 1 TO 6, ', I0, ' CHANGES NOTHING')">(level);
  }
  const int words = LEVELS[static_cast<std::size_t>(level) - 1];
  static_assert(LEVELS.back() == TABLE);
  if (words == RANCOM.I127) return;
  RANCOM.I127 = words;
  // A running generator would meet words of the old length: it starts anew. One that RANFIX has
  // released and that has not drawn yet keeps its fixed start.
  const bool untouched = !(RANCOM.R1 < 1.0);
  if (!untouched) OSCOM.ORANST = false;
}

int ranlevel() {
  for (std::size_t i = 0; i < LEVELS.size(); ++i) {
    if (LEVELS[i] == RANCOM.I127) return static_cast<int>(i) + 1;
  }
  return 0;
}

}  // namespace korvel
