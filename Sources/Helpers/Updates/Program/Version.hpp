#pragma once

#include <compare>
#include <string_view>

namespace zephyl {

/// Compares versions piece by piece. A piece is a run of digits or of letters, and other characters
/// are separators. Numbers compare by value, letters alphabetically. Letters precede the end, which
/// precedes a number: 2.0b1 < 2.0 = 2 < 2.0.1. Pure.
std::weak_ordering compareVersions(std::string_view left, std::string_view right);

/// Returns whether a text has the form of a version: a digit, then at most 63 letters, digits, '.',
/// '-', '+', '_' or '~'.
bool isVersion(std::string_view text);

}  // namespace zephyl
