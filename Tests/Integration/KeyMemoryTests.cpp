#include <algorithm>
#include <charconv>
#include <cstdint>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "Integration/RealChildren.hpp"
#include "Support/Eventually.hpp"
#include "Support/TrayWorld.hpp"
#include "System/FileDescriptor.hpp"
#include "System/Secret.hpp"
#include "ZephylTray/InviteKey.hpp"
#include "ZephylTray/TailnetProcess.hpp"

namespace zephyl {
namespace {

struct Region {
  std::uintptr_t begin = 0;
  std::uintptr_t end = 0;
};

/// The memory of this process that it can write to and shares with nobody.
std::vector<Region> privateMemory() {
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

/// Reads memory into a place that is not searched itself.
class MemorySearch {
 public:
  MemorySearch() {
    EXPECT_NE(buffer_, MAP_FAILED);
    EXPECT_TRUE(memory_);
  }
  ~MemorySearch() { ::munmap(buffer_, size); }
  MemorySearch(const MemorySearch&) = delete;
  MemorySearch& operator=(const MemorySearch&) = delete;

  /// How often the text, given inside out, stands in the memory of this process.
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

class KeyMemory : public ::testing::Test {
 protected:
  KeyMemory() {
    world_.addProgram("packages/tailnet-client/tailscaled", "#!/bin/sh\nexec sleep 600\n");
    world_.addProgram("packages/tailnet-client/zephyl-tailnet",
                      "#!/bin/sh\n"
                      "[ -n \"$ZEPHYL_PREAUTH_KEY\" ] && echo was given a key\n"
                      "until [ -e " +
                          world_.directory() / "go" +
                          " ]; do sleep 0.01; done\n"
                          "echo joined the tailnet\n"
                          "exec sleep 600\n");
    const ServerEntry server{.id = "0123456789ab-4000-8000-000000000000",
                             .tailnetFingerprint = fingerprint,
                             .ports = {1055, 8800, "127.100.0.3", 8085},
                             .enabled = true};
    tailnet_ = std::make_shared<TailnetProcess>(runtime_.runtime(), server);
  }
  ~KeyMemory() override { tailnet_->stop(); }

  /// As the controller does with a pasted key.
  void redeem() {
    std::string pasted;
    pasted.reserve(200);
    pasted.append("inv_v2_").append(fingerprint).append("_");
    for (const char character : disguisedKey_) pasted.push_back(static_cast<char>(~character));
    auto parsed = InviteKey::parse(pasted);
    wipe(pasted);
    ASSERT_TRUE(parsed);
    tailnet_->startRedeeming(parsed->preauthKey);
    wipe(parsed->preauthKey);
  }

  void awaitLine(const std::string& line) {
    ASSERT_TRUE(test::eventually([&] {
      runtime_.settle();
      const auto log = tailnet_->recentLog();
      return std::ranges::find(log, line) != log.end();
    }));
  }

  static constexpr auto fingerprint = "0123456789abcdef0123456789abcdef";
  test::TrayWorld world_;
  test::RealChildren runtime_;
  std::shared_ptr<TailnetProcess> tailnet_;
  std::string disguisedKey_;
};

TEST_F(KeyMemory, HoldsOneCopyUntilTheJoinSucceedsAndNoneFromThenOn) {
  // Letters of an alphabet that no other text is made of, none of them known to the compiler.
  for (int i = 0; i < 40; ++i) {
    disguisedKey_.push_back(static_cast<char>(~('g' + (::getpid() + i * i) % 17)));
  }
  // The allocator overwrites the beginning of what is freed.
  const std::string rest = disguisedKey_.substr(16);
  MemorySearch search;
  ASSERT_EQ(search.count(rest), 0U);

  redeem();
  runtime_.advance(TailnetProcess::restartDelay);
  runtime_.advance(TailnetProcess::clientDelay);
  awaitLine("[tailnet] was given a key");
  EXPECT_EQ(search.count(rest), 1U);

  (void)world_.directory().write("go", "");
  awaitLine("[tailnet] joined the tailnet");
  EXPECT_EQ(search.count(rest), 0U);
}

}  // namespace
}  // namespace zephyl
