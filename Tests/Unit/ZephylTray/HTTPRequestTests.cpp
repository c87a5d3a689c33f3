#include "ZephylTray/Control/HTTPRequest.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(HTTPRequest, ParsesMethodPathHeadersAndBody) {
  const auto request = HTTPRequest::parse(
      "POST /invite HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: 4\r\n\r\nbody");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->method, "POST");
  EXPECT_EQ(request->path, "/invite");
  EXPECT_EQ(request->header("host"), "127.0.0.1");
  EXPECT_EQ(request->header("Host"), std::nullopt);
  EXPECT_EQ(request->body, "body");
}

TEST(HTTPRequest, IsIncompleteBeforeTheBlankLine) {
  const std::string whole = "GET /status HTTP/1.1\r\nA: b\r\n\r\n";
  for (std::size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(HTTPRequest::parse(whole.substr(0, size))) << size;
  }
  EXPECT_TRUE(HTTPRequest::parse(whole));
}

TEST(HTTPRequest, IsIncompleteBeforeTheEndOfTheBody) {
  const std::string head = "POST / HTTP/1.1\r\nContent-Length: 3\r\n\r\n";
  EXPECT_FALSE(HTTPRequest::parse(head));
  EXPECT_FALSE(HTTPRequest::parse(head + "ab"));
  EXPECT_EQ(HTTPRequest::parse(head + "abc")->body, "abc");
}

TEST(HTTPRequest, DropsBytesAfterTheBody) {
  EXPECT_EQ(HTTPRequest::parse("A /b\r\nContent-Length: 2\r\n\r\nabcd")->body, "ab");
  EXPECT_EQ(HTTPRequest::parse("A /b\r\n\r\nGET /status HTTP/1.1\r\n\r\n")->body, "");
}

TEST(HTTPRequest, NeedsAMethodAndATarget) {
  EXPECT_FALSE(HTTPRequest::parse("\r\n\r\n"));
  EXPECT_FALSE(HTTPRequest::parse("GET\r\n\r\n"));
  EXPECT_FALSE(HTTPRequest::parse("   GET  \r\nA: b\r\n\r\n"));
  EXPECT_EQ(HTTPRequest::parse("  get   /status\r\n\r\n")->path, "/status");
}

TEST(HTTPRequest, ConvertsTheMethodToUpperCaseAndDropsTheQuery) {
  const auto request = HTTPRequest::parse("get /status?a=b?c HTTP/1.1\r\n\r\n");
  EXPECT_EQ(request->method, "GET");
  EXPECT_EQ(request->path, "/status");
}

TEST(HTTPRequest, IsInvalidIfTheHeadIsNotUTF8) {
  EXPECT_FALSE(HTTPRequest::parse("GET /\xff HTTP/1.1\r\n\r\n"));
  EXPECT_FALSE(HTTPRequest::parse("GET / HTTP/1.1\r\nA: \xc3(\r\n\r\n"));
  EXPECT_TRUE(HTTPRequest::parse("GET /\xc3\xa9 HTTP/1.1\r\n\r\n\xff"));
}

TEST(HTTPRequest, TrimsHeadersAndUsesTheLastOfARepeatedOne) {
  const auto request =
      HTTPRequest::parse("GET / HTTP/1.1\r\n \tX-A\t : \t one:two \t\r\nnonsense\r\nx-a:3\r\n\r\n");
  EXPECT_EQ(request->headers, (std::map<std::string, std::string>{{"x-a", "3"}}));
  EXPECT_EQ(HTTPRequest::parse("GET / HTTP/1.1\r\nX-A : a:b\t\r\n\r\n")->header("x-a"), "a:b");
}

struct LengthCase {
  const char* value;
  std::size_t bodyBytes;
};

class HTTPRequestLength : public ::testing::TestWithParam<LengthCase> {};

TEST_P(HTTPRequestLength, IsReadLeniently) {
  const auto request = HTTPRequest::parse(std::string("A /b\r\nContent-Length: ") +
                                          GetParam().value + "\r\n\r\nabcdef");
  ASSERT_TRUE(request);
  EXPECT_EQ(request->body.size(), GetParam().bodyBytes);
}

INSTANTIATE_TEST_SUITE_P(AllForms, HTTPRequestLength,
                         ::testing::Values(LengthCase{"3", 3}, LengthCase{"+3", 3},
                                           LengthCase{"-3", 0}, LengthCase{"", 0},
                                           LengthCase{"3x", 0}, LengthCase{"0x3", 0},
                                           LengthCase{"+-3", 0}, LengthCase{"3, 3", 0},
                                           LengthCase{"003", 3},
                                           LengthCase{"99999999999999999999", 0}));

TEST(HTTPRequest, IsIncompleteWhileBytesOfTheBodyAreMissing) {
  EXPECT_FALSE(HTTPRequest::parse("A /b\r\nContent-Length: 9223372036854775807\r\n\r\nabc"));
}

using Stage = HTTPRequestParser::Stage;

TEST(HTTPRequestParser, PassesThroughItsStagesByteByByte) {
  const std::string head = "POST /a HTTP/1.1\r\nContent-Length: 3\r\n\r\n";
  const std::string whole = head + "abc";
  HTTPRequestParser parser;
  for (std::size_t size = 0; size <= whole.size(); ++size) {
    const Stage expected = size < head.size()    ? Stage::head
                           : size < whole.size() ? Stage::body
                                                 : Stage::whole;
    ASSERT_EQ(parser.advance(std::string_view(whole).substr(0, size)), expected) << size;
  }
  EXPECT_EQ(parser.request(), HTTPRequest::parse(whole));
}

TEST(HTTPRequestParser, KnowsTheHeadBeforeTheBodyHasArrived) {
  HTTPRequestParser parser;
  ASSERT_EQ(parser.advance("POST /a HTTP/1.1\r\nX-A: b\r\nContent-Length: 9\r\n\r\nab"),
            Stage::body);
  EXPECT_EQ(parser.request().path, "/a");
  EXPECT_EQ(parser.request().header("x-a"), "b");
  EXPECT_EQ(parser.request().body, "");
}

TEST(HTTPRequestParser, ParsesTheHeadOnce) {
  HTTPRequestParser parser;
  ASSERT_EQ(parser.advance("POST /first HTTP/1.1\r\nContent-Length: 1\r\n\r\n"), Stage::body);
  ASSERT_EQ(parser.advance("POST /other HTTP/1.1\r\nContent-Length: 1\r\n\r\nx"), Stage::whole);
  EXPECT_EQ(parser.request().path, "/first");
}

TEST(HTTPRequestParser, SearchesTheEndOfTheHeadInNewBytesOnly) {
  HTTPRequestParser parser;
  ASSERT_EQ(parser.advance("GET /a HTTP/1.1\r\nX: yy"), Stage::head);
  ASSERT_EQ(parser.advance("GET /a\r\n\r\n.1\r\nX: yyyyyy"), Stage::head);
  EXPECT_EQ(parser.advance("GET /a\r\n\r\n.1\r\nX: yyyyyy\r\n\r\n"), Stage::whole);
}

TEST(HTTPRequestParser, StaysInvalidOnceTheHeadCannotBeParsed) {
  for (const std::string head : {"GET\r\n\r\n", "GET /\xff HTTP/1.1\r\n\r\n"}) {
    HTTPRequestParser parser;
    EXPECT_EQ(parser.advance(head), Stage::invalid);
    EXPECT_EQ(parser.advance(head + "GET / HTTP/1.1\r\n\r\n"), Stage::invalid);
  }
}

}  // namespace
}  // namespace zephyl
