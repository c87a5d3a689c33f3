#include "Desktop/Freedesktop/Menu/PublishedMenu.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

class PublishedMenuTest : public ::testing::Test {
 protected:
  static std::shared_ptr<const Menu> menu(const char* title, std::size_t rows = 1) {
    Menu entries;
    for (std::size_t i = 0; i < rows; ++i) {
      entries.push_back({.key = std::to_string(i), .title = title});
    }
    return std::make_shared<const Menu>(std::move(entries));
  }
  std::string title() const { return published_.layout().root().children.front().entry->title; }

  PublishedMenu published_;
};

TEST_F(PublishedMenuTest, TheNewestMenuIsPublished) {
  published_.set(menu("first"));
  published_.set(menu("second"));
  EXPECT_TRUE(published_.isOutdated());
  EXPECT_TRUE(published_.update());
  EXPECT_FALSE(published_.isOutdated());
  EXPECT_EQ(title(), "second");
  EXPECT_FALSE(published_.update()) << "there is nothing new";
}

TEST_F(PublishedMenuTest, TheRevisionIncreasesOnlyIfRowsChange) {
  published_.set(menu("first"));
  published_.update();
  const auto before = published_.revision();
  published_.set(menu("second"));
  EXPECT_FALSE(published_.update());
  EXPECT_EQ(published_.revision(), before);
  published_.set(menu("second", 2));
  EXPECT_TRUE(published_.update());
  EXPECT_EQ(published_.revision(), before + 1);
}

TEST_F(PublishedMenuTest, AReferenceKeepsItsMenuUnchanged) {
  published_.set(menu("shown"));
  published_.update();
  published_.setHeld(true);
  published_.set(menu("newer"));
  EXPECT_FALSE(published_.update());
  EXPECT_EQ(title(), "shown");
  published_.setHeld(false);
  published_.update();
  EXPECT_EQ(title(), "newer");
  EXPECT_FALSE(published_.changes().empty()) << "until the hosts are notified";
}

}  // namespace
}  // namespace zephyl
