#include "Desktop/Freedesktop/Panel.hpp"

#include <fstream>

namespace zephyl {

Panel panelOf(std::string_view program) {
  if (program == "xapp-sn-watcher") return Panel::cinnamon;
  if (program == "lxqt-panel") return Panel::lxqt;
  if (program == "waybar") return Panel::waybar;
  return Panel::other;
}

std::string programOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace zephyl
