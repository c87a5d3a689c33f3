#include "Desktop/Model/AgentLine.hpp"

#include <gtest/gtest.h>

namespace zephyl::sandbox::desktop {
namespace {

using Mood = AgentLine::Mood;

Diagnostics reachable(const std::string& state) {
  return {.agent = {.reachable = true, .running = true, .state = state}};
}

TEST(AgentLine, ShowsWhetherTheAgentRuns) {
  EXPECT_EQ(agentLine({}), (AgentLine{"Agent not running", Mood::alarming}));
  EXPECT_EQ(agentLine({.agent = {.running = true}}), (AgentLine{"Agent starting…", Mood::busy}));
  EXPECT_EQ(agentLine(reachable("enrolled")), (AgentLine{"Agent connected"}));
  EXPECT_EQ(agentLine(reachable("connected")), (AgentLine{"Agent connected"}));
  EXPECT_EQ(agentLine(reachable("connecting")).mood, Mood::busy);
  EXPECT_EQ(agentLine(reachable("disconnected")).mood, Mood::busy);
}

TEST(AgentLine, ShowsIndexingOfAllFoldersAsAFraction) {
  auto diagnostics = reachable("enrolled");
  diagnostics.indexing = {{.ready = true, .filesEmbedded = 10, .lexicalFiles = 10},
                          {.embedding = true, .filesEmbedded = 20, .lexicalFiles = 30}};
  EXPECT_EQ(agentLine(diagnostics), (AgentLine{"Indexing, 30 of 40 files", Mood::busy, 0.75}));
  diagnostics.indexing[1] = {.ready = true, .filesEmbedded = 30, .lexicalFiles = 30};
  EXPECT_EQ(agentLine(diagnostics).progress, std::nullopt);
}

TEST(AgentLine, KeepsAFractionWithinItsBounds) {
  auto diagnostics = reachable("enrolled");
  diagnostics.indexing = {{.embedding = true, .filesEmbedded = 0, .lexicalFiles = 0}};
  EXPECT_EQ(agentLine(diagnostics).progress, 0);
  diagnostics.indexing = {{.embedding = true, .filesEmbedded = 9, .lexicalFiles = 3}};
  EXPECT_EQ(agentLine(diagnostics).progress, 1);
}

TEST(AgentLine, ShowsTheModelsDownloadAndItsFailure) {
  auto diagnostics = reachable("enrolled");
  diagnostics.model = {.phase = "downloading", .downloadedBytes = 1, .totalBytes = 4};
  EXPECT_EQ(agentLine(diagnostics).progress, 0.25);
  diagnostics.model = {.phase = "failed"};
  EXPECT_EQ(agentLine(diagnostics).mood, Mood::alarming);
}

}  // namespace
}  // namespace zephyl::sandbox::desktop
