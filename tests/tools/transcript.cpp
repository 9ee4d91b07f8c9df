// The transcript runner: runs a script with the program and compares what it prints.
//
//   transcript PROGRAM SCRIPT.kor
//
// Beside NAME.kor lie NAME.out (expected output, required), NAME.err (expected standard error,
// otherwise it is not looked at), NAME.status (expected exit status, otherwise 0) and NAME.args
// (arguments, one a line, in place of "-q NAME.kor"). The script runs in its own folder. A line
// "#tolerance 1e-6" at the head of NAME.out lets numbers differ by that relative amount; without it
// every byte counts but the seconds of " TIME =" lines. With the environment variable UPDATE set
// the files are written instead.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string slurp(const std::string& path, bool* there = nullptr) {
  std::ifstream in(path, std::ios::binary);
  if (there != nullptr) *there = in.good();
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct Outcome {
  std::string out, err;
  int status = 0;
};

Outcome run(const std::string& program, const std::string& folder,
            const std::vector<std::string>& args) {
  std::string out_name = "/tmp/transcript_out_XXXXXX", err_name = "/tmp/transcript_err_XXXXXX";
  const int out = mkstemp(out_name.data()), err = mkstemp(err_name.data());
  const pid_t child = fork();
  if (child == 0) {
    const int null = open("/dev/null", O_RDONLY);
    dup2(null, 0);
    dup2(out, 1);
    dup2(err, 2);
    if (chdir(folder.c_str()) != 0) _exit(126);
    std::vector<char*> argv{const_cast<char*>(program.c_str())};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Outcome o{slurp(out_name), slurp(err_name),
            WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status)};
  close(out);
  close(err);
  unlink(out_name.c_str());
  unlink(err_name.c_str());
  return o;
}

bool number_at(const std::string& line, std::size_t at, double& value, std::size_t& end) {
  const char* start = line.c_str() + at;
  char* stop = nullptr;
  value = std::strtod(start, &stop);
  end = at + static_cast<std::size_t>(stop - start);
  return stop != start;
}

// A line of iterations without the seconds that the search has taken.
std::string without_time(const std::string& line) {
  return line.starts_with(" TIME =") ? line.substr(std::min(line.find("SEC."), line.size())) : line;
}

// Texts must be equal, numbers may differ by the tolerance.
bool same_line(const std::string& a, const std::string& b, double tolerance) {
  if (a == b || without_time(a) == without_time(b)) return true;
  if (tolerance <= 0) return false;
  std::istringstream sa(a), sb(b);
  std::string wa, wb;
  for (;;) {
    const bool more_a = static_cast<bool>(sa >> wa), more_b = static_cast<bool>(sb >> wb);
    if (more_a != more_b) return false;
    if (!more_a) return true;
    if (wa == wb) continue;
    double x = 0, y = 0;
    std::size_t ex = 0, ey = 0;
    if (!number_at(wa, 0, x, ex) || !number_at(wb, 0, y, ey) || ex != wa.size() || ey != wb.size())
      return false;
    if (std::fabs(x - y) > tolerance * std::fmax(std::fabs(x), std::fabs(y))) return false;
  }
}

bool compare(const std::string& what, std::string expected, const std::string& actual) {
  double tolerance = 0;
  if (expected.rfind("#tolerance ", 0) == 0) {
    tolerance = std::atof(expected.c_str() + 11);
    expected.erase(0, expected.find('\n') + 1);
  }
  std::istringstream e(expected), a(actual);
  std::string le, la;
  for (int n = 1;; ++n) {
    const bool more_e = static_cast<bool>(std::getline(e, le)),
               more_a = static_cast<bool>(std::getline(a, la));
    if (!more_e && !more_a) return true;
    if (more_e && more_a && same_line(le, la, tolerance)) continue;
    std::cout << what << ", line " << n << " differs\n expected: " << (more_e ? le : "(end)")
              << "\n actual:   " << (more_a ? la : "(end)") << "\n--- whole actual text\n"
              << actual;
    return false;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: transcript PROGRAM SCRIPT.kor\n";
    return 2;
  }
  const std::string program = argv[1], script = argv[2];
  const std::string stem = script.substr(0, script.size() - 4);
  const std::string folder = script.substr(0, script.rfind('/') + 1);
  std::vector<std::string> args{"-q", script.substr(script.rfind('/') + 1)};
  bool there = false;
  const std::string given = slurp(stem + ".args", &there);
  if (there) {
    args.clear();
    std::istringstream lines(given);
    for (std::string line; std::getline(lines, line);) args.push_back(line);
  }
  const Outcome o = run(program, folder, args);
  if (std::getenv("UPDATE") != nullptr) {
    std::string head = slurp(stem + ".out");
    head.resize(head.rfind("#tolerance ", 0) == 0 ? head.find('\n') + 1 : 0);
    std::ofstream(stem + ".out", std::ios::binary) << head << o.out;
    if (o.status != 0) std::ofstream(stem + ".status") << o.status << '\n';
    return 0;
  }
  const std::string status = slurp(stem + ".status", &there);
  const int wanted = there ? std::atoi(status.c_str()) : 0;
  bool good = compare("output", slurp(stem + ".out"), o.out);
  const std::string err = slurp(stem + ".err", &there);
  if (there) good = compare("standard error", err, o.err) && good;
  if (o.status != wanted) {
    std::cout << "exit status " << o.status << ", expected " << wanted
              << "\nstandard error: " << o.err;
    good = false;
  }
  return good ? 0 : 1;
}
