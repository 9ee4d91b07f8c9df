// Pieces of FDIAG that lie in files of their own: what is printed of the tests.
#pragma once

#include <array>
#include <string_view>

#include "data/format.h"
#include "engine/options.h"
#include "engine/output.h"
#include "engine/workspace.h"
#include "platform/file_output.h"
#include "regress/diagnos.h"
#include "regress/fcast.h"
#include "regress/tests.h"

namespace korvel {

using FcastOption = OptionValues<FCASTOPT>;

// The model of the last estimate as the tests take it.
struct DiagnosWork {
  DiagnosModel m;
  std::span<const double> coef;  // K, in the order of the list
  std::span<const double> Qe;    // K: Q'e, zeros but for rounding unless the fit was restricted
  std::span<const double> obs;   // N: observation numbers
  int constant_place = -1;       // place of the constant in the list, -1 none

  // Column of the model for a place in the list.
  int column_of(int place) const {
    if (constant_place < 0) return place;
    if (place == constant_place) return 0;
    return place < constant_place ? place + 1 : place;
  }
  std::string_view name(int place) const {
    return SAVED.list[static_cast<std::size_t>(place)].name;
  }
};

// What the tests of one command add up to; settled by FDIAG from the options.
struct DiagnosPlan {
  bool HANSEN = false, normality = false, HETEROSC = false, WHITETES = false, CTEST = false;
  bool bootstrap = false, JACKKNIF = false;
  bool recursive = false, estimates = false, residuals = false, plots = false;
  bool CHOWTEST = false, CHOWONE = false, ACF = false, RESET = false;
};

// " ...WARNING..<test> COULD NOT BE FITTED"
void not_fitted(std::string_view test);
// Degrees of freedom in four columns, or in as many as they need.
void put_df(Line& row, int df);

// Words of a file row: shortest decimals that read back, with a blank between.
class UnitRows {
 public:
  // unit 0: no file is wanted and rows go nowhere. False after a reported failure.
  bool open(int unit);
  void value(double v);
  void end_row();
  void finish();  // completes the file, or reports why it could not
  explicit operator bool() const { return file_.opened(); }

 private:
  FileOutput file_;
  bool first_ = true;
};

// Each takes its work space from the top of DATA; without room NOCORE speaks and the command ends.
void print_hansen(Workspace ws, const DiagnosWork& d);  // diagnos_tables.cpp
void print_normality(Workspace ws, const DiagnosWork& d);
void print_correlogram(const DiagnosWork& d);
void print_heteroskedasticity(Workspace ws, const DiagnosWork& d, bool products);
void print_resets(Workspace ws, const DiagnosWork& d);  // diagnos_added.cpp
void recursive_tests(Workspace ws, const DiagnosWork& d,
                     const DiagnosPlan& plan);  // diagnos_passes.cpp
void print_chow(Workspace ws, const DiagnosWork& d, const DiagnosPlan& plan);
void bootstrap(Workspace ws, const DiagnosWork& d);  // diagnos_samples.cpp
void print_jackknife(Workspace ws, const DiagnosWork& d);

}  // namespace korvel
