#pragma once

#include <span>
#include <string>
#include <string_view>

namespace zephyl {

/// Overwrites a secret that is not needed any more, so that it does not stay in memory.
void wipe(std::string& secret);
void wipe(std::span<char> secret);

/// Appends to a secret; where it has to move to a larger place, the old one is overwritten.
void append(std::string& secret, std::string_view more);

/// Whether both are the same, in a time that tells nothing about where they differ.
bool equalSecrets(std::string_view left, std::string_view right);

/// Bytes from the system's secure source, as two lower-case hexadecimal digits each.
std::string randomHexadecimal(std::size_t bytes);

}  // namespace zephyl
