#include "ZephylTray/Menu/StatusDescription.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

AgentSnapshot reachable(std::size_t folders) {
  return {.reachable = true,
          .status = AgentStatus{.state = AgentState::disconnected},
          .activity = Activity{},
          .roots = std::vector<SharedRoot>(folders)};
}

TEST(StatusDescription, DescribesWhetherTheAgentAnswers) {
  EXPECT_EQ(describe({}, {}), "agent not reachable");
  EXPECT_EQ(describe(reachable(0), {}), "reachable, 0 folders");
  EXPECT_EQ(describe(reachable(1), {}), "reachable, 1 folder");
}

TEST(StatusDescription, AddsUpTheProgressOfAllFolders) {
  auto view = reachable(3);
  view.activity->indexing = {
      {.root = "/a", .ready = true, .filesEmbedded = 20, .lexicalFiles = 20},
      {.root = "/b", .embedding = true, .filesEmbedded = 22, .lexicalFiles = 100}};
  EXPECT_EQ(describe(view, {}), "reachable, 3 folders, indexing 42/120");
  view.activity->indexing[1] = {
      .root = "/b", .ready = true, .filesEmbedded = 100, .lexicalFiles = 100};
  EXPECT_EQ(describe(view, {}), "reachable, 3 folders");
}

TEST(StatusDescription, DescribesModelAndApprovals) {
  auto view = reachable(1);
  view.activity->model = {ModelPhase::downloading, 420, 1000, std::nullopt};
  view.activity->pendingApprovals.resize(2);
  EXPECT_EQ(describe(view, {}),
            "reachable, 1 folder, downloading embeddings model 42%, 2 requests need your approval");
  view.activity->model->phase = ModelPhase::failed;
  view.activity->pendingApprovals.resize(1);
  EXPECT_EQ(
      describe(view, {}),
      "reachable, 1 folder, model download failed — lexical only, 1 request needs your approval");
}

TEST(StatusDescription, NamesTheConnectionStateWhenThereAreServers) {
  auto view = reachable(1);
  view.status = AgentStatus{.state = AgentState::enrolled,
                            .connections = {{{.serverId = "a", .state = AgentState::enrolled}}}};
  EXPECT_EQ(describe(view, {}), "reachable, 1 folder, agent enrolled");
}

TEST(StatusDescription, CountsTheServersThatAreConnected) {
  EXPECT_EQ(describe({}, {.tailnets = 2, .usable = 1}),
            "agent not reachable, 1 of 2 servers connected");
  EXPECT_EQ(describe(reachable(1), {.tailnets = 1, .usable = 1}),
            "reachable, 1 folder, 1 of 1 server connected");
}

TEST(StatusDescription, DownloadProgressNeverRoundsUp) {
  EXPECT_EQ(downloadProgress({ModelPhase::downloading, 999, 1000, {}}), "99%");
  EXPECT_EQ(downloadProgress({ModelPhase::downloading, 0, 1, {}}), "0%");
  const auto huge = INT64_MAX;
  EXPECT_EQ(downloadProgress({ModelPhase::downloading, huge - 1, huge, {}}), "99%");
}

TEST(StatusDescription, DownloadProgressIsASizeWhileTheTotalIsUnknown) {
  const auto soFar = [](std::int64_t bytes) {
    return downloadProgress({ModelPhase::downloading, bytes, 0, {}});
  };
  EXPECT_EQ(soFar(0), "Zero KB");
  EXPECT_EQ(soFar(1), "1 byte");
  EXPECT_EQ(soFar(999), "999 bytes");
  EXPECT_EQ(soFar(34'400), "34 KB");
  EXPECT_EQ(soFar(12'345'678), "12.3 MB");
  EXPECT_EQ(soFar(1'234'567'890), "1.23 GB");
  EXPECT_EQ(soFar(-5), "Zero KB");
}

TEST(StatusDescription, ASizeHasNoMeaninglessDecimals) {
  const auto soFar = [](std::int64_t bytes) {
    return downloadProgress({ModelPhase::downloading, bytes, 0, {}});
  };
  EXPECT_EQ(soFar(100'000), "100 KB");
  EXPECT_EQ(soFar(999'499), "999 KB");
  EXPECT_EQ(soFar(999'500), "1 MB");
  EXPECT_EQ(soFar(12'000'000), "12 MB");
  EXPECT_EQ(soFar(999'600'000), "999.6 MB");
  EXPECT_EQ(soFar(999'960'000), "1 GB");
  EXPECT_EQ(soFar(1'500'000'000), "1.5 GB");
  EXPECT_EQ(soFar(2'010'000'000), "2.01 GB");
}

}  // namespace
}  // namespace zephyl
