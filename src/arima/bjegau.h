// BJEGAU: least squares of the residuals of an ARMA model by Marquardt's (1963) compromise between
// Gauss-Newton and steepest descent, with numeric derivatives. Kernel.
//
// The constant is held as the mean of the series while the fit runs: at a fixed constant a step of
// an AR parameter moves the mean of a series that is far from zero by several times its spread, and
// the minimiser stops at once.
#pragma once

#include <cstdint>
#include <span>

#include "arima/bjearm.h"

namespace korvel {

enum class GaussStop : std::uint8_t {
  parameters,  // the relative change of every parameter is small
  squares,     // that of the sum of squares is
  limit,       // the last iteration was not enough
  no_step,     // no step lowers the sum of squares
  asked,       // the watcher asked to stop
};

struct GaussFit {
  double S0 = 0.0, S = 0.0;  // sums of squares at the start and at the end
  int iterations = 0;
  GaussStop stop = GaussStop::limit;
  bool singular = false;  // J'J at the end has no inverse: cov is 0
};

// What a watcher of the iterations is shown; false asks to stop. A view of a callable that outlives
// the call.
struct GaussStep {
  int iteration = 0;
  double S = 0.0, lambda = 0.0, angle = 0.0, gamma = 0.0;
  std::span<const double> b;  // as the caller knows the parameters: the last is the constant
};
class GaussWatcher {
 public:
  template <class F>
  // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload)
  GaussWatcher(F& f)
      : context_(const_cast<void*>(static_cast<const void*>(&f))),
        call_([](void* c, const GaussStep& s) -> bool { return (*static_cast<F*>(c))(s); }) {}
  bool operator()(const GaussStep& step) const { return call_(context_, step); }

 private:
  void* context_;
  bool (*call_)(void*, const GaussStep&);
};

inline constexpr double GAUSS_TOLERANCE = 1e-4;  // of both tests for the end

struct GaussProblem {
  BjOrders orders;
  double h = 0.01;  // step of the derivatives, relative to the parameter
  int ITER = 50;
};

// Words of work space for k parameters and n observations.
std::size_t BJEGAU_words(int k, std::size_t n);

// The sum of squares at the start alone, for the line in front of the iterations; the same work
// space and arguments.
double BJEGAU_start(const GaussProblem& problem, std::span<const double> series,
                    std::span<const double> b, std::span<double> a, std::span<double> work);

// series: n differenced values, n > longest AR lag. b: start values, replaced by the estimates; a
// parameter that starts at 0 stays there. a: PRESAMPLE + n places, gets the residuals; the last n
// are those of the sample. cov: packed, gets T (J'J)^-1 T' without sigma squared, rows of
// parameters that stayed at 0 are 0.
GaussFit BJEGAU(const GaussProblem& problem, std::span<const double> series, std::span<double> b,
                std::span<double> a, std::span<double> cov, std::span<double> work,
                const GaussWatcher& watch);

}  // namespace korvel
