#pragma once

#include <optional>
#include <string>
#include <utility>

#include <boost/describe/class.hpp>

#include "System/Data/Result.hpp"

namespace zephyl {

/// A request to choose a folder.
struct FolderRequest {
  std::string prompt;  ///< title of the confirming button
  std::string message;

  bool operator==(const FolderRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(FolderRequest, (), (prompt, message))

/// The result of a desktop's own folder chooser.
struct FolderChoice {
  /// The path of the folder, nullopt if the user cancelled, or an error.
  using Answer = Result<std::optional<std::string>>;

  Answer answer;
  /// Whether the user has answered. If not, `answer` contains the reason, and the user may be asked
  /// in another way. An unusable answer of the user is an error, too.
  bool answered = true;

  static FolderChoice unanswered(Error reason) {
    return {.answer = std::move(reason), .answered = false};
  }
};

}  // namespace zephyl
