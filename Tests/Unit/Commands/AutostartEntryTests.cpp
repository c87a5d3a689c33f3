#include "ZephylTray/Commands/Client/AutostartEntry.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

constexpr auto installed =
    "[Desktop Entry]\n"
    "Type=Application\n"
    "Name=Zephyl\n"
    "Exec=zephyl-tray --desktop\n"
    "TryExec=zephyl-tray\n"
    "Hidden=true\n"
    "DBusActivatable=true\n"
    "Actions=quit;\n"
    "\n"
    "[Desktop Action quit]\n"
    "Exec=zephyl-tray quit\n";

TEST(AutostartEntry, StartsTheProgramByItsPath) {
  EXPECT_EQ(autostartEntry(installed, "/opt/zephyl/bin/zephyl-tray"),
            "[Desktop Entry]\n"
            "Type=Application\n"
            "Name=Zephyl\n"
            "Exec=\"/opt/zephyl/bin/zephyl-tray\" --desktop\n");
}

TEST(AutostartEntry, IsShortWithoutAnInstalledEntry) {
  const auto entry = autostartEntry("", "/usr/bin/zephyl-tray");
  EXPECT_TRUE(entry.starts_with("[Desktop Entry]\nType=Application\n"));
  EXPECT_NE(entry.find("\nExec=\"/usr/bin/zephyl-tray\"\n"), std::string::npos);
}

TEST(AutostartEntry, QuotesSpecialCharacters) {
  const auto entry = autostartEntry("", R"(/a "b"/$c/100%/zephyl-tray)");
  EXPECT_NE(entry.find(R"(Exec="/a \\"b\\"/\\$c/100%%/zephyl-tray")"), std::string::npos) << entry;
}

TEST(AutostartEntry, IsOffWhileItIsHidden) {
  EXPECT_FALSE(startsProgram(installed));
  EXPECT_FALSE(startsProgram(""));
  EXPECT_TRUE(startsProgram(autostartEntry(installed, "/usr/bin/zephyl-tray")));
}

}  // namespace
}  // namespace zephyl
