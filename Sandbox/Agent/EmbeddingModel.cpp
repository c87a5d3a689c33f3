#include "Agent/EmbeddingModel.hpp"

#include <algorithm>
#include <cstdint>

namespace zephyl::sandbox {
namespace {

constexpr std::int64_t modelBytes = 130'000'000;
constexpr double secondsToCheck = 0.3;

}  // namespace

EmbeddingModel::EmbeddingModel(Behavior behavior) : behavior_(behavior) {
  status_.totalBytes = modelBytes;
  status_.phase = ModelPhase::checking;
  if (behavior_.present && !behavior_.fails) {
    status_.phase = ModelPhase::ready;
    status_.downloadedBytes = modelBytes;
  }
}

void EmbeddingModel::advance(double seconds) {
  if (status_.phase == ModelPhase::checking) {
    checked_ += seconds;
    if (checked_ >= secondsToCheck) status_.phase = ModelPhase::downloading;
  } else if (status_.phase == ModelPhase::downloading) {
    download(seconds);
  }
}

bool EmbeddingModel::isSettled() const {
  return isReady() || hasFailed();
}

void EmbeddingModel::download(double seconds) {
  const double end = behavior_.fails ? modelBytes / 3.0 : modelBytes;
  downloaded_ = std::min(downloaded_ + behavior_.bytesPerSecond * seconds, end);
  status_.downloadedBytes = static_cast<std::int64_t>(downloaded_);
  if (downloaded_ < end) return;
  status_.phase = behavior_.fails ? ModelPhase::failed : ModelPhase::ready;
  if (behavior_.fails) status_.error = "the download broke off: connection reset by peer";
}

}  // namespace zephyl::sandbox
