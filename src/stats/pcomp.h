// PCOMP: principal components of the listed variables. pcomp.cpp is the command routine PCOMC,
// pcomp_tables.cpp its tables and stored results, pcompv.cpp the rotation PCOMPV.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "engine/options.h"
#include "engine/workspace.h"
#include "stats/stats_moments.h"

namespace korvel {

inline constexpr auto PCOPT = option_table(
    logical("MAX"), logical("LIST"), logical("DUMP"), logical("PEVECTOR"), logical("PFMATRIX"),
    logical("PRMATRIX"), logical("CORRELAT"), logical("RAW"), logical("SCALED"),
    logical("PCOLLINE"), logical("ESCALE"), logical("ORDER"), integer("BEG"), integer("END"),
    integer("NCODE"), integer("MAXFACTO"), real("MINEIGEN"), variable("PCOMPONE"),
    variable("EVECTORS"), variable("PCINFORM"), variable("EVALUES"));
static_assert(PCOPT.words.size() == 21);

using PcOption = OptionValues<PCOPT>;

// What the moment matrix is made of, and with it the columns of the components.
enum class PcForm : std::uint8_t {
  Covariance,   // deviations, divided by N-1
  Correlation,  // standardized
  Scaled,       // unit length about the origin
  Raw,          // as they are, undivided
};

// n variables, m factors kept. Places count from 0.
struct PcJob {
  PcForm form = PcForm::Covariance;
  int n = 0;
  int m = 0;
  bool print = false;
  std::vector<const double*> x;  // columns from the first observation of the range on
  std::vector<SeriesMoments> moments;
  std::int64_t rows = 0;           // of the range
  std::int64_t N = 0;              // rows of it that count
  std::span<const double> marks;   // rows that do not
  std::span<const double> moment;  // packed n: the moment matrix
  std::span<const double> value;   // n eigenvalues, falling; 0 where one is lost in rounding
  std::span<const double> vector;  // n by n, by columns in the order of the values
  std::span<double> factor;        // n by m, by columns

  double eigenvector(int i, int j) const { return vector[static_cast<std::size_t>(j * n + i)]; }
  double diagonal(int i) const {
    return moment[static_cast<std::size_t>(i) * static_cast<std::size_t>(i + 3) / 2];
  }
  double lambda(int j) const { return value[static_cast<std::size_t>(j)]; }
};

// What component j is divided by, and column i before it enters: z = sum a (x - about) / unit.
struct PcColumn {
  double about = 0.0;
  double unit = 1.0;
};
PcColumn pc_column(const PcJob& job, int i);

// Varimax rotation (Kaiser 1959, Educational and Psychological Measurement 19, 413-420) of the
// loadings a, p rows by m columns, in place. Rows are divided by the root of their sum of squares
// before, and multiplied back. Prints its cycles with `trace`. work: p words. Returns the cycles.
int PCOMPV(std::span<double> a, int p, int m, bool trace, std::span<double> work);

void print_eigen(Workspace ws, const PcJob& job);
void print_factors(Workspace ws, PcJob& job, std::span<double> work);
void list_components(Workspace ws, const PcJob& job);
// Results come last: one of them may take the place of a listed variable.
void store_components(Workspace ws, const PcJob& job);
void store_eigen(Workspace ws, const PcJob& job);

}  // namespace korvel
