#pragma once

#include <string>
#include <string_view>

namespace zephyl::test {

/// A private directory, which the destructor removes with its contents.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  [[nodiscard]] const std::string& path() const { return path_; }
  /// Returns the path of `name` in the directory.
  [[nodiscard]] std::string operator/(std::string_view name) const;
  /// Writes a file, creating its parent directories, and returns its path.
  std::string write(std::string_view name, std::string_view contents,
                    bool executable = false) const;

 private:
  std::string path_;
};

/// Sets an environment variable. The destructor restores the previous value.
class ScopedVariable {
 public:
  ScopedVariable(std::string name, const std::string& value);
  /// Unsets the variable.
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
