#include "ZephylTray/Commands/Client/CommandTerminal.hpp"

#include <array>
#include <cerrno>
#include <cstdio>

#include <strings.h>
#include <termios.h>
#include <unistd.h>

#include "System/Data/Text.hpp"
#include "ZephylTray/Commands/Client/CommandClient.hpp"

namespace zephyl::commandTerminal {

namespace {

constexpr std::size_t longestKey = 4096;

/// Disables the terminal's echo.
class EchoDisabled {
 public:
  EchoDisabled() {
    isTerminal_ = ::tcgetattr(STDIN_FILENO, &before_) == 0;
    if (!isTerminal_) return;
    termios silent = before_;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
  }
  ~EchoDisabled() {
    if (isTerminal_) ::tcsetattr(STDIN_FILENO, TCSANOW, &before_);
  }
  EchoDisabled(const EchoDisabled&) = delete;
  EchoDisabled& operator=(const EchoDisabled&) = delete;

  [[nodiscard]] bool isTerminal() const { return isTerminal_; }

 private:
  termios before_{};
  bool isTerminal_ = false;
};

/// Reads to the end of the line or of the input, but little more than `limit` bytes.
SecretString readLine(std::size_t limit) {
  SecretString line;
  std::array<char, 256> piece{};
  while (line.size() <= limit) {
    const auto count = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    const std::string_view bytes(piece.data(), static_cast<std::size_t>(count));
    const auto end = bytes.find('\n');
    line.append(bytes.substr(0, end));
    if (end != std::string_view::npos) break;
  }
  ::explicit_bzero(piece.data(), piece.size());
  return line;
}

void write(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fflush(stream);
}

std::string_view withoutBlanks(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

bool canAsk() {
  return ::isatty(STDIN_FILENO) == 1 && ::isatty(STDERR_FILENO) == 1;
}

std::string ask(const std::string& question) {
  ::tcflush(STDIN_FILENO, TCIFLUSH);
  write(stderr, question);
  constexpr std::size_t longestAnswer = 256;
  return std::string(withoutBlanks(readLine(longestAnswer)));
}

Result<SecretString> readKey() {
  const EchoDisabled input;
  if (input.isTerminal()) write(stderr, "Invite key: ");
  const auto line = readLine(longestKey);
  if (input.isTerminal()) write(stderr, "\n");
  const auto key = withoutBlanks(line);
  if (key.empty()) return Error{"Standard input contains no invite key."};
  if (key.size() > longestKey) return Error{"The input is too long for an invite key."};
  return SecretString(key);
}

bool print(const std::string& text) {
  write(stdout, text);
  return std::ferror(stdout) == 0;
}

void complain(const std::string& message) {
  write(stderr, "zephyl-tray: " + visibleLines(message) + "\n");
}

int fail(const std::string& message) {
  complain(message);
  return commandStatus::failure;
}

}  // namespace zephyl::commandTerminal
