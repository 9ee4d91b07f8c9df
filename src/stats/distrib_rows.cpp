// DISTRIB: the rows of its tables and what stands behind them.
#include <algorithm>
#include <cmath>
#include <limits>

#include "engine/output.h"
#include "stats/distrib.h"

namespace korvel {
namespace {

constexpr double NONE = std::numeric_limits<double>::quiet_NaN();

// What one row gives; NONE where there is no such number.
struct RowValues {
  double z = NONE, pdf = NONE, cdf = NONE, tail = NONE, critical = NONE;
};

// ---- Rows --------------------------------------------------------------------------------------

void integration_fault(int IFAULT) {
  switch (IFAULT) {
    case 1:
      return warn(" ...WARNING..REQUESTED ACCURACY COULD NOT BE OBTAINED");
    case 2:
      return warn(
          " ...WARNING..REQUESTED ACCURACY COULD NOT BE OBTAINED ROUND-OFF ERROR POSSIBLY "
          "SIGNIFICANT");
    case 3:
      return warn(" ...WARNING..INVALID PARAMETERS");
    case 4:
      return warn(" ...WARNING..UNABLE TO LOCATE INTEGRATION PARAMETERS");
    default:
      return;
  }
}

void print_trace(const DaviesTrace& t) {
  say<"(' ABSOLUTE VALUE SUM=', G13.5)">(t.absolute_sum);
  say<"(' TOTAL NUMBER OF INTEGRATION TERMS=', F10.0)">(t.terms);
  say<"(' NUMBER OF INTEGRATIONS=', F10.0)">(t.integrations);
  say<"(' INTEGRATION INTERVAL IN MAIN INTEGRATION=', G13.5)">(t.interval);
  say<"(' TRUNCATION POINT IN INITIAL INTEGRATION=', G13.5)">(t.truncation);
  say<"(' STANDARD DEVIATION OF CONVERGENCE FACTOR TERM=', G13.5)">(t.convergence_sd);
  say<"(' NUMBER OF CYCLES TO LOCATE INTEGRATION PARAMETERS=', F10.0)">(t.cycles);
}

void print_table_heading(const DistribJob& job) {
  if (DistOption::chosen<"INVERSE">()) return say("PROBABILITY CRITICAL VALUE   PDF");
  if (job.law.type == LawType::EDGE) {
    return say(
        " DATA           Z       CDF(NOR)   CDF(EDGE) 1-CDF(EDGE)      PDF(NOR)     PDF(EDGE)");
  }
  if (job.law.type == LawType::BINORMAL) {
    return say("     X         Y       RHO       PDF       CDF");
  }
  if (!has_density(job.law.type)) return say("   DATA         CDF      1-CDF");
  say(" DATA           Z           PDF        CDF        1-CDF");
}

// A number, or the missing code where there is none.
double shown(double value) { return std::isnan(value) ? MACOM.XMISS : value; }

RowValues inverse_row(DistribJob& job, std::int64_t obs, double p) {
  RowValues r;
  if (!std::isfinite(p)) {
    error_line<"(' INVALID DATA IN ROW', I7, ' PROBABILITY=', G13.5)">(obs, p);
    job.failed = true;
    return r;
  }
  if (p < 0.0 || p > 1.0) {
    if (OCOM.OPUT) say<"(' OBS.', I6, ' DATA IS NOT INSIDE OF 0-1 RANGE')">(obs);
    return r;
  }
  const Critical critical = law_critical(job.law, p);
  if (critical.IFAULT != 0 || !std::isfinite(critical.value)) {
    error_line<"(' ..UNABLE TO COMPUTE CRITICAL VALUE FOR ', G13.5)">(p);
    job.failed = true;
    return r;
  }
  r.critical = critical.value;
  r.pdf = std::exp(log_density(job.law, r.critical));
  if (job.list) say<"(1X, 3G13.5)">(p, r.critical, r.pdf);
  return r;
}

RowValues binormal_row(DistribJob& job, double x, double y, double rho) {
  RowValues r;
  const TailValue density = bivariate_normal_density(x, y, rho);
  if (density.IFAULT != 0) {
    if (job.list) say<"(1X, 3G13.5, ' RHO GREATER THAN 1')">(x, y, rho);
    return r;
  }
  r.pdf = density.value;
  r.cdf = bivariate_normal_cdf(x, y, rho).value;
  job.LLF += std::log(r.pdf);
  if (job.list) say<"(1X, 5G13.5)">(x, y, rho, r.pdf, r.cdf);
  return r;
}

// Share of the values that are not above x.
double empirical_share(const DistribJob& job, double x) {
  const auto values = job.sorted.first(static_cast<std::size_t>(job.used));
  const auto count = std::upper_bound(values.begin(), values.end(), x) - values.begin();
  return static_cast<double>(count) / static_cast<double>(job.used);
}

RowValues tails_row(DistribJob& job, double x) {
  RowValues r;
  if (empirical(job)) {
    r.cdf = empirical_share(job, x);
    r.tail = 1.0 - r.cdf;
  } else {
    const LawTails t = law_tails(job.law, x);
    if (t.IFAULT != 0 && OCOM.OPUT) integration_fault(t.IFAULT);
    if (t.tails.below >= 0.0 && t.IFAULT != 3 && t.IFAULT != 4) {
      r.cdf = t.tails.below;
      r.tail = t.tails.above;
    }
    if (job.law.type == LawType::DAVIES && DistOption::chosen<"DUMP">() && OCOM.OPUT)
      print_trace(t.trace);
  }
  if (job.list) say<"(1X, 3G13.5)">(x, shown(r.cdf), shown(r.tail));
  return r;
}

RowValues density_row(DistribJob& job, double x) {
  RowValues r;
  const double deviation = std::sqrt(job.moments.variance);
  if (deviation > 0.0) r.z = (x - job.moments.mean) / deviation;
  if (job.law.type == LawType::T) r.z = (x - job.law.location) / job.law.scale;
  const double log_pdf = log_density(job.law, x);
  const Tails tails = law_tails(job.law, x).tails;
  r.pdf = std::exp(log_pdf);
  r.cdf = tails.below;
  r.tail = tails.above;
  job.LLF += log_pdf;
  if (!job.list) return r;
  if (job.law.type == LawType::EDGE) {
    Law normal = job.law;
    normal.type = LawType::NORMAL;
    say<"(1X, 7G13.5)">(x, r.z, normal_cdf(r.z), shown(r.cdf), shown(r.tail),
                        std::exp(log_density(normal, x)), shown(r.pdf));
  } else if (std::isnan(r.z)) {
    say<"(1X, G13.5, 13X, 3G13.5)">(x, shown(r.pdf), shown(r.cdf), shown(r.tail));
  } else {
    say<"(1X, 5G13.5)">(x, r.z, shown(r.pdf), shown(r.cdf), shown(r.tail));
  }
  return r;
}

RowValues compute_row(DistribJob& job, const DistribTable& table, std::int64_t row) {
  const double x = table.at(table.x, row);
  const std::int64_t obs = table.first + row;
  if (DistOption::chosen<"INVERSE">()) return inverse_row(job, obs, x);
  const bool pair = job.law.type == LawType::BINORMAL;
  const double y = pair ? table.at(table.y, row) : 0.0;
  const double rho = pair && !table.rho.empty() ? table.at(table.rho, row) : job.law.C;
  const bool bad = !std::isfinite(x) || !std::isfinite(y) || std::isnan(rho) ||
                   (is_discrete(job.law.type) && x != std::floor(x));
  if (bad) {
    error_line<"(' ...ERROR..INVALID DATA IN ROW', I7, ' DATA=', G13.5)">(
        obs, std::isfinite(x) ? std::isfinite(y) ? x : y : x);
    job.failed = true;
    return {};
  }
  if (pair) return binormal_row(job, x, y, rho);
  return has_density(job.law.type) ? density_row(job, x) : tails_row(job, x);
}

// ---- Empirical distribution --------------------------------------------------------------------

// Sorts the values that are used and sets the law they are held against: under SEMPIR their own
// mean and variance (N-1) where the command gives none.
void sort_values(DistribJob& job, const DistribTable& table) {
  job.used = 0;
  for (std::int64_t row = 0; row < table.rows; ++row) {
    const std::int64_t obs = table.first + row;
    if (obs <= std::ssize(table.skip) && table.at(table.skip, obs - 1) > 0.0) continue;
    if (!std::isfinite(table.at(table.x, row))) continue;
    job.sorted[static_cast<std::size_t>(job.used++)] = table.at(table.x, row);
  }
  const auto values = job.sorted.first(static_cast<std::size_t>(job.used));
  std::ranges::sort(values);
  if (job.law.type == LawType::EMPIR || job.used == 0) return;
  const auto n = static_cast<double>(job.used);
  double mean = 0.0;
  for (const double v : values) mean += v / n;
  double squares = 0.0;
  for (const double v : values) squares += (v - mean) * (v - mean);
  if (!DistOption::given<"MEAN">()) job.law.location = mean;
  if (!DistOption::given<"VARIANCE">() && !DistOption::given<"STDEV">() && job.used > 1) {
    job.law.scale = std::sqrt(squares / (n - 1.0));
  }
}

// Kolmogorov (1933): largest distance of the empirical function from the normal one.
double kolmogorov_smirnov(const DistribJob& job) {
  const auto n = static_cast<double>(job.used);
  double distance = 0.0;
  for (std::int64_t i = 0; i < job.used; ++i) {
    const double v = job.sorted[static_cast<std::size_t>(i)];
    const double F = normal_cdf((v - job.law.location) / job.law.scale);
    const auto below = static_cast<double>(i);
    distance = std::max({distance, (below + 1.0) / n - F, F - below / n});
  }
  return distance;
}

}  // namespace

void run_table(DistribJob& job, const DistribTable& table, std::int64_t number) {
  if (empirical(job)) sort_values(job, table);
  if (job.list) print_table_heading(job);
  job.LLF = 0.0;
  RowValues last;  // the latest number of each kind
  bool any = false;
  for (std::int64_t row = 0; row < table.rows; ++row) {
    const std::int64_t obs = table.first + row;
    if (obs <= std::ssize(table.skip) && table.at(table.skip, obs - 1) > 0.0) continue;
    if (stop_requested()) break;
    const RowValues r = compute_row(job, table, row);
    const auto place = static_cast<std::size_t>(number * job.length + obs - 1);
    if (!job.PDF.empty()) job.PDF[place] = shown(r.pdf);
    if (!job.CDF.empty()) job.CDF[place] = shown(r.cdf);
    if (!job.CRITICAL.empty()) job.CRITICAL[place] = shown(r.critical);
    any = true;
    const auto keep = [](double& to, double value) {
      if (!std::isnan(value)) to = value;
    };
    keep(last.pdf, r.pdf);
    keep(last.cdf, r.cdf);
    keep(last.critical, r.critical);
  }
  const auto set = [](int place, double value) {
    if (!std::isnan(value)) temporary(place) = value;
  };
  set(temporary_place("PDF"), last.pdf);
  set(temporary_place("CDF"), last.cdf);
  set(temporary_place("CRIT"), last.critical);
  if (empirical(job) && job.used > 0 && job.law.scale > 0.0 && OCOM.OPUT) {
    say<"(' KOLMOGOROV-SMIRNOV TEST STATISTIC =', G13.5)">(kolmogorov_smirnov(job));
  }
  if (!DistOption::chosen<"LLF">() || !any) return;
  if (!std::isfinite(job.LLF)) {
    return warn(" ...WARNING..A DENSITY IS ZERO OR INFINITE, THE LOG-LIKELIHOOD DOES NOT EXIST");
  }
  temporary(temporary_place("LLF")) = job.LLF;
  if (OCOM.OPUT) say<"(' LOG OF THE LIKELIHOOD FUNCTION =', G16.7)">(job.LLF);
}

}  // namespace korvel
