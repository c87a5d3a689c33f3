#include "ZephylTray/Commands/Client/CommandConnection.hpp"

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

#include <poll.h>
#include <sys/socket.h>

#include "System/Data/Format.hpp"
#include "ZephylTray/Commands/Protocol/CommandSocket.hpp"
#include "ZephylTray/Commands/Protocol/TrayLock.hpp"

namespace zephyl {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds retryInterval{20};

/// Returns the remaining milliseconds, rounded up, for `poll`.
int left(std::optional<CommandConnection::Deadline> deadline) {
  if (!deadline) return -1;
  const auto rest = std::chrono::ceil<std::chrono::milliseconds>(*deadline - steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(rest.count(), 0));
}

/// Tries all paths. Returns an empty descriptor if none of them accepts.
FileDescriptor connectAnywhere(const std::string& baseDirectory) {
  for (const auto& place : CommandSocket::places(baseDirectory)) {
    if (auto socket = CommandSocket::connect(place)) return std::move(*socket);
  }
  return {};
}

}  // namespace

std::string TrayAbsence::message() const {
  if (kind == Kind::notRunning) {
    return "Zephyl's tray is not running. Start it with `zephyl-tray`.";
  }
  if (!process) return "Zephyl's tray does not answer.";
  return formatText(
      "Zephyl's tray (process {0}) does not answer. It is starting, ending, stopped or stuck. If "
      "that lasts, end it with `kill {0}` and start it again.",
      *process);
}

std::variant<CommandConnection, TrayAbsence> CommandConnection::open(
    const std::string& baseDirectory, Deadline deadline) {
  for (;;) {
    if (auto socket = connectAnywhere(baseDirectory)) return CommandConnection(std::move(socket));
    const auto holder = lockHolder(baseDirectory);
    if (!holder) return TrayAbsence{};
    if (steady_clock::now() >= deadline) {
      return TrayAbsence{.kind = TrayAbsence::Kind::notAnswering, .process = holder};
    }
    std::this_thread::sleep_for(retryInterval);
  }
}

bool CommandConnection::await(short what, std::optional<Deadline> deadline) const {
  for (;;) {
    pollfd interest{.fd = socket_.get(), .events = what, .revents = 0};
    const int ready = ::poll(&interest, 1, left(deadline));
    if (ready > 0) return true;
    if (ready == 0 || errno != EINTR) return false;
  }
}

bool CommandConnection::send(std::string_view line, Deadline deadline) {
  while (!line.empty()) {
    const auto count = ::send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL);
    if (count >= 0) {
      line.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      if (!await(POLLOUT, deadline)) return false;
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

std::optional<CommandReply> CommandConnection::buffered() {
  const auto line = lines_.next(pending_);
  if (!line) return std::nullopt;
  auto reply = parseCommandReply(*line);
  if (reply) return *std::move(reply);
  return CommandReply{
      .kind = CommandReply::Kind::error,
      .value = json::Value("The tray's answer could not be decoded: " + reply.error().message)};
}

std::variant<CommandReply, CommandConnection::End> CommandConnection::next(
    std::optional<Deadline> deadline) {
  for (;;) {
    if (auto reply = buffered()) return *std::move(reply);
    if (!await(POLLIN, deadline)) return End::timedOut;
    constexpr std::size_t pieceSize = 65536;
    received_.resize(pieceSize);
    const auto count = ::recv(socket_.get(), received_.data(), received_.size(), 0);
    if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (count <= 0) return End::closed;
    pending_ = std::string_view(received_).substr(0, static_cast<std::size_t>(count));
  }
}

}  // namespace zephyl
