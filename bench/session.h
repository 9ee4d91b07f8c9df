// Runs of the engine for the benchmarks of whole commands: silent, their output thrown away.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "engine/run.h"

// Runs the lines in a workspace of `par` kilobytes. The exit status.
inline int run_session(const std::string& lines, std::int64_t par = 200000) {
  korvel::RunSettings settings;
  settings.commands = lines;
  settings.have_commands = settings.quiet = true;
  settings.mirror_errors = false;
  settings.output = "/dev/null";
  settings.par = par;
  return korvel::run_korvel(settings);
}

// The seconds that it takes, start and end of the engine included.
inline double session_seconds(const std::string& lines, std::int64_t par = 200000) {
  const auto start = std::chrono::steady_clock::now();
  run_session(lines, par);
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}
