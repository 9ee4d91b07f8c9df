// The private folder of a run.
#include "platform/private_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace korvel {
namespace {

// Known again by device and inode: the parent may be a folder where others rename things.
struct PrivateFolder {
  std::string path;
  dev_t device = 0;
  ino_t inode = 0;
};
PrivateFolder& folder() {
  static PrivateFolder f;
  return f;
}

bool is_ours(const struct stat& st) {
  return S_ISDIR(st.st_mode) && st.st_uid == geteuid() && (st.st_mode & 077) == 0 &&
         st.st_dev == folder().device && st.st_ino == folder().inode;
}

bool make_folder(const std::string& parent) {
  std::string name = parent.empty() ? "/tmp/" : parent;
  if (!name.ends_with('/')) name += '/';
  name += "korvel-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) return false;
  struct stat st {};
  if (lstat(name.c_str(), &st) != 0) return false;
  // Named from the root, so that it is found after the working folder has been changed.
  if (name[0] != '/') {
    char* whole = realpath(name.c_str(), nullptr);
    if (whole == nullptr) return false;
    name = whole;
    std::free(whole);  // NOLINT(cppcoreguidelines-no-malloc)
  }
  folder() = {name, st.st_dev, st.st_ino};
  return true;
}

// Empties the folder behind a descriptor; sub-folders are none of ours.
void empty_folder(int fd) {
  DIR* list = fdopendir(fd);
  if (list == nullptr) {
    close(fd);
    return;
  }
  for (const dirent* entry = readdir(list); entry != nullptr;
       entry = readdir(list)) {  // NOLINT(concurrency-mt-unsafe)
    unlinkat(dirfd(list), entry->d_name, 0);
  }
  closedir(list);
}

}  // namespace

std::string private_path(const std::string& parent, std::string_view name) {
  if (name.empty() || name.find('/') != std::string_view::npos || name[0] == '.') {
    errno = EINVAL;
    return {};
  }
  if (folder().path.empty() && !make_folder(parent)) return {};
  struct stat st {};
  if (lstat(folder().path.c_str(), &st) != 0) return {};
  if (!is_ours(st)) {
    errno = EPERM;
    return {};
  }
  return folder().path + "/" + std::string(name);
}

void remove_private_folder() {
  if (folder().path.empty()) return;
  const int fd = open(folder().path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  struct stat st {};
  if (fd >= 0 && fstat(fd, &st) == 0 && is_ours(st)) {
    empty_folder(fd);
    rmdir(folder().path.c_str());
  } else if (fd >= 0) {
    close(fd);
  }
  folder() = {};
}

}  // namespace korvel
