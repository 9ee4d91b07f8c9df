// Runs commands through the whole engine, gives their listing back and reads what they have left.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "engine/run.h"
#include "engine/shared_areas.h"
#include "engine/workspace.h"

namespace korvel_test {

struct Listing {
  std::string text;
  int status = 0;
};

// The listing of a batch run of `commands` without the greeting; par in kilobytes.
inline Listing run_commands(const std::string& commands, std::int64_t par = 20480,
                            int maxvar = 1000) {
  char name[] = "/tmp/korvel_test_XXXXXX";
  const int fd = mkstemp(name);
  close(fd);
  korvel::RunSettings settings;
  settings.commands = commands;
  settings.have_commands = true;
  settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = name;
  settings.par = par;
  settings.maxvar = maxvar;
  Listing listing;
  listing.status = korvel::run_korvel(settings);
  std::ifstream in(name, std::ios::binary);
  listing.text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  unlink(name);
  return listing;
}

inline bool holds(const Listing& listing, const std::string& text) {
  return listing.text.find(text) != std::string::npos;
}

// The elements of a variable, none when it isn't there.
inline std::vector<double> values(std::string_view name) {
  const int var = korvel::VARNUM(korvel::workspace(), name);
  if (var <= 0) return {};
  const auto e = korvel::elements(korvel::workspace(), var);
  return {e.begin(), e.end()};
}

// A result variable by its name without the $; NaN when there is none.
inline double temp(std::string_view name) {
  for (std::size_t i = 0; i < korvel::NTEMPS; ++i) {
    if (korvel::TEMPNAMES[i] == name) return korvel::TEMCOM.TEMVAL[i];
  }
  return std::numeric_limits<double>::quiet_NaN();
}

// A data file for one test.
class DataFile {
 public:
  explicit DataFile(const std::string& text, const std::string& tail = ".txt") {
    static int made = 0;
    name_ = "/tmp/korvel_data_" + std::to_string(getpid()) + "_" + std::to_string(++made) + tail;
    std::ofstream(name_, std::ios::binary) << text;
  }
  ~DataFile() { std::remove(name_.c_str()); }
  DataFile(const DataFile&) = delete;
  DataFile& operator=(const DataFile&) = delete;
  // A READ command of the file.
  std::string read(const std::string& rest) const { return "READ(" + name_ + ") " + rest + "\n"; }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

#ifdef KORVEL_TEST_DATA
// The commands behind the reading of the textile data (17 years; T C I P).
inline Listing textile(const std::string& commands, std::int64_t par = 20480) {
  return run_commands("SAMPLE 1 17\nREAD(" KORVEL_TEST_DATA "/textile.dat) T C I P\n" + commands,
                      par);
}
#endif

}  // namespace korvel_test
