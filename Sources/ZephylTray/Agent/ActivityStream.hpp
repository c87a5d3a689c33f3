#pragma once

#include <functional>
#include <memory>
#include <string>

#include "System/Concurrency/Runtime.hpp"
#include "ZephylTray/Agent/AgentPeer.hpp"
#include "ZephylTray/Agent/AgentRecords.hpp"

namespace zephyl {

/// Follows the agent's event stream: every line that begins with "data: " carries one `Activity`.
/// Other lines, and payloads that do not decode, are passed over. When the stream cannot be
/// opened, answers anything but 200, ends or breaks, it is opened again after a fixed pause, for
/// as long as the handle lives.
///
/// Reading and decoding happen on the reactor's thread. Activities arrive on the main thread, one
/// task each, the newest only when the main thread is behind: an agent that floods the stream can
/// neither stall it nor pile up work.
class ActivityStream {
 public:
  /// `url` is the stream's address. `onActivity` is called on the main thread; never once the
  /// handle is gone. Each connection is verified with `peer`, afresh.
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
