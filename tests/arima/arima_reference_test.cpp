// Correlations, residuals, estimates, forecasts and unit-root statistics against R. The values are
// in tests/data/arima/arima_reference.txt; arima_reference.R beside it made them.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "arima/bjearm.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"
#include "harness.h"

namespace korvel {
namespace {

using korvel_test::run_commands;
using Values = std::vector<double>;

const Values& truth(const std::string& key) {
  static const std::map<std::string, Values> table = [] {
    std::map<std::string, Values> read;
    std::ifstream in(KORVEL_TEST_DATA "/arima/arima_reference.txt");
    for (std::string line; std::getline(in, line);) {
      std::istringstream fields(line);
      std::string name;
      std::size_t n = 0;
      fields >> name >> n;
      read[name].resize(n);
      for (double& v : read[name]) fields >> v;
    }
    return read;
  }();
  return table.at(key);
}

Values variable(const std::string& name) {
  const auto found = elements(workspace(), VARNUM(workspace(), name));
  return {found.begin(), found.end()};
}

double temp_of(const char* name) {
  for (std::size_t i = 0; i < TEMPNAMES.size(); ++i) {
    if (TEMPNAMES[i] == name) return TEMCOM.TEMVAL[i];
  }
  return NAN;
}

void expect_near(const Values& got, const Values& want, double relative, const std::string& what) {
  ASSERT_GE(got.size(), want.size()) << what;
  for (std::size_t i = 0; i < want.size(); ++i) {
    const double scale = std::max(std::fabs(want[i]), 1e-3);
    EXPECT_LE(std::fabs(got[i] - want[i]), relative * scale)
        << what << " " << i << ": " << got[i] << " " << want[i];
  }
}

std::string read(const std::string& file, int n) {
  return "SAMPLE 1 " + std::to_string(n) + "\nREAD(" KORVEL_TEST_DATA "/arima/" + file +
         ".dat) Y\n";
}

TEST(Reference, Correlations) {
  struct Case {
    const char *name, *file;
    int n;
    const char* options;
  };
  for (const Case& c : {Case{"airline", "airline", 144, "LOG NDIFF=1 NSDIFF=1 NSPAN=12"},
                        Case{"nile", "nile", 100, ""}, Case{"www", "www", 100, "NDIFF=1"},
                        Case{"lynx", "lynx", 114, "LOG"}}) {
    const auto out =
        run_commands(read(c.file, c.n) + "ARIMA Y / " + c.options + " ACF=A PACF=P TESTSTAT=Q\n");
    ASSERT_EQ(out.status, 0) << out.text;
    const std::string name = c.name;
    expect_near(variable("A"), truth("acf_" + name), 1e-10, name);
    expect_near(variable("P"), truth("pacf_" + name), 1e-9, name);
    expect_near(variable("Q"), truth("q_" + name), 1e-10, name);
    // The table: lag, Q and p-value to the printed digits, the upper half beside the lower one.
    std::istringstream lines(out.text.substr(out.text.find("LAG        Q  P-VALUE")));
    std::string line;
    std::getline(lines, line);
    for (std::size_t i = 0; i < 12; ++i) {
      std::getline(lines, line);
      std::istringstream fields(line);
      for (const std::size_t lag : {i, i + 12}) {
        double printed_lag = 0, q = 0, p = 0;
        fields >> printed_lag >> q >> p;
        EXPECT_EQ(printed_lag, static_cast<double>(lag + 1));
        EXPECT_NEAR(q, truth("q_" + name)[lag], 0.00501) << name << line;
        EXPECT_NEAR(p, truth("p_" + name)[lag], 0.000501) << name << line;
      }
    }
  }
}

// Sums of squares of given parameters, and the least squares of all of them.
TEST(Reference, Estimates) {
  struct Case {
    const char *name, *file;
    int n;
    const char* options;
    BjOrders orders;
    Values given;
  };
  const BjOrders seasonal{.NMA = 1, .NSMA = 1, .NSPAN = 12, .constant = false};
  BjOrders with_constant = seasonal;
  with_constant.constant = true;
  const char* const air = "LOG NDIFF=1 NSDIFF=1 NSPAN=12 NMA=1 NSMA=1";
  const Case cases[] = {
      {"airline",
       "airline",
       144,
       "LOG NDIFF=1 NSDIFF=1 NSPAN=12 NMA=1 NSMA=1 NOCONSTANT",
       seasonal,
       {0.39, 0.61}},
      {"airlinec", "airline", 144, air, with_constant, {0.39, 0.61, -0.0002}},
      {"nile", "nile", 100, "NARP=1 NMA=1", {.NARP = 1, .NMA = 1}, {0.8, 0.5, 180}},
      {"huron", "huron", 98, "NARP=2", {.NARP = 2}, {1.05, -0.27, 127}},
      {"lynx", "lynx", 114, "LOG NARP=2", {.NARP = 2}, {1.38, -0.75, 2.5}},
      {"www",
       "www",
       100,
       "NDIFF=1 NARP=1 NMA=1 NOCONSTANT",
       {.NARP = 1, .NMA = 1, .constant = false},
       {0.65, -0.53}},
      {"season",
       "airline",
       144,
       "LOG NARP=1 NMA=1 NSARP=1 NSMA=1 NSPAN=12",
       {.NARP = 1, .NMA = 1, .NSARP = 1, .NSMA = 1, .NSPAN = 12},
       {0.9, 0.3, 0.95, 0.5, 0.03}}};
  for (const Case& c : cases) {
    const std::string name = c.name;
    const auto out = run_commands(read(c.file, c.n) + "?ARIMA Y / ESTIMATE " + c.options +
                                  " COEF=B STDERR=S RESID=E\n");
    ASSERT_EQ(out.status, 0) << out.text;
    const Values b = variable("B");
    const double S = temp_of("SSE");
    // The series of the model, for sums of squares at the given parameters.
    std::string steps = read(c.file, c.n);
    if (std::string(c.options).find("LOG") != std::string::npos) steps += "GENR Y=LOG(Y)\n";
    run_commands(steps);
    Values w = variable("Y");
    const bool air_difference = std::string(c.options).find("NSDIFF") != std::string::npos;
    const auto lower = [&w](std::size_t lag) {
      for (std::size_t t = 0; t + lag < w.size(); ++t) w[t] = w[t + lag] - w[t];
      w.resize(w.size() - lag);
    };
    if (std::string(c.options).find("NDIFF=1") != std::string::npos) lower(1);
    if (air_difference) lower(12);
    Values room(arm_words(w.size())), a(PRESAMPLE + w.size());
    const ArmRoom arm(room, w.size());
    std::copy(w.begin(), w.end(), arm.w.begin() + PRESAMPLE);
    BjModel model;
    make_model(c.orders, c.given, false, model);
    expect_near({BJEARM(model, arm, a)}, truth("s_given_" + name), 1e-9, name);
    make_model(c.orders, b, false, model);
    EXPECT_NEAR(BJEARM(model, arm, a), S, 1e-9 * S);
    if (name == "season") continue;
    // The minimiser stops on a small change of S: within 2e-4 of the minimum, and of the estimates
    // by less than a fifth of a standard error.
    const double least = truth("s_" + name)[0];
    EXPECT_GE(S, least * (1 - 1e-7)) << name;
    EXPECT_LE(S, least * (1 + 2e-4)) << name;
    run_commands(read(c.file, c.n) + "?ARIMA Y / ESTIMATE " + c.options + " COEF=B STDERR=S\n");
    const Values se = variable("S");
    for (std::size_t i = 0; i < b.size(); ++i) {
      EXPECT_NEAR(b[i], truth("b_" + name)[i], 0.2 * truth("se_" + name)[i]) << name << i;
    }
    expect_near(se, truth("se_" + name), name == "huron" || name == "nile" ? 0.06 : 0.02, name);
  }
}

// Box and Jenkins (1976), series G: theta 0.396, Theta 0.614.
TEST(Reference, AirlineModel) {
  run_commands(
      read("airline", 144) +
      "?ARIMA Y / LOG NDIFF=1 NSDIFF=1 NSPAN=12 NMA=1 NSMA=1 NOCONSTANT ESTIMATE COEF=B\n");
  const Values b = variable("B");
  EXPECT_NEAR(b.at(0), 0.396, 0.005);
  EXPECT_NEAR(b.at(1), 0.614, 0.005);
}

TEST(Reference, Forecasts) {
  struct Case {
    const char *name, *file;
    int n;
    const char *values, *options;
    std::size_t origin;
    bool logs;
  };
  for (const Case& c :
       {Case{"airline", "airline", 144, "0.4 0.6",
             "LOG NDIFF=1 NSDIFF=1 NSPAN=12 NMA=1 NSMA=1 NOCONSTANT FBEG=130 FEND=150", 130, true},
        Case{"huron", "huron", 98, "1.05 -0.27\n127", "NARP=2 FBEG=90 FEND=102 ACF=A", 90, false},
        Case{"www", "www", 100, "0.65 -0.53 0.4", "NDIFF=1 NARP=1 NMA=1", 100, false}}) {
    const std::string name = c.name;
    const auto out = run_commands(read(c.file, c.n) + "ARIMA Y / FORECAST INSTART " + c.options +
                                  " PREDICT=F PSI=P FCSE=S\n" + c.values + "\n");
    ASSERT_EQ(out.status, 0) << out.text;
    Values f = variable("F");
    EXPECT_EQ(f.at(c.origin - 1), MACOM.XMISS);
    f.erase(f.begin(), f.begin() + static_cast<std::ptrdiff_t>(c.origin));
    if (c.logs) {
      for (double& v : f) v = std::log(v);
    }
    expect_near(f, truth("f_" + name), 1e-10, name);
    expect_near(variable("P"), truth("psi_" + name), 1e-10, name);
    expect_near(variable("S"), truth("fse_" + name), 1e-10, name);
    if (name != "huron") continue;
    expect_near(variable("A"), truth("rho_huron"), 1e-6, name);
    double upcrosses = 0, peaks = 0;
    const auto after = [&](const std::string& label) {
      return std::stod(out.text.substr(out.text.find(label) + label.size()));
    };
    upcrosses = after("BETWEEN UPCROSSES =");
    peaks = after("BETWEEN PEAKS =");
    EXPECT_NEAR(upcrosses, truth("times_huron")[0], 5e-4 * upcrosses);
    EXPECT_NEAR(peaks, truth("times_huron")[1], 5e-4 * peaks);
  }
}

TEST(Reference, UnitRoots) {
  struct Case {
    const char* name;
    int n;
  };
  for (const Case& c : {Case{"nile", 100}, Case{"www", 100}, Case{"huron", 98}}) {
    const std::string name = c.name;
    const auto out = run_commands(read(name, c.n) +
                                  "COINTEGR Y / TYPE=DF NLAG=3 TESTSTAT=D\n"
                                  "COINTEGR Y / TYPE=PP NLAG=4 TESTSTAT=P\n"
                                  "COINTEGR Y / TYPE=PP TESTSTAT=R\n");
    ASSERT_EQ(out.status, 0) << out.text;
    expect_near(variable("D"), truth("df_" + name), 1e-8, name);
    expect_near(variable("P"), truth("pp_" + name), 1e-8, name);
    // PP.test of R, whose window is the automatic one; it knows the trend alone.
    EXPECT_EQ(truth("pptest_" + name)[1], 3.0);
    EXPECT_NEAR(variable("R").at(4), truth("pptest_" + name)[0], 2e-4);
  }
  const auto out = run_commands("SAMPLE 1 100\nREAD(" KORVEL_TEST_DATA
                                "/arima/nile.dat) N\n"
                                "READ(" KORVEL_TEST_DATA
                                "/arima/www.dat) W\n"
                                "GENR X=SUM(N-900)\nGENR Y=0.5*X+10*W\n"
                                "COINTEGR Y X / TYPE=RESD NLAG=2 TESTSTAT=D\n"
                                "COINTEGR Y X / TYPE=RESP NLAG=3 TESTSTAT=P\n");
  ASSERT_EQ(out.status, 0) << out.text;
  expect_near(variable("D"), truth("eg"), 1e-7, "Engle and Granger");
  expect_near(variable("P"), truth("po"), 1e-7, "Phillips and Ouliaris");
}

}  // namespace
}  // namespace korvel
