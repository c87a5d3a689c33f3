#pragma once

#include <string>

#include "Helpers/Updates/Archive/Archive.hpp"
#include "System/Data/Result.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

/// Unpacks all entries of `reader` into the empty directory `into`. Never writes through a link and
/// never overwrites: an existing entry is an error. Directories and executable files get mode 0755,
/// other files 0644. Fails before a file would fill the disk.
Result<void> unpack(ArchiveReader& reader, const FileDescriptor& into,
                    std::size_t maxDirectories = maxArchiveEntries);

}  // namespace zephyl
