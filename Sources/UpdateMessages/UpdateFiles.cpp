#include "UpdateMessages/UpdateFiles.hpp"

#include "System/Files.hpp"
#include "System/JSON.hpp"

namespace zephyl {

UpdateFiles UpdateFiles::of(const std::string& prefix) {
  const auto name = std::string_view(prefix).substr(prefix.rfind('/') + 1);
  const std::string directory =
      joinPath(parentDirectory(prefix), std::string(".").append(name).append(".updates"));
  return {
      .prefix = prefix,
      .directory = directory,
      .lock = joinPath(directory, "lock"),
      .partial = joinPath(directory, "partial"),
      .staged = joinPath(directory, "staged"),
      .previous = joinPath(directory, "previous"),
      .trial = joinPath(directory, "trial.json"),
      .failed = joinPath(directory, "failed.json"),
  };
}

std::string UpdateFiles::archive(const std::string& sha256) const {
  return joinPath(directory, "archive-" + sha256);
}

std::optional<UpdateNote> readNote(const std::string& path) {
  const auto text = readFile(path);
  if (!text) return std::nullopt;
  auto note = json::decodeText<UpdateNote>(*text);
  if (!note) return std::nullopt;
  return std::move(*note);
}

Result<void> writeNote(const std::string& path, const UpdateNote& note) {
  return replaceFile(path, json::prettySorted(json::encode(note)), Durability::flushed);
}

}  // namespace zephyl
