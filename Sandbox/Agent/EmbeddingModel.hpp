#pragma once

#include "Agent/Records.hpp"

namespace zephyl::sandbox {

/// The embeddings model as the user sees it: looked for, downloaded at a settable speed, then
/// ready. Nothing is downloaded; time passes only through `advance`.
class EmbeddingModel {
 public:
  struct Behaviour {
    bool present = false;
    double bytesPerSecond = 0;
    /// The download breaks off after a third.
    bool fails = false;
  };

  explicit EmbeddingModel(Behaviour behaviour);

  void advance(double seconds);

  /// Ready or failed: time changes nothing any more.
  bool settled() const;
  bool ready() const { return status_.phase == ModelPhase::ready; }
  bool failed() const { return status_.phase == ModelPhase::failed; }
  const ModelStatus& status() const { return status_; }

 private:
  void download(double seconds);

  Behaviour behaviour_;
  ModelStatus status_;
  double checked_ = 0;
  double downloaded_ = 0;
};

}  // namespace zephyl::sandbox
