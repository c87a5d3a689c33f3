#pragma once

#include <cstdint>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// The space in bytes that an update leaves free on a disk, because other programs need it.
inline constexpr std::int64_t reservedSpace = std::int64_t{64} << 20;

/// Fails unless `needed` bytes fit into `available` bytes and leave `reservedSpace` free. Pure.
Result<void> checkSpace(std::int64_t needed, std::int64_t available);
/// Does the same for the file system of the open file or directory `at`.
Result<void> checkFreeSpace(const FileDescriptor& at, std::int64_t needed);

}  // namespace zephyl
