#include "System/Files/PrivateDirectory.hpp"

#include <cerrno>

#include <sys/stat.h>
#include <unistd.h>

namespace zephyl {

namespace {

constexpr mode_t permissionsOfOthers = S_IRWXG | S_IRWXO;

}  // namespace

Result<void> claimPrivateDirectory(const std::string& path) {
  if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) return systemError(path, errno);
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return systemError(path, errno);
  if (!S_ISDIR(status.st_mode)) return systemError(path, ENOTDIR);
  if (status.st_uid != ::geteuid()) {
    return Error{path, " belongs to another user (user id ", std::to_string(status.st_uid), ")"};
  }
  if ((status.st_mode & permissionsOfOthers) != 0) {
    return Error{path, " can be entered by other users; it needs mode 0700"};
  }
  return {};
}

bool isOwnDirectory(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         status.st_uid == ::geteuid();
}

}  // namespace zephyl
