#include "Helpers/Updates/Program/Appcast.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

std::string feedOf(const std::string& items) {
  return "<?xml version=\"1.0\"?><rss xmlns:u=\"urn:x\"><channel><title>t</title>" + items +
         "</channel></rss>";
}

/// Returns the items of a feed, or an error.
Result<std::vector<AppcastItem>> itemsOf(const std::string& feed) {
  const auto appcast = parseAppcast(feed);
  if (!appcast) return appcast.error();
  return appcast->items;
}

TEST(Appcast, ReadsTheDateOfTheSignature) {
  using namespace std::chrono;
  const auto dateOf = [](const std::string& element) {
    return parseAppcast(feedOf(element))->date;
  };
  EXPECT_EQ(dateOf("<lastBuildDate>Sat, 21 Nov 2026 12:00:00 +0200</lastBuildDate>"),
            sys_seconds(sys_days(2026y / November / 21) + 10h));
  EXPECT_EQ(dateOf(""), std::nullopt);
  EXPECT_EQ(dateOf("<lastBuildDate>today</lastBuildDate>"), std::nullopt);
  EXPECT_EQ(dateOf("<item><lastBuildDate>Sat, 21 Nov 2026 12:00:00 +0200</lastBuildDate></item>"),
            std::nullopt);
}

TEST(Appcast, ReadsAllFieldsOfAnItem) {
  const auto items = itemsOf(feedOf(R"(<item>
    <title>Version 2</title>
    <pubDate>Sat, 21 Nov 2026 12:00:00 +0200</pubDate>
    <u:version> 2100 </u:version><u:shortVersionString>2.1</u:shortVersionString>
    <u:minimumSystemVersion>2.36</u:minimumSystemVersion><u:channel>beta</u:channel>
    <u:phasedRolloutInterval>86400</u:phasedRolloutInterval><u:criticalUpdate/>
    <description><![CDATA[ Calmer & <faster>. ]]></description>
    <enclosure url="https://a.example/x?a=1&amp;b=2" type="application/gzip" length="12"
      u:architecture="x86_64" u:sha256="AB" u:edSignature="c2ln"/>
    <enclosure url="https://a.example/y" u:architecture="aarch64"/></item>)"));
  ASSERT_TRUE(items);
  ASSERT_EQ(items->size(), 1U);
  const AppcastItem& item = items->front();
  EXPECT_EQ(item.version, "2100");
  EXPECT_EQ(item.shortVersionString, "2.1");
  EXPECT_EQ(item.minimumSystemVersion, "2.36");
  EXPECT_EQ(item.channel, "beta");
  EXPECT_EQ(item.phasedRolloutInterval, std::chrono::hours(24));
  EXPECT_TRUE(item.critical);
  EXPECT_EQ(item.description, "Calmer & <faster>.");
  using namespace std::chrono;
  EXPECT_EQ(item.published, sys_seconds(sys_days(2026y / November / 21) + 10h));
  ASSERT_EQ(item.enclosures.size(), 2U);
  EXPECT_EQ(item.enclosures[0], (AppcastItem::Enclosure{.url = "https://a.example/x?a=1&b=2",
                                                        .type = "application/gzip",
                                                        .architecture = "x86_64",
                                                        .sha256 = "ab",
                                                        .signature = "c2ln",
                                                        .length = 12}));
  EXPECT_EQ(item.enclosures[1].architecture, "aarch64");
}

TEST(Appcast, UsesVersionsOfTheEnclosureIfTheItemHasNone) {
  const auto items = itemsOf(feedOf(
      R"(<item><enclosure url="u" version="2" shortVersionString="2.0"/></item>
         <item><version>3</version><enclosure url="u" version="2"/></item>)"));
  ASSERT_TRUE(items);
  EXPECT_EQ(items->at(0).version, "2");
  EXPECT_EQ(items->at(0).shortVersionString, "2.0");
  EXPECT_EQ(items->at(1).version, "3");
}

TEST(Appcast, OmitsInvalidValues) {
  const auto items = itemsOf(feedOf(
      R"(<item><pubDate>yesterday</pubDate><phasedRolloutInterval>-1</phasedRolloutInterval>
         <enclosure length="-5"/><enclosure length="99999999999999999999"/></item>)"));
  ASSERT_TRUE(items);
  EXPECT_EQ(items->front().published, std::nullopt);
  EXPECT_EQ(items->front().phasedRolloutInterval, std::nullopt);
  EXPECT_EQ(items->front().enclosures[0].length, 0);
  EXPECT_EQ(items->front().enclosures[1].length, 0);
}

TEST(Appcast, ExpandsNoCustomEntities) {
  const auto items = itemsOf("<!DOCTYPE rss [<!ENTITY a SYSTEM \"file:///etc/passwd\">]>" +
                             feedOf("<item><description>&a;</description></item>"));
  ASSERT_TRUE(items);
  EXPECT_EQ(items->front().description, "&a;");
}

TEST(Appcast, CutsLongReleaseNotesBetweenCharacters) {
  std::string notes;
  for (int i = 0; i < 3000; ++i) notes += "é";
  const auto items = itemsOf(feedOf("<item><description>x" + notes + "</description></item>"));
  ASSERT_TRUE(items);
  const std::string& shown = items->front().description;
  EXPECT_EQ(shown.size(), 3999U + 3U);
  EXPECT_TRUE(shown.ends_with("é…"));
}

TEST(Appcast, RefusesOtherDocuments) {
  for (const auto* bad : {"", "nonsense", "<rss><channel>", "<rss/>", "<html><body/></html>"}) {
    EXPECT_TRUE(parseAppcast(bad).has_error()) << bad;
  }
  // Deep nesting does not overflow the stack.
  std::string deep;
  for (int i = 0; i < 200'000; ++i) deep += "<a>";
  EXPECT_TRUE(parseAppcast(deep).has_error());
}

}  // namespace
}  // namespace zephyl
