#include "Tailnet/Common/StateFile.hpp"

#include <array>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <utility>

#include <boost/json.hpp>

#include "Common/Log.hpp"
#include "Common/PrivateFile.hpp"

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

}  // namespace

StateFile::StateFile(std::string_view directory, std::string_view name)
    : path_(fmt::format("{}/{}", directory, name)) {}

std::optional<json::object> StateFile::load() const {
  std::error_code error;
  if (!fs::exists(path_, error) && !error) return std::nullopt;
  auto content = readObject(path_);
  if (content) return content;
  log("{} cannot be understood; set aside as {}", path_, setAside(path_));
  return std::nullopt;
}

Result<void> StateFile::save(const json::object& content) const {
  return replacePrivateFile(path_, json::serialize(content) + '\n');
}

}  // namespace zephyl::sandbox
