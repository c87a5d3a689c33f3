#include "System/Files/Shell.hpp"

#include "System/Files/Files.hpp"

namespace zephyl {

std::string loginShell() {
  return isExecutableFile("/bin/zsh") ? "/bin/zsh" : "/bin/sh";
}

}  // namespace zephyl
