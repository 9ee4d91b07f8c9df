// The private folder of a run: files that nobody else may see, gone when the run ends.
#pragma once

#include <string>
#include <string_view>

namespace korvel {

// Path of the file `name` (without "/") in the private folder. The folder is made at the first use
// below `parent`, mode 0700 and under a name that nobody can foresee; when somebody has put another
// folder or a link in its place it is refused. Empty with errno set when that fails.
std::string private_path(const std::string& parent, std::string_view name);

// Removes the folder with all its files. Called at every end of a run.
void remove_private_folder();

}  // namespace korvel
