#pragma once

#include <optional>
#include <string>
#include <utility>

#include <boost/describe/class.hpp>

#include "System/Data/Result.hpp"

namespace zephyl {

/// A question for a folder.
struct FolderRequest {
  std::string prompt;  ///< title of the button that confirms
  std::string message;

  bool operator==(const FolderRequest&) const = default;
};
BOOST_DESCRIBE_STRUCT(FolderRequest, (), (prompt, message))

/// How a desktop's own folder chooser ended.
struct FolderChoice {
  /// The path of the folder, nullopt when the user cancelled, or an error.
  using Answer = Result<std::optional<std::string>>;

  Answer answer;
  /// Whether the user has answered. If not, `answer` is the reason, and the user may be asked in
  /// another way. An answer that cannot be used is an error all the same.
  bool answered = true;

  static FolderChoice unanswered(Error reason) {
    return {.answer = std::move(reason), .answered = false};
  }
};

}  // namespace zephyl
