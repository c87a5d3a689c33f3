#include "Tailnet/Common/StateFile.hpp"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include <boost/json.hpp>

#include <fcntl.h>
#include <unistd.h>

#include "Common/Log.hpp"

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace json = boost::json;
namespace {

constexpr std::size_t mostBytes = 16'384;

std::optional<json::object> parseObject(std::string_view text) {
  boost::system::error_code error;
  auto value = json::parse(text, error);
  if (error || !value.is_object()) return std::nullopt;
  return std::move(value.get_object());
}

std::optional<json::object> readObject(const std::string& path) {
  std::error_code error;
  if (!fs::is_regular_file(path, error)) return std::nullopt;
  std::ifstream file(path, std::ios::binary);
  std::array<char, mostBytes> bytes{};
  file.read(bytes.data(), bytes.size());
  return parseObject({bytes.data(), static_cast<std::size_t>(file.gcount())});
}

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const auto written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno != EINTR) return false;
    if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool writePrivateFile(const std::string& path, std::string_view text) {
  ::unlink(path.c_str());
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) return false;
  const bool written = writeAll(descriptor, text) && ::fsync(descriptor) == 0;
  return ::close(descriptor) == 0 && written;
}

}  // namespace

Result<void> makePrivateDirectory(const std::string& directory) {
  std::error_code error;
  if (fs::create_directories(directory, error)) {
    fs::permissions(directory, fs::perms::owner_all, error);
  }
  if (error) return Failure{fmt::format("cannot make {}: {}", directory, error.message())};
  return {};
}

StateFile::StateFile(std::string_view directory, std::string_view name)
    : path_(fmt::format("{}/{}", directory, name)) {}

std::optional<json::object> StateFile::load() const {
  std::error_code error;
  if (!fs::exists(path_, error) && !error) return std::nullopt;
  auto content = readObject(path_);
  if (content) return content;
  const auto aside = path_ + ".unreadable";
  log("{} cannot be understood; set aside as {}", path_, aside);
  fs::rename(path_, aside, error);
  return std::nullopt;
}

Result<void> StateFile::save(const json::object& content) const {
  const auto fresh = path_ + ".new";
  if (writePrivateFile(fresh, json::serialize(content) + '\n') &&
      ::rename(fresh.c_str(), path_.c_str()) == 0) {
    return {};
  }
  Failure failure{fmt::format("cannot save {}: {}", path_, std::strerror(errno))};
  ::unlink(fresh.c_str());
  return failure;
}

}  // namespace zephyl::sandbox
