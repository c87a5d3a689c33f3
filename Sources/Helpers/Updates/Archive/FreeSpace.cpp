#include "Helpers/Updates/Archive/FreeSpace.hpp"

#include <algorithm>
#include <cerrno>

#include <sys/statvfs.h>

#include "System/Data/Format.hpp"

namespace zephyl {

Result<void> checkSpace(std::int64_t needed, std::int64_t available) {
  if (needed <= available - reservedSpace) return {};
  constexpr std::int64_t megabyte = 1'000'000;
  return Error{
      formatText("There is not enough free space on the disk of the installation: {} MB "
                 "are needed, {} MB are free.",
                 (needed + reservedSpace + megabyte - 1) / megabyte, available / megabyte)};
}

Result<void> checkFreeSpace(const FileDescriptor& at, std::int64_t needed) {
  struct statvfs status {};
  if (::fstatvfs(at.get(), &status) != 0) return systemError("free space", errno);
  constexpr double most = 1e18;  // fits into the integer below
  const double available =
      static_cast<double>(status.f_bavail) * static_cast<double>(status.f_frsize);
  return checkSpace(needed, static_cast<std::int64_t>(std::min(available, most)));
}

}  // namespace zephyl
