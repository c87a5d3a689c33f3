// The implementation of fmt is compiled here, so that the program needs no shared library for it.
#define FMT_HEADER_ONLY
#include "System/Data/Format.hpp"

#include <fmt/format.h>

namespace zephyl {

std::string formatArguments(fmt::string_view format, fmt::format_args arguments) {
  return fmt::vformat(format, arguments);
}

}  // namespace zephyl
