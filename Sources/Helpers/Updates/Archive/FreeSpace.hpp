#pragma once

#include <cstdint>

#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// What an update leaves free on a disk, in bytes, because other programs need space as well.
inline constexpr std::int64_t reservedSpace = std::int64_t{64} << 20;

/// Fails unless `needed` bytes can be written and `reservedSpace` is left, when `available` bytes
/// are free. Pure.
Result<void> checkSpace(std::int64_t needed, std::int64_t available);
/// The same for the file system that holds the open file or directory `at`.
Result<void> checkFreeSpace(const FileDescriptor& at, std::int64_t needed);

}  // namespace zephyl
