#include "System/Concurrency/TaskFailure.hpp"

#include <mutex>
#include <string>

#include "System/Files/Log.hpp"

namespace zephyl::taskFailure {

namespace {

std::mutex mutex;
std::function<void()> handler;  // guarded by mutex

std::string reasonOf(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const std::exception& error) {
    return error.what();
  } catch (...) {
    return "unknown exception";
  }
}

}  // namespace

void setHandler(std::function<void()> newHandler) {
  const std::scoped_lock lock(mutex);
  handler = std::move(newHandler);
}

void report(std::string_view thread, const std::exception_ptr& failure) noexcept {
  try {
    log("a task of the thread \"{}\" failed: {}", thread, reasonOf(failure));
  } catch (...) {  // no memory for a log line
  }
  const std::scoped_lock lock(mutex);
  if (handler) handler();
}

}  // namespace zephyl::taskFailure
