#include "System/Data/Result.hpp"

#include <stdexcept>
#include <system_error>

namespace zephyl {

Error systemError(std::string_view what, int number) {
  return {what, ": ", std::generic_category().message(number)};
}

void throw_exception_from_error(const Error& error, const boost::source_location&) {
  throw std::logic_error("value() of a failed result: " + error.message);
}

}  // namespace zephyl
