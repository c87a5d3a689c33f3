#pragma once

#include <string>

namespace zephyl {

/// A question for a folder.
struct FolderRequest {
  std::string prompt;  ///< title of the button that confirms
  std::string message;

  bool operator==(const FolderRequest&) const = default;
};

}  // namespace zephyl
