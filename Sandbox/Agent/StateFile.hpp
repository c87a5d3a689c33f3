#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Agent/Outcome.hpp"
#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// What the agent remembers from one run to the next.
struct State {
  struct Folder {
    SharedRoot shared;
    std::int64_t filesEmbedded = 0;
  };

  /// Random, stable for the life of the file.
  std::string machineId;
  std::vector<Folder> folders;
  std::vector<EscapeGrant> grants;
  bool modelReady = false;
  /// How many requests were ever held back; the last one's id.
  std::int64_t requests = 0;
};

/// `state.json` in the agent's state directory: private to the user (0600 in a 0700 directory) and
/// replaced atomically, so that a reader sees the old or the new state, never half of one.
class StateFile {
 public:
  /// Makes the directory where it is missing.
  static Outcome<StateFile> open(const std::string& directory);

  /// None on the very first start. A file that cannot be understood is set aside as
  /// "state.json.unreadable" with a line in the log, and gives a fresh state.
  std::optional<State> load() const;

  /// Rejection is logged: the agent goes on with what it holds in memory.
  void save(const State& state) const;

 private:
  explicit StateFile(std::string path) : path_(std::move(path)) {}

  std::string path_;
};

/// A state with a machine identity of its own and nothing else.
State freshState();

}  // namespace zephyl::sandbox
