#include "Desktop/Freedesktop/Bus/BusText.hpp"

#include <array>

#include <gtest/gtest.h>

#include <unistd.h>

#include "Desktop/Freedesktop/FolderPortal.hpp"

namespace zephyl {
namespace {

TEST(BusText, MarkupIsEscapedAndLinesStay) {
  EXPECT_EQ(escapedMarkup("<b>a & b</b>\nc"), "&lt;b&gt;a &amp; b&lt;/b&gt;\nc");
}

TEST(BusText, TextThatMayBeMarkupHasNone) {
  EXPECT_EQ(withoutMarkup("a & <b>"), "a + ‹b›");
}

TEST(BusText, InvalidTextIsMadeVisible) {
  EXPECT_EQ(escapedMarkup("a\x1b[1m\xff\n\nb"), "a␛[1m\xEF\xBF\xBD\n\nb");
  EXPECT_EQ(withoutMarkup("a\x1b[1m\xff"), "a␛[1m\xEF\xBF\xBD");
}

TEST(BusText, AnApplicationExportsItselfUnderItsIdentifier) {
  EXPECT_EQ(applicationPath("com.zephyl.desktop"), "/com/zephyl/desktop");
  EXPECT_EQ(applicationPath("org.my-app.X"), "/org/my_app/X");
}

TEST(BusText, APortalAnswersUnderTheNameOfTheConnection) {
  EXPECT_EQ(portalRequestPath(":1.42", "zephyl_tray_1"),
            "/org/freedesktop/portal/desktop/request/1_42/zephyl_tray_1");
}

TEST(FileURI, IsDecoded) {
  EXPECT_EQ(pathOfFileURI("file:///home/ana/my%20folder%C3%A9"), "/home/ana/my folder\xC3\xA9");
  EXPECT_EQ(pathOfFileURI("file://localhost/srv"), "/srv");
  std::array<char, 256> host{};
  ASSERT_EQ(::gethostname(host.data(), host.size() - 1), 0);
  EXPECT_EQ(pathOfFileURI(std::string("file://") + host.data() + "/srv"), "/srv");
  EXPECT_EQ(pathOfFileURI("file:///"), "/");
}

TEST(FileURI, HasNoPathIfItIsAnotherURI) {
  for (const char* other :
       {"http://example.org/", "/home", "file:", "file://", "file://other-machine.example/srv",
        "file:///a%2", "file:///a%zz", "file:///a%", "file:///a%00b", "file:///a%-1"}) {
    EXPECT_EQ(pathOfFileURI(other), std::nullopt) << other;
  }
}

}  // namespace
}  // namespace zephyl
