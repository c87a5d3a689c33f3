#include "System/Processes/JSONLines.hpp"

#include <array>
#include <csignal>
#include <variant>

#include <gtest/gtest.h>

#include <fcntl.h>

#include "System/Files/FileDescriptor.hpp"

namespace zephyl {
namespace {

struct Number {
  std::int64_t value = 0;
  bool operator==(const Number&) const = default;
};
BOOST_DESCRIBE_STRUCT(Number, (), (value))
using Message = std::variant<Number>;
constexpr std::array<std::string_view, 1> messageNames(const Message*) {
  return {"number"};
}

struct Pipe {
  Pipe() {
    std::array<int, 2> ends{};
    EXPECT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    reader.reset(ends[0]);
    writer.reset(ends[1]);
  }
  void write(std::string_view bytes) const {
    EXPECT_EQ(::write(writer.get(), bytes.data(), bytes.size()),
              static_cast<ssize_t>(bytes.size()));
  }

  FileDescriptor reader;
  FileDescriptor writer;
};

class JSONLinesTest : public ::testing::Test {
 protected:
  Pipe input_;
  Pipe output_;
  JSONLines lines_{input_.reader.get(), output_.writer.get()};
};

TEST_F(JSONLinesTest, WaitsForAMessageThatArrivesInPieces) {
  input_.write(R"({"num)");
  input_.write("ber\":1}\n{\"number\":2}\n{\"nu");
  EXPECT_EQ(lines_.await<Message>().value(), Message(Number{1}));
  EXPECT_EQ(lines_.next<Message>().value().value(), Message(Number{2}));
  EXPECT_FALSE(lines_.next<Message>());
  input_.write("mber\":3}\n");
  EXPECT_TRUE(lines_.receive());
  EXPECT_EQ(lines_.next<Message>().value().value(), Message(Number{3}));
}

TEST_F(JSONLinesTest, ReportsTheEndOfTheInput) {
  EXPECT_FALSE(lines_.inputHasEnded());
  input_.write("{\"number\":1}\n");
  EXPECT_FALSE(lines_.inputHasEnded());
  input_.writer.reset();
  EXPECT_TRUE(lines_.inputHasEnded());
  EXPECT_FALSE(lines_.receive());
  EXPECT_EQ(lines_.await<Message>().value(), Message(Number{1})) << "received before";
  EXPECT_EQ(lines_.await<Message>().error().message, "the input has ended");
}

TEST_F(JSONLinesTest, RefusesALineThatIsNotAMessage) {
  input_.write("garbage\n{}\n{\"number\":1}\n");
  EXPECT_FALSE(lines_.await<Message>());
  EXPECT_FALSE(lines_.await<Message>());
  EXPECT_EQ(lines_.await<Message>().value(), Message(Number{1}));
}

TEST_F(JSONLinesTest, WritesALineForEachMessage) {
  lines_.write(Message(Number{1}));
  lines_.write(Message(Number{2}));
  std::array<char, 64> buffer{};
  const auto count = ::read(output_.reader.get(), buffer.data(), buffer.size());
  ASSERT_GT(count, 0);
  EXPECT_EQ(std::string_view(buffer.data(), static_cast<std::size_t>(count)),
            "{\"number\":1}\n{\"number\":2}\n");
}

TEST_F(JSONLinesTest, WritesNothingAfterTheReaderHasClosed) {
  const auto previous = std::signal(SIGPIPE, SIG_IGN);
  output_.reader.reset();
  lines_.write(Message(Number{1}));
  std::signal(SIGPIPE, previous);
}

}  // namespace
}  // namespace zephyl
