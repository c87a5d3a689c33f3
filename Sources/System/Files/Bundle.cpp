#include "System/Files/Bundle.hpp"

#include <filesystem>

#include "System/Data/JSON.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/JSONFile.hpp"

namespace zephyl {

namespace {

constexpr std::string_view executableInPrefix = "/bin/zephyl-tray";
constexpr std::string_view resourcesInPrefix = "/share/zephyl-tray";

Bundle& mainBundle() {
  static Bundle bundle{std::nullopt};
  return bundle;
}

std::vector<std::string> nonEmpty(std::vector<std::string> texts) {
  std::erase(texts, "");
  return texts;
}

/// Returns a value of the information dictionary, or null if the key is missing.
json::Value valueIn(const std::optional<std::string>& resources, const std::string& key) {
  static auto* const file = new JSONFile;  // must not be destroyed
  if (!resources) return nullptr;
  const auto dictionary = file->read(joinPath(*resources, "Info.json"));
  if (!dictionary) return nullptr;
  const auto* value = (*dictionary)->if_contains(key);
  return value != nullptr ? *value : json::Value(nullptr);
}

}  // namespace

const Bundle& Bundle::main() {
  return mainBundle();
}

void Bundle::setMain(Bundle bundle) {
  mainBundle() = std::move(bundle);
}

std::optional<std::string> Bundle::runningExecutable() {
  std::error_code failure;
  std::string path = std::filesystem::read_symlink("/proc/self/exe", failure);
  // The kernel appends " (deleted)" to the path of a deleted file.
  if (failure || !fileExists(path)) return std::nullopt;
  return path;
}

std::optional<std::string> Bundle::resourceDirectory() const {
  if (!executable_ || !executable_->ends_with(executableInPrefix)) return std::nullopt;
  std::string directory(*executable_, 0, executable_->size() - executableInPrefix.size());
  directory += resourcesInPrefix;
  if (!isDirectory(directory)) return std::nullopt;
  return directory;
}

std::optional<std::string> Bundle::information(const std::string& key) const {
  const auto value = valueIn(resourceDirectory(), key);
  if (!value.is_string() || value.get_string().empty()) return std::nullopt;
  return std::string(value.get_string());
}

std::vector<std::string> Bundle::informationList(const std::string& key) const {
  const auto value = valueIn(resourceDirectory(), key);
  if (value.is_string()) return nonEmpty({std::string(value.get_string())});
  auto list = json::decode<std::vector<std::string>>(value);
  return list ? nonEmpty(std::move(*list)) : std::vector<std::string>();
}

}  // namespace zephyl
