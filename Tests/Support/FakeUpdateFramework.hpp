#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "Helpers/Updates/Client/UpdateFramework.hpp"

namespace zephyl::test {

/// An update framework that the test controls. Calls its delegate on the test's thread. Must
/// outlive its controller.
class FakeUpdateFramework {
 public:
  [[nodiscard]] UpdaterFactory factory() {
    return [this](std::weak_ptr<UpdateDelegate> delegate) -> std::unique_ptr<UpdaterController> {
      ++starts;
      if (fails) return nullptr;
      delegate_ = std::move(delegate);
      return std::make_unique<Controller>(*this);
    };
  }

  /// Returns the delegate; null if it was destroyed or never set.
  [[nodiscard]] std::shared_ptr<UpdateDelegate> delegate() const { return delegate_.lock(); }

  void setCanCheck(bool can) {
    canCheck = can;
    if (observer_) observer_(can);
  }
  [[nodiscard]] bool isObserved() const { return observer_ != nullptr; }

  bool fails = false;  ///< the next start fails
  bool canCheck = false;
  bool running = false;
  bool endedWhileObserved = false;
  int starts = 0;
  int checks = 0;

 private:
  class Observation final : public UpdaterController::Observation {
   public:
    explicit Observation(FakeUpdateFramework& framework) : framework_(framework) {}
    ~Observation() override { framework_.observer_ = nullptr; }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

   private:
    FakeUpdateFramework& framework_;
  };

  class Controller final : public UpdaterController {
   public:
    explicit Controller(FakeUpdateFramework& framework) : framework_(framework) {
      framework_.running = true;
    }
    ~Controller() override {
      framework_.running = false;
      framework_.endedWhileObserved = framework_.isObserved();
    }
    Controller(const Controller&) = delete;
    Controller& operator=(const Controller&) = delete;

    [[nodiscard]] bool canCheckForUpdates() const override { return framework_.canCheck; }
    [[nodiscard]] std::unique_ptr<UpdaterController::Observation> observeCanCheckForUpdates(
        std::function<void(bool)> changed) override {
      framework_.observer_ = std::move(changed);
      return std::make_unique<FakeUpdateFramework::Observation>(framework_);
    }
    void checkForUpdates() override { ++framework_.checks; }

   private:
    FakeUpdateFramework& framework_;
  };

  std::weak_ptr<UpdateDelegate> delegate_;
  std::function<void(bool)> observer_;
};

}  // namespace zephyl::test
