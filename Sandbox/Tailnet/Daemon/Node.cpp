#include "Tailnet/Daemon/Node.hpp"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include "Common/PrivateFile.hpp"
#include "Tailnet/Common/StateFile.hpp"

namespace zephyl::sandbox {

Result<std::string> nodeIn(const std::string& stateDirectory) {
  if (const auto made = makePrivateDirectory(stateDirectory); !made) return made.error();
  const StateFile file(stateDirectory, "node.json");
  if (const auto state = file.load()) {
    const auto* node = state->if_contains("node");
    if (node && node->is_string()) return std::string(node->get_string());
  }
  auto node = to_string(boost::uuids::random_generator()());
  if (const auto saved = file.save({{"node", node}}); !saved) return saved.error();
  return node;
}

}  // namespace zephyl::sandbox
