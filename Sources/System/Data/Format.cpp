#include "System/Data/Format.hpp"

namespace zephyl {

std::string formatArguments(fmt::string_view format, fmt::format_args arguments) {
  return fmt::vformat(format, arguments);
}

}  // namespace zephyl
