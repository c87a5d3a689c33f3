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

/// The path of a "file" URI, decoded; nullopt for anything else. Pure.
std::optional<std::string> pathOfFileURI(std::string_view uri);

/// Asks for a folder through org.freedesktop.portal.FileChooser. Each question is answered once.
///
/// The choice of a folder is the consent to share it, so only the owner of the portal's name may
/// answer, and the handle of a request cannot be guessed.
///
/// Bus thread only, with the answers.
class FolderPortal final : public Bus::Client {
 public:
  using Done = std::function<void(FolderChoice)>;

  /// A portal may have to be started first. One that has not accepted a question by then is given
  /// up; should it accept the question later, it is asked to close its window again.
  static constexpr Duration startTimeout = std::chrono::seconds(25);

  /// The bus outlives it.
  explicit FolderPortal(Bus& bus) : bus_(bus) {}

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void choose(const FolderRequest& request, Done done);

 private:
  struct Question {
    FolderRequest request;
    Done done;         ///< empty once the question was answered
    BusSlot call;      ///< while the portal has not accepted the question
    BusSlot response;  ///< while the user has not answered
    Timer limit;       ///< while the portal has not accepted the question
  };

  void ask(const std::string& token);
  void accepted(const std::string& token, sd_bus_message& reply);
  /// The portal has not accepted the question in time.
  void giveUp(const std::string& token);
  void awaitResponse(const std::string& token, const std::string& path);
  void responded(const std::string& token, sd_bus_message& signal);
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
