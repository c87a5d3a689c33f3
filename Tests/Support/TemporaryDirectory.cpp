#include "Support/TemporaryDirectory.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace zephyl::test {

namespace fs = std::filesystem;

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = fs::temp_directory_path() / "zephyl-test-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = fs::canonical(pattern);
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

std::string TemporaryDirectory::operator/(std::string_view name) const {
  return path_ + "/" + std::string(name);
}

std::string TemporaryDirectory::write(std::string_view name, std::string_view contents,
                                      bool executable) const {
  std::string path = *this / name;
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << contents;
  if (executable) fs::permissions(path, fs::perms::owner_exec, fs::perm_options::add);
  return path;
}

ScopedVariable::ScopedVariable(std::string name, const std::string& value)
    : name_(std::move(name)) {
  remember();
  ::setenv(name_.c_str(), value.c_str(), 1);
}

ScopedVariable::ScopedVariable(std::string name) : name_(std::move(name)) {
  remember();
  ::unsetenv(name_.c_str());
}

ScopedVariable::~ScopedVariable() {
  if (wasSet_) {
    ::setenv(name_.c_str(), old_.c_str(), 1);
  } else {
    ::unsetenv(name_.c_str());
  }
}

void ScopedVariable::remember() {
  if (const char* value = std::getenv(name_.c_str())) {
    old_ = value;
    wasSet_ = true;
  }
}

}  // namespace zephyl::test
