#include "Helpers/Updates/Program/Version.hpp"

#include <algorithm>

namespace zephyl {

namespace {

constexpr std::size_t maxVersion = 64;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// Removes the next piece from a version and returns it, or an empty one at the end.
std::string_view removePiece(std::string_view& version) {
  while (!version.empty() && !isDigit(version.front()) && !isLetter(version.front())) {
    version.remove_prefix(1);
  }
  if (version.empty()) return {};
  const bool digits = isDigit(version.front());
  const auto end =
      std::ranges::find_if_not(version, [&](char c) { return digits ? isDigit(c) : isLetter(c); });
  auto piece = version.substr(0, static_cast<std::size_t>(end - version.begin()));
  version.remove_prefix(piece.size());
  return piece;
}

bool isNumber(std::string_view piece) {
  return !piece.empty() && isDigit(piece.front());
}

std::string_view withoutLeadingZeros(std::string_view number) {
  const auto first = number.find_first_not_of('0');
  return number.substr(std::min(first, number.size()));
}

std::weak_ordering compareNumbers(std::string_view left, std::string_view right) {
  left = withoutLeadingZeros(left);
  right = withoutLeadingZeros(right);
  if (left.size() != right.size()) return left.size() <=> right.size();
  return left <=> right;
}

std::weak_ordering comparePieces(std::string_view left, std::string_view right) {
  // An end counts as zero when compared with a number, and as more than letters.
  const bool leftCounts = isNumber(left) || left.empty();
  const bool rightCounts = isNumber(right) || right.empty();
  if (leftCounts && rightCounts) return compareNumbers(left, right);
  if (leftCounts != rightCounts) return leftCounts <=> rightCounts;
  return left <=> right;
}

}  // namespace

std::weak_ordering compareVersions(std::string_view left, std::string_view right) {
  for (;;) {
    const auto leftPiece = removePiece(left);
    const auto rightPiece = removePiece(right);
    if (leftPiece.empty() && rightPiece.empty()) return std::weak_ordering::equivalent;
    const auto order = comparePieces(leftPiece, rightPiece);
    if (std::is_neq(order)) return order;
  }
}

bool isVersion(std::string_view text) {
  return !text.empty() && text.size() <= maxVersion && isDigit(text.front()) &&
         std::ranges::all_of(text, [](char c) {
           return isDigit(c) || isLetter(c) ||
                  std::string_view(".-+_~").find(c) != std::string_view::npos;
         });
}

}  // namespace zephyl
