#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl::test {

/// A range of addresses.
struct Region {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
};

/// Returns the writable private memory of this process.
inline std::vector<Region> privateMemory() {
  std::vector<Region> regions;
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    Region region;
    const char* const end = line.data() + line.size();
    const auto begin = std::from_chars(line.data(), end, region.begin, 16);
    const auto rest = std::from_chars(begin.ptr + 1, end, region.end, 16);
    if (std::string_view(rest.ptr, end).starts_with(" rw-p")) regions.push_back(region);
  }
  return regions;
}

/// Reads memory into a buffer that is not searched itself.
class MemorySearch {
 public:
  MemorySearch() {
    EXPECT_NE(buffer_, MAP_FAILED);
    EXPECT_TRUE(memory_);
  }
  ~MemorySearch() { ::munmap(buffer_, size); }
  MemorySearch(const MemorySearch&) = delete;
  MemorySearch& operator=(const MemorySearch&) = delete;

  /// Counts occurrences of the text, which is passed inside out, in the memory of this process.
  std::size_t count(const std::string& disguised) {
    std::size_t found = 0;
    for (const Region& region : privateMemory()) {
      for (auto at = region.begin; at < region.end; at += size - disguised.size()) {
        found += countIn(at, std::min(region.end - at, size), disguised);
      }
    }
    return found;
  }

 private:
  static constexpr std::size_t size = 1UL << 20;

  std::size_t countIn(std::uintptr_t address, std::size_t length, const std::string& disguised) {
    auto* const bytes = static_cast<char*>(buffer_);
    const auto own = reinterpret_cast<std::uintptr_t>(buffer_);
    if (address < own + size && own < address + length) return 0;
    const auto got = ::pread(memory_.get(), bytes, length, static_cast<off_t>(address));
    if (got <= 0) return 0;
    for (char& byte : std::span(bytes, static_cast<std::size_t>(got)))
      byte = static_cast<char>(~byte);
    const std::string_view text(bytes, static_cast<std::size_t>(got));
    std::size_t found = 0;
    for (auto at = text.find(disguised); at != std::string_view::npos;
         at = text.find(disguised, at + 1)) {
      ++found;
    }
    return found;
  }

  void* const buffer_ =
      ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  const FileDescriptor memory_{::open("/proc/self/mem", O_RDONLY | O_CLOEXEC)};
};

}  // namespace zephyl::test
