// Critical values and p-values of unit-root and cointegration statistics.
//
// t-statistics: response surfaces of MacKinnon (2010, Queen's Economics Department Working Paper
// 1227) for critical values, of MacKinnon (1994, J. Business and Economic Statistics 12, 167-176)
// for asymptotic p-values. Normalised coefficients and F statistics: asymptotic values of Fuller
// (1976) and of Dickey and Fuller (1981).
#pragma once

#include <array>
#include <cstdint>

namespace korvel {

enum class Deterministic : std::uint8_t { none, constant, trend };
enum class UnitRootKind : std::uint8_t { tau, z, phi1, phi2, phi3 };

struct CriticalValues {
  std::array<double, 3> at{};  // 1, 5 and 10 per cent
  bool known = false;
};

// N variables (1: a series by itself), n observations of the regression.
CriticalValues unit_root_critical(UnitRootKind kind, Deterministic terms, int N, double n);

// Asymptotic P(tau <= t); negative where no surface is known.
double unit_root_p_value(double t, Deterministic terms, int N);

}  // namespace korvel
