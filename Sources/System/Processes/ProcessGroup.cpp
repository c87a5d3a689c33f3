#include "System/Processes/ProcessGroup.hpp"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

namespace zephyl {

namespace {

namespace fs = std::filesystem;

struct Membership {
  char state = 0;
  pid_t group = 0;
};

std::optional<Membership> membershipOf(const fs::path& process) {
  std::ifstream file(process / "stat");
  std::string text;
  std::getline(file, text);
  const auto nameEnd = text.rfind(')');  // a name may contain any characters
  if (nameEnd == std::string::npos) return std::nullopt;
  std::istringstream fields(text.substr(nameEnd + 1));
  Membership membership;
  pid_t parent = 0;
  fields >> membership.state >> parent >> membership.group;
  if (!fields) return std::nullopt;
  return membership;
}

pid_t numberOf(const fs::path& process) {
  const std::string name = process.filename();
  pid_t number = 0;
  const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), number);
  return error == std::errc() && end == name.data() + name.size() ? number : 0;
}

}  // namespace

bool hasOtherMembers(pid_t leader) {
  std::error_code error;
  for (fs::directory_iterator entry("/proc", error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const pid_t number = numberOf(entry->path());
    if (number == 0 || number == leader) continue;
    const auto membership = membershipOf(entry->path());
    if (membership && membership->group == leader && membership->state != 'Z') return true;
  }
  return false;
}

}  // namespace zephyl
