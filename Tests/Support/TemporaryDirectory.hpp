#pragma once

#include <string>
#include <string_view>

namespace zephyl::test {

/// A private directory that is removed, with all that is in it, at the end of the test.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// The path of `name` in it.
  [[nodiscard]] std::string operator/(std::string_view name) const;
  /// Writes a file (directories above it are made) and returns its path.
  std::string write(std::string_view name, std::string_view contents,
                    bool executable = false) const;

 private:
  std::string path_;
};

/// Sets an environment variable for the length of a test, and puts back what was there.
class ScopedVariable {
 public:
  ScopedVariable(std::string name, const std::string& value);
  /// Unsets it instead.
  explicit ScopedVariable(std::string name);
  ~ScopedVariable();
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  void remember();

  std::string name_;
  std::string old_;
  bool wasSet_ = false;
};

}  // namespace zephyl::test
