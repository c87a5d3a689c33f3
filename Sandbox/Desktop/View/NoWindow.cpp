#include <cstdlib>

#include "Desktop/View/WindowProgram.hpp"

namespace zephyl::sandbox::desktop {

bool canShowWindow() {
  return false;
}

int runWindow(int, char**, std::optional<TrayAccess>) {
  return EXIT_FAILURE;
}

}  // namespace zephyl::sandbox::desktop
