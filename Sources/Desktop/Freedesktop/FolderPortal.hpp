#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Desktop/FolderRequest.hpp"
#include "Desktop/Freedesktop/Bus.hpp"
#include "System/Result.hpp"

namespace zephyl {

/// The path of a "file" URI, decoded; none when it is something else. Pure.
std::optional<std::string> pathOfFileURI(std::string_view uri);

/// Asks for a folder through org.freedesktop.portal.FileChooser. Each question is answered once:
/// a path, nothing when the user cancelled, or why nobody could be asked.
///
/// Bus thread only, with the answers.
class FolderPortal final : public Bus::Client {
 public:
  using Done = std::function<void(Result<std::optional<std::string>>)>;

  void connected(BusConnection& connection) override;
  void disconnected() override;

  void choose(const FolderRequest& request, Done done);

 private:
  struct Question {
    FolderRequest request;
    Done done;
    BusSlot call;      ///< while the portal has not taken the question
    BusSlot response;  ///< while the user has not answered
  };

  void ask(const std::string& token);
  void taken(const std::string& token, sd_bus_message& reply);
  void awaitResponse(const std::string& token, const std::string& path);
  void responded(const std::string& token, sd_bus_message& signal);
  void finish(const std::string& token, Result<std::optional<std::string>> answer);
  void finishAll(const char* reason);

  unsigned lastQuestion_ = 0;
  std::map<std::string, Question> questions_;  // by their tokens

  BusConnection* connection_ = nullptr;
  std::vector<BusSlot> portalWatch_;
  std::string owner_;
};

}  // namespace zephyl
