#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zephyl {

/// The files that the program was installed with. The program is bundled if its executable is
/// <prefix>/bin/zephyl-tray and its resource directory, <prefix>/share/zephyl-tray, exists. The
/// resource directory may contain `Info.json`, the information dictionary.
///
/// The path of the executable is determined once, at the start, because after an update the
/// kernel's own link would name a file that was moved away. All other values are read from the
/// current files. Callable from any thread.
class Bundle {
 public:
  /// Returns the running program's bundle.
  static const Bundle& main();
  /// Sets the result of `main()`. Must be called once, first in the `main` function. Without it the
  /// bundle has no executable and no resources.
  static void setMain(Bundle bundle);
  /// Returns the current path of the running executable, with links resolved, or nullopt if the
  /// kernel cannot name it.
  static std::optional<std::string> runningExecutable();

  explicit Bundle(std::optional<std::string> executable) : executable_(std::move(executable)) {}

  [[nodiscard]] const std::optional<std::string>& executable() const { return executable_; }
  [[nodiscard]] std::optional<std::string> resourceDirectory() const;
  /// Returns a string of the information dictionary, such as "CFBundleIdentifier". Returns nullopt
  /// if it is absent, empty or not a string.
  [[nodiscard]] std::optional<std::string> information(const std::string& key) const;
  /// Returns the non-empty strings of a value that is a string or an array of strings, such as
  /// "SUPublicEDKey". Returns an empty list for any other value.
  [[nodiscard]] std::vector<std::string> informationList(const std::string& key) const;
  [[nodiscard]] std::optional<std::string> identifier() const {
    return information("CFBundleIdentifier");
  }

 private:
  std::optional<std::string> executable_;
};

}  // namespace zephyl
