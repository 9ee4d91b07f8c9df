// The results of a run as JSON (--results FILE): a record for every estimate and every test, with
// the line of the script it came from. docs/results.md describes the records.
//
// Records are written as they come and take the file's name at the end of the run, also of one that
// failed; a run that is killed leaves the old file. Numbers have 17 digits, so they read back to
// the same doubles; what is no number (or not set) is null.
#pragma once

#include <span>
#include <string>
#include <string_view>

namespace korvel {

// Opens the file. Both return 0 or the errno of a failure.
int open_results(const std::string& path);
// Closes the list with the status of the run, and gives the file its name.
int close_results(int status);
bool results_wanted();

// One record of the list: members in the order of the calls, closed at the end of the scope.
class ResultRecord {
 public:
  // `kind` is "estimate" or "test". The command, its line and file, and the sample are put in.
  ResultRecord(std::string_view kind, std::string_view command, int line);
  ResultRecord(const ResultRecord&) = delete;
  ResultRecord& operator=(const ResultRecord&) = delete;
  ~ResultRecord();

  void text(std::string_view key, std::string_view value);
  void number(std::string_view key, double value);
  void truth(std::string_view key, bool value);
  void numbers(std::string_view key, std::span<const double> values);
  // Arrays element by element, and objects of numbers.
  void open(std::string_view key, char bracket);
  void element(double value);
  void element(std::string_view value);
  void close(char bracket);
  // All temporaries that are set, but for the clock.
  void temporaries();

 private:
  bool first_ = true;
};

}  // namespace korvel
