#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "System/Processes/ChildProcess.hpp"
#include "ZephylTray/Tailnet/TailnetPair.hpp"

namespace zephyl {

class PreauthKey;
class PublishedTailnet;
struct TailnetAnnouncement;

/// Handles the lines that the children of a tailnet print: appends them to the log, without the
/// pre-authorization key, and applies the client's announcements to the published state and the
/// key. A pair that ends can only announce that it has joined.
///
/// Values about the server are kept for the main thread, only the newest of each kind, so that a
/// client that prints many does not occupy that thread. Must be used on the tailnet's queue, except
/// `extractDiscoveries`. `published` and `key` must outlive it.
class TailnetOutput {
 public:
  /// Values that the client has announced about the server.
  struct Discoveries {
    std::optional<std::string> address;
    std::optional<std::string> name;
    std::optional<std::string> accent;
    std::optional<std::string> unresolvedTarget;
  };

  struct Events {
    /// Called with the first discovery since `extractDiscoveries`.
    std::function<void()> discovered;
    /// Called when the server has refused the key.
    std::function<void()> enrolmentFailed;
  };

  TailnetOutput(PublishedTailnet& published, PreauthKey& key, Events events);

  /// Handles lines of a child of `pair`, whose tag in the log is `tag`. If `pair` is null, because
  /// it is gone, the lines are only logged.
  void handle(const TailnetPair* pair, const OutputLines& output, std::string_view tag);

  /// Returns the discoveries since the previous call. Callable from any thread.
  Discoveries extractDiscoveries();

 private:
  void scrape(const TailnetPair& pair, std::string_view line);
  void apply(TailnetAnnouncement announcement);
  void storeUnlessBlank(std::optional<std::string> Discoveries::*kind, std::string value);
  void store(std::optional<std::string> Discoveries::*kind, std::string value);

  PublishedTailnet& published_;
  PreauthKey& key_;
  const Events events_;
  std::mutex mutex_;                        // guards discoveries_
  std::optional<Discoveries> discoveries_;  // nullopt: extracted
};

}  // namespace zephyl
