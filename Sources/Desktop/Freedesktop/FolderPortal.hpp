#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Desktop/FolderRequest.hpp"
#include "Desktop/Freedesktop/Bus/Bus.hpp"
#include "Desktop/Freedesktop/Bus/WatchedName.hpp"

namespace zephyl {

/// Returns the decoded path of a "file" URI of this machine, or nullopt for anything else.
std::optional<std::string> pathOfFileURI(std::string_view uri);

/// Lets the user choose a folder through org.freedesktop.portal.FileChooser. Each request is
/// answered once.
///
/// Choosing a folder is the consent to share it. So only the owner of the portal's name may answer,
/// and request handles cannot be guessed.
///
/// Bus thread only, including the callbacks.
class FolderPortal final : public Bus::Client {
 public:
  using Done = std::function<void(FolderChoice)>;

  /// The portal may have to be started first. A request that is not accepted within this time
  /// fails. If the portal accepts it later, it is asked to close its window.
  static constexpr Duration startTimeout = std::chrono::seconds(25);

  /// `bus` must outlive it.
  explicit FolderPortal(Bus& bus) : bus_(bus) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void choose(const FolderRequest& request, Done done);

 private:
  struct Question {
    FolderRequest request;
    Done done;         ///< empty after the request was answered
    BusSlot call;      ///< until the portal has accepted the request
    BusSlot response;  ///< until the user has answered
    Timer limit;       ///< until the portal has accepted the request
  };

  void ask(const std::string& token);
  void handleReply(const std::string& token, sd_bus_message& reply);
  /// Handles that the portal has not accepted the request in time.
  void handleTimeout(const std::string& token);
  void awaitResponse(const std::string& token, const std::string& path);
  void handleResponse(const std::string& token, sd_bus_message& signal);
  void close(const std::string& handle) const;
  void finish(const std::string& token, FolderChoice choice);
  void fail(const std::string& token, Error reason) {
    finish(token, FolderChoice::unanswered(std::move(reason)));
  }
  void failAll(const char* reason);

  Bus& bus_;
  std::map<std::string, Question> questions_;  // by their tokens

  BusConnection* connection_ = nullptr;
  WatchedName portal_{"org.freedesktop.portal.Desktop"};
};

}  // namespace zephyl
