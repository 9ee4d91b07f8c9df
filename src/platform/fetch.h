// Files fetched over the network: http, https and ftp, through libcurl.
#pragma once

#include <string>
#include <string_view>

namespace korvel {

struct Fetched {
  bool built = true;       // false: this program was built without it
  bool library = true;     // false: the library is not installed on this machine
  int code = 0;            // libcurl's code of the failure, 0 none
  std::string cause = {};  // its text
  bool good() const { return built && library && code == 0; }
};

// Fetches `url` into `file`, which is created mode 0600 and removed again after a failure. `user`
// and `password` log in when `user` is not empty. Ends after ten minutes, when nothing has come for
// a minute, and when a signal asks the run to stop. Shows its progress when standard error is a
// terminal. The library is loaded at the first call, so that it costs other runs nothing.
Fetched fetch(const std::string& url, const std::string& user, const std::string& password,
              const std::string& file);

}  // namespace korvel
