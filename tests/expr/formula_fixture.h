// A small workspace in which tests compile and run single formulas.
#pragma once

#include <unistd.h>

#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "engine/commands.h"
#include "engine/files.h"
#include "engine/output.h"
#include "engine/run.h"
#include "expr/expr.h"
#include "expr/trans.h"

namespace korvel_test {

class FormulaRoom {
 public:
  explicit FormulaRoom(std::int64_t par = 4000, int maxvar = 200) {
    korvel::RUNCOM.ended = korvel::RUNCOM.output_failed = false;
    korvel::RUNCOM.settings.mirror_errors = false;
    korvel::RUNCOM.settings.mirror_warnings = false;
    korvel::OSCOM = korvel::OsCom{};
    korvel::OCOM = korvel::OCom{};
    korvel::INPCOM = korvel::InpCom{};
    std::int64_t largest = 0;
    korvel::new_workspace(par, maxvar, &largest);
    ws = korvel::workspace();
    korvel::RESET(ws);
    char name[] = "/tmp/korvel_formula_XXXXXX";
    const int fd = mkstemp(name);
    close(fd);
    path_ = name;
    korvel::main_output().open(path_);
  }
  FormulaRoom(const FormulaRoom&) = delete;
  FormulaRoom& operator=(const FormulaRoom&) = delete;
  ~FormulaRoom() {
    korvel::main_output().close();
    unlink(path_.c_str());
  }

  void series(std::string_view name, const std::vector<double>& values) {
    const int I = korvel::NEWVAR(ws, name, {.LEN = static_cast<std::int64_t>(values.size())});
    std::copy(values.begin(), values.end(), korvel::elements(ws, I).begin());
  }
  std::vector<double> values(std::string_view name) {
    const int I = korvel::VARNUM(ws, name);
    if (I <= 0) return {};
    const auto all = korvel::elements(ws, I);
    return {all.begin(), all.end()};
  }
  void sample(int first, int last) {
    korvel::DATCOM.IBEG = first;
    korvel::DATCOM.IEND = last;
    korvel::DATCOM.NOBS = last - first + 1;
  }
  // Runs a statement of the command; false after a failure.
  bool run(int ikod, std::string_view text, korvel::TransPath path = korvel::TransPath::automatic) {
    korvel::OCOM.ODONT = korvel::OSCOM.OSCAN = false;
    korvel::DATCOM.MBEG = korvel::DATCOM.IBEG;
    korvel::DATCOM.MEND = korvel::DATCOM.IEND;
    korvel::INPCOM.IKOD = ikod;
    korvel::GenrJob job;
    job.text = text;
    job.IKOD = ikod;
    korvel::TransJob trans;
    trans.IKOD = ikod;
    trans.path = path;
    return korvel::run_formula(ws, job, trans);
  }
  bool genr(std::string_view text, korvel::TransPath path = korvel::TransPath::automatic) {
    return run(korvel::K_GENR, text, path);
  }
  // What has been printed since the last call.
  std::string printed() {
    korvel::main_output().flush();
    std::ifstream in(path_, std::ios::binary);
    const std::string all{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    std::string fresh = all.substr(read_);
    read_ = all.size();
    return fresh;
  }

  korvel::Workspace ws;

 private:
  std::string path_;
  std::size_t read_ = 0;
};

}  // namespace korvel_test
