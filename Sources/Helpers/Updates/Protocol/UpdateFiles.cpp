#include "Helpers/Updates/Protocol/UpdateFiles.hpp"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "System/Data/JSON.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Files.hpp"

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

std::optional<UpdateFiles> UpdateFiles::trusted(const std::string& prefix) {
  if (prefix.empty()) return std::nullopt;
  auto files = of(prefix);
  if (!fileExists(files.directory) || files.reasonForDistrust()) return std::nullopt;
  return files;
}

std::optional<std::string> UpdateFiles::reasonForDistrust() const {
  constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;
  const FileDescriptor opened(::open(directory.c_str(), flags));
  if (!opened && errno == ENOENT) return std::nullopt;
  if (!opened && (errno == ENOTDIR || errno == ELOOP)) return directory + " is not a directory.";
  struct stat status {};
  if (!opened || ::fstat(opened.get(), &status) != 0) return systemError(directory, errno).message;
  if (status.st_uid != ::geteuid()) return directory + " belongs to another user.";
  if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
    return directory + " is open to other users.";
  }
  return std::nullopt;
}

std::string UpdateFiles::archive(const std::string& sha256) const {
  return joinPath(directory, "archive-" + sha256);
}

std::optional<UpdateMarker> readMarker(const std::string& path) {
  const auto text = readFile(path);
  if (!text) return std::nullopt;
  auto marker = json::decodeText<UpdateMarker>(*text);
  if (!marker) return std::nullopt;
  return std::move(*marker);
}

Result<void> writeMarker(const std::string& path, const UpdateMarker& marker) {
  return replaceFile(path, json::prettySorted(json::encode(marker)), Durability::flushed);
}

bool removeUndecodableMarker(const std::string& path) {
  const auto text = readFile(path);
  if (!text || json::decodeText<UpdateMarker>(*text)) return false;
  return removePath(path).has_value();
}

}  // namespace zephyl
