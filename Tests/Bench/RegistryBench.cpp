#include <benchmark/benchmark.h>

#include "Support/ManualClock.hpp"
#include "Support/TrayWorld.hpp"
#include "System/Concurrency/ThreadPool.hpp"
#include "System/Data/JSON.hpp"
#include "ZephylTray/Registry/Servers.hpp"

namespace zephyl {
namespace {

std::vector<ServerEntry> servers(std::int64_t count) {
  std::vector<ServerEntry> entries;
  for (std::int64_t number = 1; number <= count; ++number) {
    const std::string text = std::to_string(number);
    entries.push_back({.id = "0c6a2f3e-8a55-4a1e-9a70-" + std::string(12 - text.size(), '0') + text,
                       .label = "Server " + text,
                       .serverName = "server-" + text,
                       .ordinal = number,
                       .address = "https://server-" + text + ".example:8443",
                       .tailnetFingerprint = "0123456789abcdef0123456789abcdef",
                       .agentId = "5b0f1d0e-6b0a-4a52-9d0b-2f0c3c5b7a10",
                       .ports = {1054 + number, 8799 + number, "127.100.0." + text, 8079 + number},
                       .enabled = true});
  }
  return entries;
}

/// An open registry. The benchmark's argument is the number of servers.
class Registry : public benchmark::Fixture {
 public:
  void SetUp(benchmark::State& state) override {
    world_.emplace();
    store_.emplace(pool_, clock_);
    Servers::replaceAll(servers(state.range(0)));
  }
  void TearDown(benchmark::State&) override {
    store_.reset();
    world_.reset();
  }

 private:
  std::optional<test::TrayWorld> world_;
  ThreadPool pool_;
  test::ManualClock clock_;
  std::optional<Servers::Store> store_;
};

/// Expected: within 100 ns, for any number of servers.
BENCHMARK_DEFINE_F(Registry, Read)(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Servers::all());
}
BENCHMARK_REGISTER_F(Registry, Read)->Arg(1)->Arg(250);

/// Saves unchanged bytes, without a flush to disk. Expected: within 10 ms for 250 servers.
BENCHMARK_DEFINE_F(Registry, SaveWithoutFlush)(benchmark::State& state) {
  const std::string id = Servers::all()[0].id;
  for (auto _ : state) Servers::update(id, [](auto&) {});
}
BENCHMARK_REGISTER_F(Registry, SaveWithoutFlush)->Arg(1)->Arg(250)->Unit(benchmark::kMicrosecond);

/// Saves changed bytes, including the flush to disk.
BENCHMARK_DEFINE_F(Registry, Save)(benchmark::State& state) {
  const std::string id = Servers::all()[0].id;
  for (auto _ : state) Servers::update(id, [](ServerEntry& entry) { *entry.ordinal += 1; });
}
BENCHMARK_REGISTER_F(Registry, Save)->Arg(1)->Arg(250)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace zephyl
