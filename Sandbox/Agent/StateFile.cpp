#include "Agent/StateFile.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "Agent/ObjectReader.hpp"
#include "Common/Log.hpp"
#include "Common/PrivateFile.hpp"

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

}  // namespace

Outcome<StateFile> StateFile::open(const std::string& directory) {
  const auto made = makePrivateDirectory(directory);
  if (!made) return internalError(made.error().message);
  return StateFile(directory + "/state.json");
}

std::optional<State> StateFile::load() const {
  if (std::error_code error; !fs::exists(path_, error) && !error) return std::nullopt;
  std::ifstream file(path_, std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  auto state = decode(text);
  if (state) return *state;
  log("{} cannot be understood ({}); set aside as {}", path_, state.error().message,
      setAside(path_));
  return freshState();
}

void StateFile::save(const State& state) const {
  const auto saved = replacePrivateFile(path_, json::serialize(encode(state)) + '\n');
  if (!saved) log("{}", saved.error().message);
}

State freshState() {
  return {.machineId = to_string(boost::uuids::random_generator()())};
}

}  // namespace zephyl::sandbox
