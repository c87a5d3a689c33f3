#pragma once

#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// The embeddings model as the user sees it: checked, downloaded at a settable speed, then
/// ready. Nothing is downloaded; time passes only through `advance`.
class EmbeddingModel {
 public:
  struct Behavior {
    bool present = false;
    double bytesPerSecond = 0;
    /// The download breaks off after a third.
    bool fails = false;
  };

  explicit EmbeddingModel(Behavior behavior);

  void advance(double seconds);

  /// Returns whether it is ready or has failed, so time changes nothing any more.
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
