#include "Desktop/Freedesktop/Backlog.hpp"

#include <utility>

#include "System/Files/Log.hpp"

namespace zephyl {

bool Backlog::isFull() {
  if (waiting_ < limit) return false;
  if (!reported_.exchange(true)) {
    log("{} requests of the desktop are waiting; further ones are dropped until they are handled",
        limit);
  }
  return true;
}

void Backlog::offer(Task task) {
  if (!isFull()) post(std::move(task));
}

void Backlog::post(Task task) {
  ++waiting_;
  mainLoop_.async([this, task = std::move(task)] {
    if (--waiting_ == 0) reported_ = false;
    task();
  });
}

}  // namespace zephyl
