#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "Desktop/Menu.hpp"
#include "ZephylTray/Agent/AgentSnapshot.hpp"

namespace zephyl {

/// How many servers are to be connected, and how many can be used.
struct TailnetSummary {
  std::size_t tailnets = 0;
  std::size_t usable = 0;
};

/// The state in words, such as "reachable, 3 folders, indexing 42/120, 1 of 2 servers connected".
/// Pure.
std::string describe(const AgentSnapshot& view, const TailnetSummary& tailnets);

/// "1 folder", "3 folders". Pure.
std::string folderCount(std::size_t count);

/// "1 request needs your approval", "2 requests need your approval". Pure.
std::string approvalsNeeded(std::size_t count);

/// What there is to say about the embeddings model.
struct ModelStatusLine {
  std::string text;
  DotColor color;
};

/// None while the model is there, or none is wanted. Pure.
std::optional<ModelStatusLine> modelStatusLine(const ModelStatus& model);

/// How far a download is: whole percent while the size is known, else the bytes so far as a file
/// size ("12.3 MB"). Pure.
std::string downloadProgress(const ModelStatus& model);

}  // namespace zephyl
