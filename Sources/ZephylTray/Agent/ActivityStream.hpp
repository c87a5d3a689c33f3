#pragma once

#include <functional>
#include <memory>
#include <string>

#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Agent/AgentPeer.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"

namespace zephyl {

/// Follows the agent's event stream. Every line that begins with "data: " carries one `Activity`.
/// Other lines, and payloads that cannot be decoded, are ignored. If the stream cannot be opened,
/// responds with a status other than 200, ends or fails, it is opened again after a fixed delay,
/// until the handle is destroyed.
///
/// Lines are read and decoded on the reactor's thread. Activities are delivered on the main thread,
/// one task each. If the main thread is busy, only the newest is delivered, so an agent that floods
/// the stream can neither block the main thread nor queue up tasks.
class ActivityStream {
 public:
  /// `url` is the stream's address. Verifies each connection with `peer`, without a cached verdict.
  /// Calls `onActivity` on the main thread, never after this was destroyed.
  ActivityStream(const Runtime& runtime, std::string url, std::shared_ptr<AgentPeer> peer,
                 std::function<void(Activity)> onActivity);
  ~ActivityStream();
  ActivityStream(const ActivityStream&) = delete;
  ActivityStream& operator=(const ActivityStream&) = delete;

 private:
  class Reader;
  std::shared_ptr<Reader> reader_;
};

}  // namespace zephyl
