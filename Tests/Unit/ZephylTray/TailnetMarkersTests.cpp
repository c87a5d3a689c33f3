#include "ZephylTray/Tailnet/TailnetMarkers.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

using Announcements = std::vector<TailnetAnnouncement>;

TEST(TailnetMarkers, AreFoundAnywhereInALineAndTrimmed) {
  EXPECT_EQ(findAnnouncements("12:00 verified control plane via \t relay-1 \t"),
            (Announcements{{TailnetMarker::controlPlane, "relay-1"}}));
  EXPECT_EQ(findAnnouncements("target resolved to http://srv:5173"),
            (Announcements{{TailnetMarker::targetResolved, "http://srv:5173"}}));
  EXPECT_EQ(findAnnouncements("TARGET UNRESOLVED: http://lab"),
            (Announcements{{TailnetMarker::targetUnresolved, "http://lab"}}));
  EXPECT_EQ(findAnnouncements("ENROLMENT FAILED: key expired"),
            (Announcements{{TailnetMarker::enrolmentFailed, "key expired"}}));
}

TEST(TailnetMarkers, AreCaseSensitive) {
  EXPECT_TRUE(findAnnouncements("Server name: Lab").empty());
  EXPECT_TRUE(findAnnouncements("data tunnel on").empty());
  EXPECT_TRUE(findAnnouncements("").empty());
}

TEST(TailnetMarkers, AnAddressLosesItsScheme) {
  EXPECT_EQ(findAnnouncements("data tunnel on http://127.100.0.3:80").front().value,
            "127.100.0.3:80");
  EXPECT_EQ(findAnnouncements("data tunnel on https://127.100.0.3:80").front().value,
            "127.100.0.3:80");
  EXPECT_EQ(findAnnouncements("data tunnel on http://https://a:1").front().value, "a:1");
}

TEST(TailnetMarkers, OneLineMayHoldSeveral) {
  EXPECT_EQ(findAnnouncements("joined the tailnet, server name: Lab"),
            (Announcements{{TailnetMarker::serverName, "Lab"},
                           {TailnetMarker::joined, ", server name: Lab"}}));
}

TEST(TailnetMarkers, AValueLosesControlCharacters) {
  EXPECT_EQ(findAnnouncements("server name: L\x1b[31mab\x07\xc2\x9b").front().value, "L[31mab");
  EXPECT_EQ(findAnnouncements(std::string("server accent: #ff") + '\0' + "ff00").front().value,
            "#ffff00");
}

TEST(TailnetMarkers, ALogLineIsTaggedAndCutAfterThePhrase) {
  EXPECT_EQ(logLineOf("up", "tailscaled"), "[tailscaled] up");
  EXPECT_EQ(logLineOf("found Zephyl at 10.0.0.7 with key x", "tailnet"), "[tailnet] found Zephyl");
}

}  // namespace
}  // namespace zephyl
