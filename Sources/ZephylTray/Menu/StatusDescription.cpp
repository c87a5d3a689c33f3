#include "ZephylTray/Menu/StatusDescription.hpp"

#include <algorithm>
#include <array>

#include <boost/describe/enum_to_string.hpp>

#include "System/Data/Format.hpp"
#include "System/Data/Text.hpp"

namespace zephyl {

namespace {

/// Returns the progress of all folders that are not completely embedded.
std::optional<std::string> indexing(const Activity& activity) {
  std::int64_t embedded = 0;
  std::int64_t files = 0;
  bool inProgress = false;
  for (const auto& index : activity.indexing) {
    embedded += index.filesEmbedded;
    files += index.lexicalFiles;
    inProgress = inProgress || index.embedding || !index.ready;
  }
  if (!inProgress) return std::nullopt;
  return formatText("indexing {}/{}", embedded, files);
}

/// Returns the menu's line as a part of a sentence.
std::optional<std::string> model(const ModelStatus& status) {
  auto line = modelStatusLine(status);
  if (!line) return std::nullopt;
  constexpr std::string_view ellipsis = "…";
  const auto end = line->text.find(ellipsis);
  if (end != std::string::npos) line->text.erase(end, ellipsis.size());
  return lowerCased(line->text.substr(0, 1)) + line->text.substr(1);
}

std::optional<std::string> approvals(std::size_t count) {
  return count > 0 ? std::optional(approvalsNeeded(count)) : std::nullopt;
}

std::optional<std::string> servers(const TailnetSummary& summary) {
  if (summary.tailnets == 0) return std::nullopt;
  return formatText("{} of {} {} connected", summary.usable, summary.tailnets,
                    summary.tailnets == 1 ? "server" : "servers");
}

/// Returns the agent's state if it has any connection.
std::optional<std::string> enrolment(const AgentStatus& status) {
  if (status.connections.value_or(std::vector<AgentConnection>()).empty()) return std::nullopt;
  return std::string("agent ") + boost::describe::enum_to_string(status.state, "");
}

/// Returns a size without trailing zeros, with at most `decimals` decimals.
std::string rounded(double size, int decimals) {
  auto text = formatText("{:.{}f}", size, decimals);
  if (decimals == 0) return text;
  text.erase(text.find_last_not_of('0') + 1);
  if (text.ends_with('.')) text.pop_back();
  return text;
}

/// Returns a size in decimal units, as file managers do. Larger units have more decimals.
std::string fileSize(std::int64_t bytes) {
  struct Unit {
    const char* name;
    int decimals;
    double end;  ///< from this value on, rounding gives 1000
  };
  static constexpr std::array<Unit, 5> units{{{"KB", 0, 999.5},
                                              {"MB", 1, 999.95},
                                              {"GB", 2, 999.995},
                                              {"TB", 2, 999.995},
                                              {"PB", 2, 999.995}}};
  if (bytes <= 0) return "Zero KB";
  if (bytes == 1) return "1 byte";
  if (bytes < 1000) return formatText("{} bytes", bytes);
  double size = static_cast<double>(bytes) / 1000;
  const auto* unit = units.begin();
  while (size >= unit->end && unit + 1 != units.end()) {
    size /= 1000;
    ++unit;
  }
  return rounded(size, unit->decimals) + " " + unit->name;
}

}  // namespace

std::string describe(const AgentSnapshot& view, const TailnetSummary& tailnets) {
  std::vector<std::string> parts;
  const auto add = [&parts](std::optional<std::string> part) {
    if (part) parts.push_back(std::move(*part));
  };
  add(view.reachable ? "reachable, " + folderCount(view.roots.size()) : "agent not reachable");
  if (view.activity) {
    add(indexing(*view.activity));
    if (view.activity->model) add(model(*view.activity->model));
    add(approvals(view.activity->pendingApprovals.size()));
  }
  if (view.status) add(enrolment(*view.status));
  add(servers(tailnets));
  return joined(parts, ", ");
}

std::string folderCount(std::size_t count) {
  return count == 1 ? "1 folder" : formatText("{} folders", count);
}

std::string approvalsNeeded(std::size_t count) {
  return count == 1 ? "1 request needs your approval"
                    : formatText("{} requests need your approval", count);
}

std::optional<ModelStatusLine> modelStatusLine(const ModelStatus& model) {
  switch (model.phase) {
    case ModelPhase::checking:
      return {{"Preparing embeddings model…", DotColor::orange}};
    case ModelPhase::downloading:
      return {{"Downloading embeddings model… " + downloadProgress(model), DotColor::orange}};
    case ModelPhase::failed:
      return {{"Model download failed — lexical only", DotColor::red}};
    case ModelPhase::absent:
    case ModelPhase::ready:
      return std::nullopt;
  }
  return std::nullopt;
}

std::string downloadProgress(const ModelStatus& model) {
  if (model.totalBytes >= 1) {
    const auto wide = static_cast<__int128>(model.downloadedBytes) * 100 / model.totalBytes;
    return formatText("{}%", static_cast<std::int64_t>(wide));
  }
  return fileSize(model.downloadedBytes);
}

}  // namespace zephyl
