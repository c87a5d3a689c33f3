#include "Common/StateFile.hpp"

#include <cstdio>

#include "Common/Log.hpp"
#include "System/Files/Files.hpp"

namespace zephyl::sandbox {

Result<StateFile> StateFile::open(const std::string& directory, std::string_view name) {
  const auto created = createDirectories(directory);
  if (!created) return Error{"cannot create ", created.error().message};
  return StateFile(joinPath(directory, name));
}

bool StateFile::exists() const {
  return fileExists(path_);
}

Result<std::string> StateFile::read() const {
  return readFile(path_);
}

void StateFile::setAside(const Error& reason) const {
  const auto aside = path_ + ".unreadable";
  std::rename(path_.c_str(), aside.c_str());
  log("{} cannot be decoded ({}); renamed to {}", path_, reason.message, aside);
}

Result<void> StateFile::save(const json::Value& content) const {
  const auto saved = replaceFile(path_, json::compact(content) + '\n', Durability::flushed);
  if (!saved) return Error{"cannot save ", saved.error().message};
  return {};
}

}  // namespace zephyl::sandbox
