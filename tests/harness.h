// Runs commands through the whole engine and gives their listing back.
#pragma once

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>

#include "engine/run.h"

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

}  // namespace korvel_test
