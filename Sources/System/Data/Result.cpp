#include "System/Data/Result.hpp"

#include <cerrno>
#include <stdexcept>
#include <system_error>

namespace zephyl {

Error systemError(std::string_view what, int number) {
  Error error{what, ": ", std::generic_category().message(number)};
  error.isShortage = isShortage(number);
  return error;
}

bool isShortage(int number) {
  return number == EMFILE || number == ENFILE || number == ENOBUFS || number == ENOMEM;
}

void throw_exception_from_error(const Error& error, const boost::source_location&) {
  throw std::logic_error("value() of a failed result: " + error.message);
}

}  // namespace zephyl
