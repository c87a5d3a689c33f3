#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zephyl {

/// What the program was shipped with. The program is bundled when its executable is
/// <prefix>/bin/zephyl-tray and <prefix>/share/zephyl-tray, its resource directory, exists. The
/// resource directory may hold `Info.json`, the information dictionary.
///
/// The path of the executable is determined once, at the start: after an update the kernel's own
/// link would name a file that was moved away. Everything else follows the files as they are now.
/// Callable from any thread.
class Bundle {
 public:
  /// The running program's bundle.
  static const Bundle& main();
  /// Sets what `main()` returns; called once, first thing in `main`. Without it `main()` has no
  /// executable and no resources.
  static void setMain(Bundle bundle);
  /// The path of the running executable, links resolved, as the kernel knows it now; none when it
  /// cannot be named.
  static std::optional<std::string> runningExecutable();

  explicit Bundle(std::optional<std::string> executable) : executable_(std::move(executable)) {}

  [[nodiscard]] const std::optional<std::string>& executable() const { return executable_; }
  [[nodiscard]] std::optional<std::string> resourceDirectory() const;
  /// A string of the information dictionary, e.g. "CFBundleIdentifier"; none when it is absent,
  /// empty or not a string.
  [[nodiscard]] std::optional<std::string> information(const std::string& key) const;
  /// What the information dictionary says in one string or in an array of strings, e.g.
  /// "SUPublicEDKey"; empty ones do not count, and an array that holds anything else says nothing.
  [[nodiscard]] std::vector<std::string> informationList(const std::string& key) const;
  [[nodiscard]] std::optional<std::string> identifier() const {
    return information("CFBundleIdentifier");
  }

 private:
  std::optional<std::string> executable_;
};

}  // namespace zephyl
