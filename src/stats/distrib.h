// DISTRIB while it runs: the option table and what its parts hand to one another.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "data/format.h"
#include "engine/options.h"
#include "stats/law.h"

namespace korvel {

inline constexpr auto DISTOPT = option_table(
    logical("LIST", true), logical("ALL"), logical("INVERSE"), logical("MAX"), logical("DUMP"),
    logical("LLF"),  //
    integer("BEG"), integer("END"), integer("DF"), integer("DF2"), integer("DF1"), integer("UNIT"),
    integer("N"), integer("NEIGEN"), integer("BIGN"), integer("BIGX"), integer("LIMIT", 100000),
    real("V"), real("S"), real("STDEV"), real("SKEWNESS"), real("K"), real("P"), real("Q"),
    real("C"), real("MEAN"), real("VARIANCE", 1.0), real("H", 1.0), real("ACCURACY", 1e-6),
    real("KURTOSIS"), real("X"),  //
    variable("TYPE", "NORMAL"), variable("FILE"), variable("PDF"), variable("CDF"),
    variable("CRITICAL"), variable("EIGENVAL"), variable("DFVECTOR"), variable("LAMBDA"),
    variable("NCENTR"));
static_assert(DISTOPT.words.size() == 6 + 11 + 14 + 9);

// Values of the running command by the word of the option.
using DistOption = OptionValues<DISTOPT>;

// What the vectors of IMHOF and DAVIES need beside their variables: filled once, before the rows.
struct LawRoom {
  std::vector<double> ones, zeros;
  std::vector<int> rank;
};

// The distribution that TYPE= and the parameters ask for, with the word that names it. False after
// the failure has been reported.
bool take_law(Workspace ws, Law& law, LawRoom& room, std::string_view& word);

// The lines that name the distribution, its parameters and moments.
void print_law(const Law& law, const Moments& m, std::string_view word);

// One table: the values of a variable (or of three under BINORMAL) at rows first .. first+rows-1.
struct DistribTable {
  std::span<const double> x{}, y{}, rho{};
  std::int64_t first = 1;
  std::int64_t rows = 0;
  std::span<const double> skip{};  // skip[i-1] above 0: observation i is left out
  double at(std::span<const double> v, std::int64_t row) const {
    return v[static_cast<std::size_t>(row)];
  }
};

struct DistribJob {
  Law law{};
  std::string_view word{};
  Moments moments{};
  bool list = false;    // rows are printed
  bool failed = false;  // a row was in error: told at the end, the other rows are good
  double LLF = 0;
  // Results by observation, one column a table; empty when they are not wanted.
  std::span<double> PDF{}, CDF{}, CRITICAL{};
  std::int64_t length = 0;     // of a column
  std::span<double> sorted{};  // work space of the empirical types
  std::int64_t used = 0;       // values in it
};

// EMPIR and SEMPIR.
inline bool empirical(const DistribJob& job) {
  return job.law.type == LawType::EMPIR || job.law.type == LawType::SEMPIR;
}

// A table from its heading to the statistics behind it. Column `number` of the results is filled.
void run_table(DistribJob& job, const DistribTable& table, std::int64_t number);

// Rows of a file or of the command stream: as many numbers a line as the distribution takes. An
// END line ends them, in the stream also the next command. False after a reported failure.
class RowReader {
 public:
  explicit RowReader(std::size_t columns) : columns_(columns) {}
  bool read_file(int unit, std::string_view typed);
  bool read_stream();
  std::int64_t rows() const { return std::ssize(values_[0]); }
  std::span<const double> column(std::size_t j) const { return values_[j]; }

 private:
  void reserve(std::size_t lines);
  bool take(std::string_view line);

  std::size_t columns_;
  std::array<std::vector<double>, 3> values_;
};

}  // namespace korvel
