#pragma once

#include <compare>
#include <string_view>

namespace zephyl {

/// Versions are compared piece by piece, a piece being a run of digits or of letters; what stands
/// between is a separator. Numbers compare by value, letters by the alphabet, and letters come
/// before the end, which comes before a number: 2.0b1 < 2.0 = 2 < 2.0.1. Pure.
std::weak_ordering compareVersions(std::string_view left, std::string_view right);

/// Whether a text may be a version at all: a digit, then at most 63 letters, digits, '.', '-',
/// '+', '_' or '~'.
bool isVersion(std::string_view text);

}  // namespace zephyl
