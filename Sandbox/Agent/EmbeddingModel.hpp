#pragma once

#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// A simulated embeddings model: it is checked, downloaded at a configurable speed, and then ready.
/// Nothing is really downloaded. Time passes only through `advance`.
class EmbeddingModel {
 public:
  struct Behavior {
    bool present = false;
    double bytesPerSecond = 0;
    /// The download fails after a third.
    bool fails = false;
  };

  explicit EmbeddingModel(Behavior behavior);

  void advance(double seconds);

  /// Returns whether it is ready or has failed, so that time has no further effect.
  [[nodiscard]] bool isSettled() const;
  [[nodiscard]] bool isReady() const { return status_.phase == ModelPhase::ready; }
  [[nodiscard]] bool hasFailed() const { return status_.phase == ModelPhase::failed; }
  [[nodiscard]] const ModelStatus& status() const { return status_; }

 private:
  void download(double seconds);

  Behavior behavior_;
  ModelStatus status_;
  double checked_ = 0;
  double downloaded_ = 0;
};

}  // namespace zephyl::sandbox
