#include "ZephylTray/Actions/LogFile.hpp"

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Directories.hpp"
#include "System/Files/Files.hpp"

namespace zephyl {

std::optional<std::string> writeLogFile(const std::string& text,
                                        std::chrono::system_clock::time_point now) {
  auto path =
      joinPath(directories::temporary(), formatText("zephyl-agent-log-{}.log", fileTimestamp(now)));
  if (!replaceFile(path, text, Durability::unflushed)) return std::nullopt;
  return path;
}

}  // namespace zephyl
