#include "System/Files/UserDefaults.hpp"

#include <cerrno>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>

#include "System/Data/JSON.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/FileDescriptor.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// Locks a directory against other processes. Returns a descriptor that holds the lock while it is
/// open, or no lock if it was not available within `patience`.
FileDescriptor lockDirectory(const std::string& path, std::chrono::milliseconds patience) {
  using std::chrono::steady_clock;
  constexpr std::chrono::milliseconds interval{2};
  FileDescriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const auto deadline = steady_clock::now() + patience;
  while (directory && ::flock(directory.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK &&
         steady_clock::now() < deadline) {
    std::this_thread::sleep_for(interval);
  }
  return directory;
}

Result<void> keepUnreadable(const std::string& path, const Error& reason) {
  const auto copy = copyAside(path);
  if (!copy) return copy.error();
  log("user defaults are unreadable ({}): copied to {}", reason.message, *copy);
  return {};
}

Result<void> writeObject(const std::string& path, const json::Object& values) {
  const std::string text = json::prettySorted(values);
  if (!isValidUTF8(text)) return Error{path + ": the new value is not valid UTF-8"};
  return writeFileAtomically(path, text, Durability::flushed);
}

}  // namespace

std::optional<std::int64_t> UserDefaults::integer(const std::string& key) const {
  return read<std::int64_t>(key);
}

std::optional<std::string> UserDefaults::string(const std::string& key) const {
  return read<std::string>(key);
}

void UserDefaults::setString(const std::string& key, const std::string& value) {
  changeOrLog([&](Values& values) { values[key] = value; });
}

void UserDefaults::remove(const std::string& key) {
  changeOrLog([&](Values& values) { values.erase(key); });
}

std::string UserDefaults::path() const {
  return joinPath(joinPath(directories::configuration(), domain_), "defaults.json");
}

template <typename T>
std::optional<T> UserDefaults::read(const std::string& key) const {
  const auto values = file_.read(path());
  if (!values) return std::nullopt;
  const auto* value = (*values)->if_contains(key);
  if (value == nullptr) return std::nullopt;
  auto decoded = json::decode<T>(*value);
  if (!decoded) return std::nullopt;
  return std::move(*decoded);
}

Result<UserDefaults::Values> UserDefaults::values() const {
  const auto file = path();
  if (!fileExists(file)) return Values();
  auto values = file_.read(file);
  if (!values) return values.error();
  return **values;
}

Result<void> UserDefaults::change(const std::function<void(Values&)>& edit) {
  const std::scoped_lock lock(changing_);
  const std::string file = path();
  if (auto made = createDirectories(parentDirectory(file)); !made) return made;
  const auto directoryLock = lockDirectory(parentDirectory(file), patience);
  const auto old = file_.read(file);
  if (!old && old.error().isShortage) return old.error();
  Values values = old ? **old : Values();
  edit(values);
  if (values == (old ? **old : Values())) return {};

  if (!old && fileExists(file)) {
    if (auto kept = keepUnreadable(file, old.error()); !kept) return kept;
  }
  return writeObject(file, values);
}

void UserDefaults::changeOrLog(const std::function<void(Values&)>& edit) {
  const auto saved = change(edit);
  if (!saved) log("could not write the user defaults: {}", saved.error().message);
}

}  // namespace zephyl
