#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Desktop/Menu.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"

namespace zephyl {

/// How many servers should be connected, and how many of them are usable.
struct TailnetSummary {
  std::size_t tailnets = 0;
  std::size_t usable = 0;
};

/// Returns the state in words, such as "reachable, 3 folders, indexing 42/120, 1 of 2 servers
/// connected". Pure.
std::string describe(const AgentSnapshot& view, const TailnetSummary& tailnets);

/// Returns "1 folder", "3 folders". Pure.
std::string folderCount(std::size_t count);

/// Returns "1 request needs your approval", "2 requests need your approval". Pure.
std::string approvalsNeeded(std::size_t count);

/// The menu's line about the embeddings model.
struct ModelStatusLine {
  std::string text;
  DotColor color;
};

/// Returns nullopt if the model is ready or absent. Pure.
std::optional<ModelStatusLine> modelStatusLine(const ModelStatus& model);

/// Returns the progress of a download: a percentage if the size is known, otherwise the downloaded
/// bytes as a file size ("12.3 MB"). Pure.
std::string downloadProgress(const ModelStatus& model);

}  // namespace zephyl
