// The moments of a system's columns and its exogenous block.

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/files.h"
#include "engine/output.h"
#include "engine/units.h"
#include "expr/kernels/cholesky.h"
#include "expr/kernels/lsreg.h"
#include "expr/kernels/packed.h"
#include "regress/ols_parts.h"
#include "regress/systems.h"

namespace korvel {
namespace {

std::size_t at(int i) { return static_cast<std::size_t>(i); }

// Means and sums of products about them; element (P, P), the constant's, holds the number of rows.
// This triangle is what IN= and OUT= exchange: in the constant's row stand the means.
bool write_moments(int unit, std::span<const double> mean, std::span<double> cross) {
  const auto P = static_cast<int>(mean.size());
  say<"(' ..THE OUT OPTION REQUIRES A FILE WITH SIZE=', I0)">(
      static_cast<std::int64_t>(8 * packed_words(P)));
  FileOutput file;
  if (!open_output_file(file, unit, {}, WriteMode::replace)) return false;
  for (int j = 1; j < P; ++j) cross[packed(P, j)] = mean[at(j - 1)];
  file.write(cross.data(), 8 * packed_words(P));
  for (int j = 1; j < P; ++j) cross[packed(P, j)] = 0.0;
  return commit_output_file(file);
}

// Whether the file is of these columns in this order: nothing but numbers stands in it, so means
// and squares are compared with those of the rows where the sample has as many. Else the user is
// told.
bool belongs_to_rows(const SystemData& data, std::span<const double> mean,
                     std::span<const double> cross) {
  const auto P = static_cast<int>(mean.size());
  const double N = cross[packed(P, P)];
  if (N != static_cast<double>(data.rows)) {
    warn<"(' ...WARNING..THE MOMENTS ARE OF ', I0, ' OBSERVATIONS, THE SAMPLE HAS ', I0)">(
        static_cast<std::int64_t>(N), data.rows);
    return true;
  }
  for (int c = 0; c + 1 < P; ++c) {
    const std::span<const double> x(data.column[at(c)], static_cast<std::size_t>(data.rows));
    double difference = 0.0, square = 0.0;
    for (const double v : x) {
      const double d = v - mean[at(c)];
      difference += d;
      square += d * d;
    }
    const double wanted = cross[packed(c + 1, c + 1)];
    const double rounding = MACOM.EPSNEG * mean[at(c)] * mean[at(c)] * N;
    if (!(std::fabs(square - wanted) <= 1e-6 * wanted + rounding)) return false;
    if (!(difference * difference / N <= 1e-6 * wanted + rounding)) return false;
  }
  return true;
}

bool read_moments(int unit, const SystemData& data, std::span<double> mean,
                  std::span<double> cross) {
  const auto P = static_cast<int>(mean.size());
  DataUnit* file = open_data_unit(unit, {}, true);
  if (file == nullptr) return false;
  const std::string_view bytes = file->rest();
  const std::size_t wanted = 8 * packed_words(P);
  const bool fits = bytes.size() == wanted;
  if (fits) std::memcpy(cross.data(), bytes.data(), wanted);
  const auto found = static_cast<std::int64_t>(bytes.size());
  close_data_unit(file);
  const double N = fits ? cross[packed(P, P)] : 0.0;
  bool good = N >= 1.0 && N == std::floor(N);
  if (good) {
    for (int j = 1; j < P; ++j) {
      mean[at(j - 1)] = cross[packed(P, j)];
      cross[packed(P, j)] = 0.0;
    }
    mean[at(P - 1)] = 1.0;
    good = belongs_to_rows(data, mean, cross);
  }
  if (!good) {
    fail<
        "(' ...ERROR..UNIT ', I0, ' DOES NOT HOLD THE MOMENTS OF THIS SYSTEM: ', I0, ' BYTES OF ', "
        "I0)">(unit, found, static_cast<std::int64_t>(wanted));
  }
  return good;
}

// Squares that leave the range of reals, and values that are not numbers.
bool check_columns(Workspace ws, const SystemModel& model, std::span<const double> mean,
                   std::span<const double> cross, double rows) {
  for (int c = 0; c + 1 < model.P(); ++c) {
    const double m = mean[at(c)];
    const double square = cross[packed(c + 1, c + 1)] + rows * m * m;
    const int var = model.column[at(c)].var;
    if (std::isnan(square)) return refuse_values(ws, var);
    if (square != 0.0 && !(square > 1e-240 && square < 1e240)) {
      fail<"(' ...ERROR..VARIABLE ', A, ' IS TOO LARGE OR TOO SMALL FOR THIS FIT. RESCALE IT')">(
          NAME(ws, var));
      return false;
    }
  }
  return true;
}

// An exogenous variable that does not vary beyond the rounding of its mean.
bool refuse_constants(Workspace ws, const SystemModel& model, std::span<const double> mean,
                      std::span<const double> cross, double rows) {
  if (!SYSCOM.CONEXOGS || model.L() == 0) return true;
  for (const int c : model.instrument) {
    const double rounding = 8.0 * MACOM.EPSNEG * mean[at(c)];
    const bool ones = c == model.constant_column();
    if (ones || cross[packed(c + 1, c + 1)] > rows * rounding * rounding) continue;
    fail<"(' ...ERROR..EXOG. VAR. ', A, ' IS A CONSTANT... A CONSTANT IS AUTOMATICALLY INCLUDED')">(
        NAME(ws, model.column[at(c)].var));
    return false;
  }
  return true;
}

}  // namespace

std::int64_t system_moment_words(const SystemModel& model, std::int64_t rows) {
  const int P = model.P();
  const int columns = SYSCOM.AUTO ? 2 * P : P;
  return static_cast<std::int64_t>(packed_words(columns)) + std::int64_t{3} * (P + columns) +
         LSMOM_words(columns, rows);
}

bool form_moments(Workspace ws, const SystemModel& model, const SystemData& data, bool drop_first,
                  std::span<double> work, SystemMoments& moments) {
  const int P = model.P();
  moments.lagged = SYSCOM.AUTO;
  const int columns = moments.lagged ? 2 * P : P;
  const auto take = [&](std::size_t n) {
    const std::span<double> part = work.first(n);
    work = work.subspan(n);
    return part;
  };
  moments.base = take(packed_words(columns));
  moments.shift = take(at(P));
  moments.scale = take(at(P));
  const std::span<double> first = take(at(P));
  const std::span<double> mean = take(at(columns));
  const std::span<double> places = take(at(columns));
  auto* const pointers = reinterpret_cast<const double**>(places.data());
  std::uninitialized_fill_n(pointers, columns, nullptr);
  // 1. Sums over the rows: from the second one on, and one row back, for autoregressive errors.
  const std::int64_t lag = moments.lagged ? 1 : 0;
  for (int c = 0; c < P; ++c) {
    const double* column = data.column[at(c)];
    if (column == nullptr) continue;
    pointers[c] = column + lag;
    if (moments.lagged) pointers[P + c] = column;
  }
  const std::int64_t summed = data.rows - lag;
  auto n = static_cast<double>(summed);
  if (SYSCOM.IN != 0) {
    if (!read_moments(SYSCOM.IN, data, mean, moments.base)) return false;
    n = moments.base[packed(P, P)];
  } else {
    LSMOM({.x = {{pointers, at(columns)}, summed, nullptr, {}}}, work, mean, moments.base);
  }
  if (!check_columns(ws, model, mean.first(at(P)), moments.base, n)) return false;
  if (!refuse_constants(ws, model, mean, moments.base, n)) return false;
  moments.base[packed(P, P)] = n;
  if (SYSCOM.OUT != 0 && !write_moments(SYSCOM.OUT, mean, moments.base)) return false;
  moments.rows = n + (moments.lagged && !drop_first ? 1.0 : 0.0);
  // 2. The shift: a constant on either side of the equations takes it up.
  const bool shifted = model.constant && (model.L() == 0 || SYSCOM.CONEXOGS);
  for (int c = 0; c < P; ++c) moments.shift[at(c)] = shifted && c + 1 < P ? mean[at(c)] : 0.0;
  const auto offset = [&](int c) { return mean[at(c)] - moments.shift[at(c % P)]; };
  for (int i = 0; i < columns; ++i) {
    for (int j = 0; j <= i; ++j) {
      const bool ones = i % P == P - 1 && j % P == P - 1;
      double& m = moments.base[packed(i + 1, j + 1)];
      m = ones ? n : m + n * offset(i) * offset(j);
    }
  }
  // 3. Columns of length 1.
  for (int c = 0; c < P; ++c) {
    const double square = moments.base[packed(c + 1, c + 1)];
    moments.scale[at(c)] = square > 0.0 ? 1.0 / std::sqrt(square) : 1.0;
  }
  for (int i = 0; i < columns; ++i) {
    for (int j = 0; j <= i; ++j) {
      moments.base[packed(i + 1, j + 1)] *= moments.scale[at(i % P)] * moments.scale[at(j % P)];
    }
  }
  // 4. The first row where it is kept.
  moments.first = {};
  if (!moments.lagged || drop_first) return true;
  moments.first = first;
  for (int c = 0; c < P; ++c) {
    const double v = data.column[at(c)] == nullptr ? 1.0 : data.column[at(c)][0];
    first[at(c)] = (v - moments.shift[at(c)]) * moments.scale[at(c)];
  }
  return true;
}

double column_product(const SystemModel& model, const SystemMoments& moments, int a, int b,
                      bool about_means) {
  const int ones = model.constant_column();
  const auto sum = [&](int c, int d) {
    double s = moments.base[packed(c + 1, d + 1)];
    if (!moments.first.empty()) s += moments.first[at(c)] * moments.first[at(d)];
    return s / (moments.scale[at(c)] * moments.scale[at(d)]);
  };
  const double n = sum(ones, ones);
  const double product = sum(a, b) - sum(a, ones) * sum(b, ones) / n;
  if (about_means) return product;
  return product + n * column_mean(model, moments, a) * column_mean(model, moments, b);
}

double column_mean(const SystemModel& model, const SystemMoments& moments, int c) {
  const int ones = model.constant_column();
  double s = moments.base[packed(c + 1, ones + 1)];
  double n = moments.base[packed(ones + 1, ones + 1)];
  if (!moments.first.empty()) {
    s += moments.first[at(c)] * moments.first[at(ones)];
    n += moments.first[at(ones)] * moments.first[at(ones)];
  }
  return moments.shift[at(c)] + s / n * moments.scale[at(ones)] / moments.scale[at(c)];
}

bool SYSXOG(Workspace ws, const SystemModel& model, SystemFit& fit) {
  const Trace trace("SYSXOG");
  const int IFAULT = fit.form();
  if (IFAULT != 0) {
    OCOM.IFAULT = IFAULT;
    MATINV(IFAULT, " INVERSE OF EXOG. VARS. MAT.");
    warn<"(' ...WARNING..THIS USUALLY INDICATES PERFECT MULTICOLLINEARITY WITH VARIABLE ', A)">(
        instrument_name(model, std::abs(IFAULT) - 1));
    temporary(temporary_place("ERR")) = 6017;
    return false;
  }
  if (!OLSCOM.DUMP || model.L() == 0) return true;
  const int L = model.L();
  Scratch room(ws, static_cast<std::int64_t>(packed_words(L)));
  if (!room) return false;
  fit.instrument_inverse(room.words());
  print_system_matrix(" INVERSE OF EXOG. VARS. MAT.", room.words(), L, instrument_name, false);
  return true;
}

}  // namespace korvel
