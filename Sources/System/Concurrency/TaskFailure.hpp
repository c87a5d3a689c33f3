#pragma once

#include <exception>
#include <functional>
#include <string_view>
#include <utility>

namespace zephyl::taskFailure {

/// Sets the handler, or null, that is called on a thread after one of its tasks has thrown. `main`
/// sets it before it starts threads, to shut the tray down in order, and resets it after they have
/// ended. The handler must not throw.
void setHandler(std::function<void()> handler);

/// Logs that a task of `thread` has thrown `failure`, and calls the handler.
void report(std::string_view thread, const std::exception_ptr& failure) noexcept;

/// Runs `work` and reports an exception that it throws. Returns whether it threw none. Every thread
/// of the program runs its tasks through this function, so that no exception ends the process
/// without a log line and an orderly shutdown.
template <typename Work>
bool guard(std::string_view thread, Work&& work) noexcept {
  try {
    std::forward<Work>(work)();
    return true;
  } catch (...) {
    report(thread, std::current_exception());
    return false;
  }
}

}  // namespace zephyl::taskFailure
