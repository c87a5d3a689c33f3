#include "System/Shell.hpp"

#include "System/Files.hpp"

namespace zephyl {

std::string loginShell() {
  return isExecutableFile("/bin/zsh") ? "/bin/zsh" : "/bin/sh";
}

}  // namespace zephyl
