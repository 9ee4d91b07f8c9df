// Speed of the matrix kernels: product, product with its own transpose, inverse, determinant,
// Cholesky factor, eigenvalues, singular values; and of a whole MATRIX statement. `multiply_add` is
// the bound of the first ones: as many separately rounded products and sums from registers alone.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "engine/commands.h"
#include "engine/output.h"
#include "engine/run.h"
#include "expr/genr.h"
#include "expr/kernels/dense_cholesky.h"
#include "expr/kernels/gemm.h"
#include "expr/kernels/general_eigen.h"
#include "expr/kernels/lu.h"
#include "expr/kernels/svd.h"
#include "expr/kernels/symmetric_eigen.h"
#include "expr/matrix.h"

namespace {

using korvel::by_columns;
using Reals = std::vector<double>;

std::size_t size_of(std::int64_t n) { return static_cast<std::size_t>(n); }

Reals random_matrix(std::int64_t n, std::uint32_t s = 1) {
  Reals a(size_of(n * n));
  for (double& v : a) {
    s = s * 1664525U + 1013904223U;
    v = static_cast<double>(s) * 0x1p-32 - 0.5;
  }
  return a;
}

// A'A + n I.
Reals definite_matrix(std::int64_t n) {
  const Reals a = random_matrix(n);
  Reals c(a.size());
  Reals work(size_of(korvel::DGMULT_words(n, n, n)));
  korvel::DGMULT(korvel::transpose_of(a.data(), n), by_columns(a.data(), n), c.data(),
                 {.rows = n, .columns = n, .inner = n, .ld = n, .symmetric = true}, work);
  for (std::int64_t i = 0; i < n; ++i) c[size_of(i * (n + 1))] += static_cast<double>(n);
  return c;
}

void product(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  const bool own = state.range(1) != 0;  // A'A
  const Reals a = random_matrix(n);
  const Reals b = random_matrix(n, 2);
  Reals c(a.size());
  Reals work(size_of(korvel::DGMULT_words(n, n, n)));
  for (auto _ : state) {
    const auto left = own ? korvel::transpose_of(a.data(), n) : by_columns(a.data(), n);
    korvel::DGMULT(left, by_columns(own ? a.data() : b.data(), n), c.data(),
                   {.rows = n, .columns = n, .inner = n, .ld = n, .symmetric = own}, work);
    benchmark::DoNotOptimize(c.data());
  }
  state.SetItemsProcessed(state.iterations() * n * n * n);
}
BENCHMARK(product)->ArgsProduct({{10, 100, 500, 1000}, {0, 1}})->UseRealTime();

// One tile of the product again and again: everything in the first cache, one thread.
void multiply_add(benchmark::State& state) {
  const korvel::GemmLanes& lanes = korvel::gemm_lanes();
  constexpr std::int64_t K = 64;
  const auto height = korvel::MOST_PARTS * lanes.width;
  alignas(64) static double a[korvel::MOST_HEIGHT * K];
  alignas(64) static double b[korvel::MOST_NR * K];
  alignas(64) static double c[korvel::MOST_HEIGHT * korvel::MOST_NR];
  for (auto _ : state) {
    lanes.tile[korvel::MOST_PARTS - 1](a, b, K, c, height, korvel::GEMM_SET);
    benchmark::DoNotOptimize(c);
  }
  state.SetItemsProcessed(state.iterations() * K * height * lanes.NR);
}
BENCHMARK(multiply_add);

template <class F>
void over_copies(benchmark::State& state, const Reals& given, F&& run) {
  Reals a;
  for (auto _ : state) {
    state.PauseTiming();
    a = given;
    state.ResumeTiming();
    benchmark::DoNotOptimize(run(a.data()));
  }
}

void inverse(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Reals work(size_of(korvel::LU_words(n)));
  korvel::ScaledProduct det;
  over_copies(state, random_matrix(n),
              [&](double* a) { return korvel::matrix_inverse(a, static_cast<int>(n), det, work); });
}
BENCHMARK(inverse)->Arg(100)->Arg(500)->UseRealTime()->Unit(benchmark::kMicrosecond);

void determinant(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Reals work(size_of(korvel::LU_words(n)));
  korvel::ScaledProduct det;
  over_copies(state, random_matrix(n),
              [&](double* a) { return korvel::determinant(a, static_cast<int>(n), det, work); });
}
BENCHMARK(determinant)->Arg(500)->UseRealTime()->Unit(benchmark::kMicrosecond);

void cholesky(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Reals work(size_of(korvel::dense_cholesky_words(n)));
  over_copies(state, definite_matrix(n),
              [&](double* a) { return korvel::dense_cholesky(a, static_cast<int>(n), work); });
}
BENCHMARK(cholesky)->Arg(500)->UseRealTime()->Unit(benchmark::kMicrosecond);

void symmetric_values(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Reals values(size_of(n));
  Reals work(size_of(korvel::symmetric_eigen_words(n)));
  over_copies(state, definite_matrix(n), [&](double* a) {
    return korvel::symmetric_eigen(a, static_cast<int>(n), true, values, work);
  });
}
BENCHMARK(symmetric_values)->Arg(300)->UseRealTime()->Unit(benchmark::kMillisecond);

void general_values(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Reals re(size_of(n)), im(size_of(n)), z(size_of(n * n));
  Reals work(size_of(korvel::general_eigen_words(n)));
  over_copies(state, random_matrix(n), [&](double* a) {
    return korvel::general_eigen(a, static_cast<int>(n), re, im, z.data(), work);
  });
}
BENCHMARK(general_values)->Arg(300)->UseRealTime()->Unit(benchmark::kMillisecond);

void singular_values(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Reals values(size_of(n)), v(size_of(n * n));
  Reals work(size_of(korvel::SVD_words(n, n)));
  over_copies(state, random_matrix(n), [&](double* a) {
    return korvel::SVD(a, n, static_cast<int>(n), n, values, v.data(), true, work);
  });
}
BENCHMARK(singular_values)->Arg(300)->UseRealTime()->Unit(benchmark::kMillisecond);

// A whole statement on small matrices: what the compiler and the loop over the code list cost.
void statement(benchmark::State& state) {
  std::int64_t largest = 0;
  korvel::new_workspace(4000, 200, &largest);
  const korvel::Workspace ws = korvel::workspace();
  korvel::RESET(ws);
  korvel::OCOM.OPUT = false;
  const auto run = [&](std::string_view text) {
    korvel::GenrJob job;
    job.text = text;
    job.IKOD = korvel::K_MATRIX;
    return korvel::run_matrix(ws, job);
  };
  run("X=IDEN(5)*4+1");
  run("Y=X:1");
  for (auto _ : state) benchmark::DoNotOptimize(run("B=INV(X'X)*X'Y"));
}
BENCHMARK(statement);

}  // namespace
