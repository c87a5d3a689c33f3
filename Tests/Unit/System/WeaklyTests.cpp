#include "System/Concurrency/Weakly.hpp"

#include <functional>
#include <string>

#include <gtest/gtest.h>

namespace zephyl {
namespace {

struct Owner : std::enable_shared_from_this<Owner> {
  std::function<void(const std::string&)> appender() {
    return weakly(this, [](Owner& self, const std::string& more) { self.text += more; });
  }
  std::string text;
};

TEST(Weakly, PassesOwnerAndArgumentsWhileTheOwnerLives) {
  const auto owner = std::make_shared<Owner>();
  const auto append = owner->appender();
  append("a");
  append("b");
  EXPECT_EQ(owner->text, "ab");
}

TEST(Weakly, DoesNothingAfterTheOwnersDestruction) {
  auto owner = std::make_shared<Owner>();
  bool ran = false;
  const auto append = owner->appender();
  const auto note = weakly(owner, [&](Owner&) { ran = true; });
  owner.reset();
  append("a");
  note();
  EXPECT_FALSE(ran);
}

TEST(Weakly, KeepsTheOwnerAliveOnlyDuringTheCall) {
  auto owner = std::make_shared<Owner>();
  const std::weak_ptr<Owner> witness = owner;
  bool aliveDuringCall = false;
  const auto letGo = weakly(owner, [&](Owner&) {
    owner.reset();
    aliveDuringCall = !witness.expired();
  });
  EXPECT_EQ(owner.use_count(), 1);
  letGo();
  EXPECT_TRUE(aliveDuringCall);
  EXPECT_TRUE(witness.expired());
}

TEST(Weakly, AcceptsMoveOnlyArguments) {
  const auto owner = std::make_shared<Owner>();
  int received = 0;
  const auto take = weakly(owner, [&](Owner&, std::unique_ptr<int> value) { received = *value; });
  take(std::make_unique<int>(7));
  EXPECT_EQ(received, 7);
}

}  // namespace
}  // namespace zephyl
