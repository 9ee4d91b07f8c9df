// BJFMOD: the difference equation of an ARIMA model on the undifferenced series: forecasts, psi
// weights, theoretical autocorrelations. Kernels.
//
// ar holds the coefficients of the AR side with the differences multiplied in, ar[i-1] at lag i, so
// that y(t) = c + sum ar(i) y(t-i) + a(t) - sum ma(j) a(t-j).
#pragma once

#include <span>

#include "arima/bjearm.h"

namespace korvel {

// The AR side: orders.longest_ar() + orders.lost() words, from the AR list of the model.
void BJFMOD(const BjOrders& orders, const LagList& list, std::span<double> ar);

// Residuals of y, of the same length; 0 up to the longest lag, which may start no recursion.
void known_residuals(std::span<const double> y, std::span<const double> ar, const LagList& ma,
                     double c, std::span<double> a);

// Forecasts 1, 2, ... steps from the last value of y, whose residuals are a. `path` is work space
// of ar.size() + f.size() words.
void forecast_steps(std::span<const double> y, std::span<const double> a,
                    std::span<const double> ar, const LagList& ma, double c, std::span<double> path,
                    std::span<double> f);

// psi(0) = 1, psi(1), ...: the model as a moving average without end.
void psi_weights(std::span<const double> ar, const LagList& ma, std::span<double> psi);

// Terms of the moving average that stand for all of them, and autocorrelations made from them.
inline constexpr int THEORY_TERMS = 700;
inline constexpr int THEORY_LAGS = 199;

// rho(1) .. of a model without differences from its psi weights. False when these do not die out:
// the last 20 of the first 500 have a sum of absolute values of 1E-4 or more.
bool theoretical_autocorrelations(std::span<const double> psi, std::span<double> rho);

// 2 pi / arccos(r), the mean time between upcrosses of a Gaussian series with first
// autocorrelation r (Rice 1944; Kedem 1986); infinite for r = 1. The peaks of a series are the
// crossings of its first difference, whose r is (2 r1 - r2 - 1) / (2 (1 - r1)).
double mean_time(double r);

}  // namespace korvel
