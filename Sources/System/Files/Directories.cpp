#include "System/Files/Directories.hpp"

#include <array>

#include <pwd.h>
#include <unistd.h>

#include "System/Data/Text.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"

namespace zephyl::directories {

namespace {

std::optional<std::string> nonEmptyVariable(const char* name) {
  auto value = environmentVariable(name);
  if (value && value->empty()) value.reset();
  return value;
}

std::optional<std::string> absoluteVariable(const char* name) {
  auto value = environmentVariable(name);
  if (value && !value->starts_with('/')) value.reset();
  return value;
}

std::optional<std::string> homeOfPasswordDatabase() {
  std::array<char, 16384> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr || *found->pw_dir == '\0') {
    return std::nullopt;
  }
  return found->pw_dir;
}

std::optional<std::string> knownHome() {
  auto home = nonEmptyVariable("HOME");
  return home ? home : homeOfPasswordDatabase();
}

}  // namespace

std::string home() {
  return knownHome().value_or("/");
}

std::optional<std::string> applicationSupport() {
  if (auto directory = absoluteVariable("XDG_DATA_HOME")) return directory;
  if (const auto home = knownHome()) return joinPath(*home, ".local/share");
  return std::nullopt;
}

std::vector<std::string> data() {
  std::vector<std::string> directories;
  if (auto own = applicationSupport()) directories.push_back(std::move(*own));
  const auto shared = nonEmptyVariable("XDG_DATA_DIRS").value_or("/usr/local/share:/usr/share");
  for (const auto directory : splitNonEmpty(shared, ':')) directories.emplace_back(directory);
  return directories;
}

std::string configuration() {
  if (auto directory = absoluteVariable("XDG_CONFIG_HOME")) return *directory;
  return joinPath(home(), ".config");
}

std::string temporary() {
  return nonEmptyVariable("TMPDIR").value_or("/tmp");
}

}  // namespace zephyl::directories
