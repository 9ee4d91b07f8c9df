// DISTRIB: the parameters of the distribution and the lines that show them.

#include <algorithm>
#include <cmath>

#include "engine/output.h"
#include "stats/distrib.h"

namespace korvel {
namespace {

constexpr double PI = 3.14159265358979323846;
constexpr double EULER = 0.57721566490153286061;

bool bad_parameters() {
  fail(" ...YOU DID NOT SPECIFY THE DISTRIBUTION PARAMETERS PROPERLY");
  return false;
}
bool require(bool condition) { return condition || bad_parameters(); }

template <FixedText WORD>
bool positive() {
  const double value = DistOption::real<WORD>();
  return DistOption::given<WORD>() && value > 0.0 && std::isfinite(value);
}

// MEAN and VARIANCE or STDEV, which must not contradict one another.
bool take_moments(Law& law) {
  double variance = DistOption::real<"VARIANCE">();
  if (DistOption::given<"STDEV">()) {
    const double s = DistOption::real<"STDEV">();
    if (DistOption::given<"VARIANCE">() &&
        std::fabs(s * s - variance) > 1e-6 * std::fabs(variance)) {
      return bad_parameters();
    }
    if (!(s > 0.0)) return bad_parameters();
    variance = s * s;
  }
  law.location = DistOption::real<"MEAN">();
  law.scale = std::sqrt(variance);
  return require(variance > 0.0 && std::isfinite(variance) && std::isfinite(law.location));
}

// Non-centrality of F and CHI; that of T has either sign.
bool take_centrality(Law& law) {
  law.C = DistOption::real<"C">();
  if (law.C < 0.0) {
    fail<"(' ...ERROR..NEGATIVE NON-CENTRALITY PARAMETER C= ', G13.5)">(law.C);
    return false;
  }
  return require(std::isfinite(law.C));
}

// The elements of a vector that an option names. `least`: elements that must be there.
bool take_vector(Workspace ws, const NameOption& option, std::string_view word, std::size_t least,
                 std::span<const double>& out) {
  if (option.text.empty()) {
    fail<"(' ...ERROR..', A, ' DOES NOT EXIST IN PROPER FORM')">(word);
    return false;
  }
  if (option.var <= 0) {
    fail<"(' ...ERROR..', A, ' IS NOT CURRENTLY DEFINED')">(option.text);
    return false;
  }
  const int type = INFO(ws, option.var).ITYPE;
  if (OCOM.ODONT) return false;
  out = elements(ws, option.var);
  if (type >= STRING5 || out.empty() || out.size() < least) {
    fail<"(' ...ERROR..', A, ' DOES NOT EXIST IN PROPER FORM')">(option.text);
    return false;
  }
  return true;
}

bool take_imhof(Workspace ws, Law& law) {
  if (!take_vector(ws, DistOption::named<"EIGENVAL">(), "EIGENVAL", 1, law.weights)) return false;
  if (DistOption::given<"NEIGEN">()) {
    const int n = DistOption::integer<"NEIGEN">();
    if (n < 1 || static_cast<std::size_t>(n) > law.weights.size()) {
      fail(" ...INSUFFICIENT NUMBER OF ROOTS TO COMPUTE IMHOF");
      return false;
    }
    law.weights = law.weights.first(static_cast<std::size_t>(n));
  }
  return require(std::ranges::all_of(law.weights, [](double w) { return std::isfinite(w); }));
}

// Without DFVECTOR one degree of freedom each, without NCENTR no non-centrality.
bool take_davies(Workspace ws, Law& law, LawRoom& room) {
  if (!take_vector(ws, DistOption::named<"LAMBDA">(), "LAMBDA", 1, law.weights)) return false;
  const int n =
      DistOption::given<"N">() ? DistOption::integer<"N">() : static_cast<int>(law.weights.size());
  if (!require(n >= 1)) return false;
  const auto size = static_cast<std::size_t>(n);
  if (!take_vector(ws, DistOption::named<"LAMBDA">(), "LAMBDA", size, law.weights)) return false;
  law.weights = law.weights.first(size);
  room.rank.resize(size);
  law.rank = room.rank;
  if (DistOption::named<"DFVECTOR">().text.empty()) {
    room.ones.assign(size, 1.0);
    law.dfs = room.ones;
  } else if (!take_vector(ws, DistOption::named<"DFVECTOR">(), "DFVECTOR", size, law.dfs)) {
    return false;
  }
  if (DistOption::named<"NCENTR">().text.empty()) {
    room.zeros.assign(size, 0.0);
    law.ncentr = room.zeros;
  } else if (!take_vector(ws, DistOption::named<"NCENTR">(), "NCENTR", size, law.ncentr)) {
    return false;
  }
  law.dfs = law.dfs.first(size);
  law.ncentr = law.ncentr.first(size);
  law.S = DistOption::real<"S">();
  law.N = n;
  law.accuracy = DistOption::real<"ACCURACY">();
  law.limit = DistOption::integer<"LIMIT">();
  return require(law.S >= 0.0 && std::isfinite(law.S) && law.accuracy > 0.0 && law.accuracy < 1.0 &&
                 law.limit >= 1);
}

bool take_burr(Law& law) {
  law.K = DistOption::real<"K">();
  law.C = DistOption::real<"C">();
  if (positive<"K">() && (law.type == LawType::BURRII || positive<"C">())) return true;
  fail(" ...ERROR..INVALID BURR PARAMETERS");
  return false;
}

bool take_negative_binomial(Law& law, std::string_view word) {
  constexpr double whole_within = 1e-6;
  law.P = DistOption::real<"P">();
  law.K = word == "GEOMETRI" ? 1.0 : DistOption::real<"K">();
  if (!(positive<"P">() && law.P <= 1.0 && law.K > 0.0 && std::isfinite(law.K))) {
    return bad_parameters();
  }
  if (word == "PASCAL") {
    const double whole = std::round(law.K);
    if (whole < 1.0 || std::fabs(law.K - whole) > whole_within) return bad_parameters();
    law.K = whole;
  }
  return true;
}

}  // namespace

bool take_law(Workspace ws, Law& law, LawRoom& room, std::string_view& word) {
  const NameOption& type = DistOption::named<"TYPE">();
  const LawWord* const row = find_law(type.text);
  if (row == nullptr) {
    fail<"(' ...ERROR..UNKNOWN DISTRIBUTION..', A)">(type.text.substr(0, 64));
    return false;
  }
  word = row->word;
  law.type = row->type;
  law.P = DistOption::real<"P">();
  law.Q = DistOption::real<"Q">();
  law.K = DistOption::real<"K">();
  switch (law.type) {
    case LawType::NORMAL:
      if (DistOption::given<"DF">()) {
        fail(" ...ERROR..DF= NOT VALID WITH NORMAL DISTRIBUTION");
        return false;
      }
      return take_moments(law);
    case LawType::T: {
      const double H = DistOption::real<"H">();
      law.df = word == "CAUCHY" ? 1.0 : DistOption::integer<"DF">();
      law.location = DistOption::real<"MEAN">();
      law.scale = 1.0 / std::sqrt(H);
      law.C = DistOption::real<"C">();
      return require(law.df >= 1.0 && H > 0.0 && std::isfinite(law.scale) &&
                     std::isfinite(law.location) && std::isfinite(law.C));
    }
    case LawType::F:
      law.df = DistOption::integer<"DF1">();
      law.df2 = DistOption::integer<"DF2">();
      return require(law.df >= 1.0 && law.df2 >= 1.0) && take_centrality(law);
    case LawType::CHI:
      law.df = DistOption::integer<"DF">();
      return require(law.df >= 1.0) && take_centrality(law);
    case LawType::BETA:
    case LawType::GAMMA:
    case LawType::WEIBULL:
      return require(positive<"P">() && positive<"Q">());
    case LawType::GG:
      law.C = DistOption::real<"C">();
      return require(positive<"P">() && positive<"Q">() && positive<"C">());
    case LawType::IG2:
      law.V = DistOption::real<"V">();
      law.S = DistOption::real<"S">();
      if (positive<"V">() && positive<"S">()) return true;
      fail(" ...ERROR..INVALID IG2 PARAMETERS");
      return false;
    case LawType::EDGE:
      law.skewness = DistOption::real<"SKEWNESS">();
      law.kurtosis = DistOption::real<"KURTOSIS">();
      return take_moments(law) &&
             require(std::isfinite(law.skewness) && std::isfinite(law.kurtosis));
    case LawType::BINOMIAL:
      law.N = word == "BERNOULL" ? 1.0 : DistOption::integer<"N">();
      return require(DistOption::given<"P">() && law.P >= 0.0 && law.P <= 1.0 && law.N >= 1.0);
    case LawType::NEGBIN:
      return take_negative_binomial(law, word);
    case LawType::HYPERGEO:
      law.BIGN = DistOption::integer<"BIGN">();
      law.BIGX = DistOption::integer<"BIGX">();
      law.N = DistOption::integer<"N">();
      return require(law.BIGN >= 1.0 && law.BIGX >= 0.0 && law.BIGX <= law.BIGN && law.N >= 1.0 &&
                     law.N <= law.BIGN);
    case LawType::POISSON:
    case LawType::EXPONENT:
      law.location = DistOption::real<"MEAN">();
      return require(positive<"MEAN">());
    case LawType::POWER:
      law.C = DistOption::real<"C">();
      return require(positive<"C">());
    case LawType::PARETO:
      law.C = DistOption::real<"C">();
      if (!positive<"C">()) {
        fail<"(' ...ERROR..INVALID PARETO PARAMETER C=', G13.5)">(law.C);
        return false;
      }
      return require(positive<"K">());
    case LawType::BURRII:
    case LawType::BURRIII:
    case LawType::BURRXII:
      return take_burr(law);
    case LawType::EXTREME: {
      if (!take_moments(law)) return false;
      law.scale *= std::sqrt(6.0) / PI;
      law.location -= EULER * law.scale;
      return true;
    }
    case LawType::LOGISTIC:
      if (!take_moments(law)) return false;
      law.scale *= std::sqrt(3.0) / PI;
      return true;
    case LawType::LOGNORMA:
    case LawType::EMPIR:
    case LawType::SEMPIR:
      return take_moments(law);
    case LawType::BINORMAL:
      law.C = DistOption::real<"C">();
      return true;
    case LawType::IMHOF:
      return take_imhof(ws, law);
    case LawType::DAVIES:
      return take_davies(ws, law, room);
  }
  return false;
}

// ---- Heading -----------------------------------------------------------------------------------

namespace {

// Adds a part to the heading when its value exists.
template <FixedText FMT>
void add(Line& line, double value) {
  if (std::isfinite(value)) line.put<FMT>(value);
}

template <FixedText FMT>
void add_moments(Line& line, const Moments& m, double first, double second) {
  line.put<FMT>(first, second);
  add<"(' MEAN=', G13.5)">(line, m.mean);
  add<"(' VARIANCE=', G13.5)">(line, m.variance);
  add<"(' MODE=', G13.5)">(line, m.mode);
}

// The moments of a discrete type, on a line of their own when the numbers before them are long.
void add_deviation(Line& line, const Moments& m) {
  constexpr int columns = 65;
  const auto put = [&](Line& to) {
    to.put<"(' MEAN=', G13.5, ' VARIANCE=', G13.5, ' STD. DEV=', G13.5)">(m.mean, m.variance,
                                                                          std::sqrt(m.variance));
  };
  if (line.cursor() + columns <= LINELEN) return put(line);
  Line next;
  put(next);
}

// " P=" and the like with the mean and variance, for the types without a heading of their own.
template <FixedText FMT>
void plain_heading(const Moments& m, double value) {
  Line line;
  line.put<FMT>(value);
  add<"(' MEAN=', G13.5)">(line, m.mean);
  add<"(' VARIANCE=', G13.5)">(line, m.variance);
  OUTLINE();
}

void print_ig2(const Law& law, const Moments& m) {
  Line first;
  first.put<"(' INVERTED GAMMA PARAMETERS- V=', G13.5, ' S=', G13.5)">(law.V, law.S);
  add<"(' MEAN=', G13.5)">(first, m.mean);
  add<"(' STANDARD DEVIATION=', G13.5)">(first, std::sqrt(m.variance));
  add<"(' MODE=', G13.5)">(first, m.mode);
  OUTLINE();
  const double m2 = ig2_moment(law, 2);
  const double m3 = ig2_moment(law, 3);
  const double m4 = ig2_moment(law, 4);
  if (!std::isfinite(m2)) return;
  Line around_zero;
  around_zero.put<"(' 2ND, 3RD, 4TH MOMENTS AROUND ZERO=', G13.5)">(m2);
  add<"(G13.5)">(around_zero, m3);
  add<"(G13.5)">(around_zero, m4);
  OUTLINE();
  const double a = m.mean;
  Line around_mean;
  around_mean.put<"(' VARIANCE, 3RD, 4TH MOMENTS AROUND MEAN=', G13.5)">(m.variance);
  add<"(G13.5)">(around_mean, m3 - 3.0 * a * m2 + 2.0 * a * a * a);
  add<"(G13.5)">(around_mean, m4 - 4.0 * a * m3 + 6.0 * a * a * m2 - 3.0 * a * a * a * a);
  OUTLINE();
  say<"(' PEARSON SKEWNESS=', G13.5)">((m.mean - m.mode) / std::sqrt(m.variance));
}

void print_t(const Law& law, const Moments& m) {
  Line line;
  line.put<"(' T DISTRIBUTION DF=', I0)">(static_cast<int>(law.df));
  add<"(' VARIANCE=', G13.5)">(line, m.variance);
  line.put<"(' H=', G13.5)">(1.0 / (law.scale * law.scale));
  if (law.C != 0.0) line.put<"(' C=', G13.5)">(law.C);
  OUTLINE();
  if (law.df == 1.0) say(" ALSO A CAUCHY DISTRIBUTION");
}

}  // namespace

void print_law(const Law& law, const Moments& m, std::string_view word) {
  const auto df = static_cast<int>(law.df);
  switch (law.type) {
    case LawType::NORMAL:
      return say<"(' NORMAL DISTRIBUTION - MEAN=', G13.5, ' VARIANCE=', G13.5)">(m.mean,
                                                                                 m.variance);
    case LawType::T:
      return print_t(law, m);
    case LawType::F: {
      Line line;
      line.put<"(' F DISTRIBUTION- DF1=', I0, ' DF2=', I0)">(df, static_cast<int>(law.df2));
      add<"(' MEAN=', G13.5)">(line, m.mean);
      add<"(' VARIANCE=', G13.5)">(line, m.variance);
      add<"(' MODE=', G13.5)">(line, m.mode);
      if (law.C != 0.0) line.put<"(' C=', G13.5)">(law.C);
      return OUTLINE();
    }
    case LawType::CHI: {
      Line line;
      line.put<"(' CHI-SQUARE PARAMETERS- DF=', I0, ' MEAN=', G13.5, ' VARIANCE=', G13.5)">(
          df, m.mean, m.variance);
      add<"(' MODE=', G13.5)">(line, m.mode);
      if (law.C != 0.0) line.put<"(' C=', G13.5)">(law.C);
      return OUTLINE();
    }
    case LawType::BETA: {
      Line line;
      add_moments<"(' ESTIMATED BETA PARAMETERS- P=', G13.5, ' Q=', G13.5)">(line, m, law.P, law.Q);
      OUTLINE();
      return say<"(' VALUE OF LOG BETA FUNCTION =', G16.7)">(log_beta(law.P, law.Q));
    }
    case LawType::GAMMA: {
      Line line;
      add_moments<"(' GAMMA PARAMETERS- P=', G13.5, ' Q=', G13.5)">(line, m, law.P, law.Q);
      return OUTLINE();
    }
    case LawType::WEIBULL: {
      Line line;
      add_moments<"(' WEIBULL PARAMETERS- P=', G13.5, ' Q=', G13.5)">(line, m, law.P, law.Q);
      return OUTLINE();
    }
    case LawType::GG: {
      Line line;
      line.put<"(' GENERALIZED GAMMA PARAMETERS- P=', G13.5, ' Q=', G13.5, ' C=', G13.5)">(
          law.P, law.Q, law.C);
      OUTLINE();
      Line second;
      add<"(' MEAN=', G13.5)">(second, m.mean);
      add<"(' VARIANCE=', G13.5)">(second, m.variance);
      add<"(' MODE=', G13.5)">(second, m.mode);
      return OUTLINE();
    }
    case LawType::IG2:
      return print_ig2(law, m);
    case LawType::BINOMIAL: {
      Line line;
      line.put<"(' BINOMIAL DISTRIBUTION WITH N=', I0, ' P=', G13.5)">(static_cast<int>(law.N),
                                                                       law.P);
      add_deviation(line, m);
      return OUTLINE();
    }
    case LawType::NEGBIN: {
      Line line;
      line.put<"(1X, A, ' DISTRIBUTION WITH P=', G13.5)">(word, law.P);
      add_deviation(line, m);
      line.put<"(' X=', G13.5)">(law.K);
      return OUTLINE();
    }
    case LawType::POISSON:
      return say<"(' POISSON DISTRIBUTION WITH MEAN=', G13.5, 'VARIANCE=', G13.5)">(m.mean,
                                                                                    m.variance);
    case LawType::EXPONENT:
      return say<
          "(' EXPONENTIAL DISTRIBUTION WITH MEAN=', G13.5, ' VARIANCE=', G13.5, ' MEDIAN=', G13.5, "
          "' SKEWNESS=2 KURTOSIS=9')">(m.mean, m.variance, m.mean * std::log(2.0));
    case LawType::HYPERGEO: {
      Line line;
      line.put<"(' HYPERGEOMETRIC DISTRIBUTION WITH BIGN=', I0, ' BIGX=', I0, ' N=', I0)">(
          static_cast<int>(law.BIGN), static_cast<int>(law.BIGX), static_cast<int>(law.N));
      add_deviation(line, m);
      return OUTLINE();
    }
    case LawType::PARETO:
      return plain_heading<"(' PARETO DISTRIBUTION WITH C=', G13.5)">(m, law.C);
    case LawType::POWER:
      return plain_heading<"(' POWER DISTRIBUTION WITH C=', G13.5)">(m, law.C);
    case LawType::BURRII:
    case LawType::BURRIII:
    case LawType::BURRXII: {
      Line line;
      line.put<"(' BURR DISTRIBUTION TYPE=', A, ' K=', G13.5)">(word.substr(4), law.K);
      add<"(' MEAN=', G13.5)">(line, m.mean);
      add<"(' VARIANCE=', G13.5)">(line, m.variance);
      return OUTLINE();
    }
    case LawType::DAVIES:
      return say<"(' DAVIES ALGORITHM N=', I0, ' ACCURACY=', G13.5, ' LIMIT=', I0, ' S=', G13.5)">(
          static_cast<int>(law.N), law.accuracy, law.limit, law.S);
    case LawType::IMHOF:
      return say<"(' IMHOF DISTRIBUTION N=', I0, ' MEAN=', G13.5, ' VARIANCE=', G13.5)">(
          law.weights.size(), m.mean, m.variance);
    case LawType::BINORMAL:
      return say(" STANDARD BINORMAL DISTRIBUTION");
    case LawType::EDGE:
      return say<
          "(' EDGEWORTH EXPANSION - MEAN=', G13.5, ' VARIANCE=', G13.5, ' SKEWNESS=', G13.5, "
          "' KURTOSIS=', G13.5)">(m.mean, m.variance, law.skewness, law.kurtosis);
    case LawType::EXTREME:
    case LawType::LOGISTIC:
    case LawType::LOGNORMA: {
      const std::string_view shown = law.type == LawType::EXTREME    ? "EXTREME VALUE"
                                     : law.type == LawType::LOGISTIC ? "LOGISTIC"
                                                                     : "LOGNORMAL";
      return say<"(1X, A, ' DISTRIBUTION - MEAN=', G13.5, ' VARIANCE=', G13.5)">(shown, m.mean,
                                                                                 m.variance);
    }
    case LawType::EMPIR:
    case LawType::SEMPIR:
      return say(" EMPIRICAL DISTRIBUTION FUNCTION");
  }
}

}  // namespace korvel
