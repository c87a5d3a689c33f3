#include "Desktop/Model/AgentLine.hpp"

#include <algorithm>

#include "System/Data/Format.hpp"

namespace zephyl::sandbox::desktop {
namespace {

using Mood = AgentLine::Mood;

double fractionOf(std::int64_t part, std::int64_t whole) {
  if (whole <= 0) return 0;
  return std::clamp(static_cast<double>(part) / static_cast<double>(whole), 0.0, 1.0);
}

std::optional<AgentLine> modelLine(const ModelEntry& model) {
  if (model.phase == "failed") {
    return AgentLine{"The embeddings model could not be downloaded", Mood::alarming};
  }
  if (model.phase != "downloading") return std::nullopt;
  return AgentLine{"Downloading the embeddings model", Mood::busy,
                   fractionOf(model.downloadedBytes, model.totalBytes)};
}

/// Returns the total progress of all folders that are being indexed; nullopt if there are none.
std::optional<AgentLine> indexingLine(const std::vector<IndexEntry>& indexes) {
  std::int64_t embedded = 0;
  std::int64_t files = 0;
  bool underWay = false;
  for (const auto& index : indexes) {
    embedded += index.filesEmbedded;
    files += index.lexicalFiles;
    underWay = underWay || index.embedding || !index.ready;
  }
  if (!underWay) return std::nullopt;
  return AgentLine{formatText("Indexing, {} of {} files", embedded, files), Mood::busy,
                   fractionOf(embedded, files)};
}

AgentLine connectionLine(const std::string& state) {
  if (state == "enrolled" || state == "connected") return {"Agent connected"};
  if (state == "connecting") return {"Agent connecting…", Mood::busy};
  return {"Agent running, connected to no server", Mood::busy};
}

}  // namespace

AgentLine agentLine(const Diagnostics& diagnostics) {
  const auto& agent = diagnostics.agent;
  if (!agent.reachable) {
    return agent.running ? AgentLine{"Agent starting…", Mood::busy}
                         : AgentLine{"Agent not running", Mood::alarming};
  }
  if (auto line = indexingLine(diagnostics.indexing)) return *std::move(line);
  if (auto line = modelLine(diagnostics.model)) return *std::move(line);
  return connectionLine(agent.state.value_or(""));
}

}  // namespace zephyl::sandbox::desktop
