#include "ZephylTray/Commands/Client/CommandOutput.hpp"

#include <gtest/gtest.h>

namespace zephyl {
namespace {

TEST(CommandOutput, StatusContainsAdvice) {
  CommandStatus status{.version = "1.2", .pid = 7, .mode = "headless", .summary = "reachable"};
  EXPECT_EQ(commandOutput::status(status),
            "Zephyl 1.2, process 7, headless\nreachable\n\nNothing needs your attention.\n");
  status.attention = {{.code = "c", .message = "It is\nbroken.", .advice = "Mend it."}};
  status.notes = {{.code = "n", .message = "It is small."}};
  EXPECT_EQ(commandOutput::status(status),
            "Zephyl 1.2, process 7, headless\nreachable\n\n! It is␊broken.\n  Mend it.\n- It is "
            "small.\n");
  EXPECT_EQ(commandOutput::change(status), "reachable  ! It is␊broken.\n");
}

TEST(CommandOutput, ServersAreListedInColumns) {
  EXPECT_EQ(
      commandOutput::servers({{.id = "a1",
                               .name = "Zoë",
                               .state = "connected",
                               .address = "http://127.100.0.1:80",
                               .relay = "r1"},
                              {.id = "b", .name = "B", .state = "disconnected", .problem = "why"}}),
      "ID  NAME  STATE         ADDRESS\n"
      "a1  Zoë   connected     http://127.100.0.1:80  via r1\n"
      "b   B     disconnected  -                      why\n");
  EXPECT_NE(commandOutput::servers({}).find("zephyl-tray join"), std::string::npos);
}

TEST(CommandOutput, FoldersNameTheirServers) {
  EXPECT_EQ(commandOutput::folders({{.path = "/a", .servers = {"a1", "x"}},
                                    {.path = "/b", .indexed = 2, .files = 5, .ready = false},
                                    {.path = "/c", .indexed = 5, .files = 5, .ready = true}},
                                   {{.id = "a1", .name = "Hill"}}),
            "FOLDER  SHARED WITH   INDEX\n"
            "/a      Hill, x\n"
            "/b      every server  indexing 2/5\n"
            "/c      every server  indexed 5 files\n");
  EXPECT_EQ(commandOutput::folders({}, {}), "No folder is shared.\n");
}

TEST(CommandOutput, ARequestStaysOnItsLineAndItsFieldsInTheirQuotes) {
  const PendingApproval request{.id = "r1",
                                .kind = "shell",
                                .tool = "run",
                                .target = "a\" by=\"Root\nrm \u202e -rf \u00a0/",
                                .root = "/p\\",
                                .reasons = {{.code = "c", .detail = "outside"}},
                                .userName = "Ana",
                                .chatTitle = "Release"};
  EXPECT_EQ(commandOutput::requests({.requests = {request}, .omitted = 3}),
            R"(r1  command="a\" by=\"Root␊rm \\u202e -rf \\u00a0/"  tool="run"  folder="/p\\")"
            R"(  by="Ana"  chat="Release"  why="outside")"
            "\n… and 3 more\n");
  EXPECT_EQ(commandOutput::requests({}), "No request waits for your approval.\n");
}

TEST(CommandOutput, LogsContainNoControlSequences) {
  EXPECT_EQ(commandOutput::log({"a\x1b[2J", "b"}), "a␛[2J\nb\n");
}

}  // namespace
}  // namespace zephyl
