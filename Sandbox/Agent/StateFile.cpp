#include "Agent/StateFile.hpp"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Agent/Log.hpp"
#include "Agent/ObjectReader.hpp"

namespace zephyl::sandbox {
namespace fs = std::filesystem;
namespace json = boost::json;
namespace {

json::object encode(const State& state) {
  json::array folders;
  for (const auto& folder : state.folders) {
    auto object = toJson(folder.shared);
    object["filesEmbedded"] = folder.filesEmbedded;
    folders.push_back(std::move(object));
  }
  return {{"machineId", state.machineId},
          {"roots", std::move(folders)},
          {"escapeGrants", toJsonArray(state.grants)},
          {"modelReady", state.modelReady},
          {"requests", state.requests}};
}

template <typename Record>
std::vector<Record> decodeAll(ObjectReader& parent, std::string_view key,
                              Record (*decode)(ObjectReader&)) {
  std::vector<Record> records;
  for (const auto& element : parent.array(key)) {
    ObjectReader reader(element);
    records.push_back(decode(reader));
    if (reader.problem()) parent.reject(reader.problem()->message);
  }
  return records;
}

State::Folder decodeFolder(ObjectReader& reader) {
  return {.shared = {.root = reader.string("root"),
                     .name = reader.string("name"),
                     .servers = reader.optionalStrings("servers")},
          .filesEmbedded = reader.integer("filesEmbedded")};
}

EscapeGrant decodeGrant(ObjectReader& reader) {
  return {.path = reader.string("path"),
          .root = reader.string("root"),
          .kind = reader.string("kind"),
          .grantedAt = reader.integer("grantedAt"),
          .grantedBy = reader.optionalString("grantedBy")};
}

Outcome<State> decode(std::string_view text) {
  auto reader = ObjectReader::parse(text);
  State state{.machineId = reader.string("machineId"),
              .folders = decodeAll(reader, "roots", decodeFolder),
              .grants = decodeAll(reader, "escapeGrants", decodeGrant),
              .modelReady = reader.boolean("modelReady"),
              .requests = reader.integer("requests")};
  if (reader.problem()) return *reader.problem();
  return state;
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

Outcome<StateFile> StateFile::open(const std::string& directory) {
  std::error_code error;
  if (fs::create_directories(directory, error)) {
    fs::permissions(directory, fs::perms::owner_all, error);
  }
  if (error) return internalError(fmt::format("{}: {}", directory, error.message()));
  return StateFile(directory + "/state.json");
}

std::optional<State> StateFile::load() const {
  if (std::error_code error; !fs::exists(path_, error) && !error) return std::nullopt;
  std::ifstream file(path_, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  auto state = decode(text);
  if (state) return *state;
  const auto aside = path_ + ".unreadable";
  log("{} cannot be understood ({}); set aside as {}", path_, state.error().message, aside);
  std::error_code error;
  fs::rename(path_, aside, error);
  return freshState();
}

void StateFile::save(const State& state) const {
  const auto fresh = path_ + ".new";
  if (writePrivateFile(fresh, json::serialize(encode(state)) + '\n') &&
      ::rename(fresh.c_str(), path_.c_str()) == 0) {
    return;
  }
  log("cannot save {}: {}", path_, std::strerror(errno));
  ::unlink(fresh.c_str());
}

State freshState() {
  return {.machineId = to_string(boost::uuids::random_generator()())};
}

}  // namespace zephyl::sandbox
