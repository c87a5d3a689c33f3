#pragma once

#include <sys/resource.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// While it lives, this process cannot open further descriptors.
class NoMoreDescriptors {
 public:
  NoMoreDescriptors() {
    ::getrlimit(RLIMIT_NOFILE, &before_);
    const FileDescriptor firstFree(::dup(STDERR_FILENO));
    // Not 0, because poll would then fail and log lines would be lost.
    const rlimit current{static_cast<rlim_t>(firstFree.get()), before_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &current);
  }
  ~NoMoreDescriptors() { ::setrlimit(RLIMIT_NOFILE, &before_); }
  NoMoreDescriptors(const NoMoreDescriptors&) = delete;
  NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

 private:
  rlimit before_{};
};

}  // namespace zephyl::test
