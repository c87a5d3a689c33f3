#include "ZephylTray/Commands/Protocol/CommandSocket.hpp"

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "System/Data/Format.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Files.hpp"
#include "System/Files/Log.hpp"
#include "System/Files/PrivateDirectory.hpp"

namespace zephyl {

namespace {

constexpr auto directoryName = "com.zephyl.tray";
constexpr auto nameInBaseDirectory = "tray.sock";
constexpr int waitingConnections = 64;

/// Returns the directory without links, as far as it exists, so that each directory has one name.
std::string canonical(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                             &std::free);
  return resolved ? resolved.get() : path;
}

/// 64-bit FNV-1a. It only needs to distinguish the directories of one user.
std::string hashOf(const std::string& text) {
  std::uint64_t hash = 0xcbf29ce484222325;
  for (const unsigned char byte : text) hash = (hash ^ byte) * 0x100000001b3;
  return formatText("{:016x}", hash);
}

std::optional<std::string> runtimeDirectory() {
  auto directory = environmentVariable("XDG_RUNTIME_DIR");
  if (!directory || !directory->starts_with('/') || !isOwnDirectory(*directory)) return {};
  return directory;
}

std::string placeIn(const std::string& runtimeDirectory, const std::string& baseDirectory) {
  const auto name = hashOf(canonical(baseDirectory)) + ".sock";
  return joinPath(joinPath(runtimeDirectory, directoryName), name);
}

/// The address of a local socket. A path that is too long for an address is reached through the
/// descriptor of its directory, which must stay open while the address is used.
struct LocalAddress {
  explicit LocalAddress(const std::string& path) {
    std::string shortPath = path;
    if (path.size() >= sizeof address.sun_path) {
      directory.reset(::open(parentDirectory(path).c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      shortPath = formatText("/proc/self/fd/{}/{}", directory.get(),
                             path.substr(path.find_last_of('/') + 1));
    }
    address.sun_family = AF_UNIX;
    isUsable = shortPath.size() < sizeof address.sun_path;
    if (isUsable) std::memcpy(address.sun_path, shortPath.c_str(), shortPath.size() + 1);
  }

  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }

  sockaddr_un address{};
  FileDescriptor directory;
  bool isUsable = false;
};

FileDescriptor newSocket() {
  return FileDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

/// Removes the socket of an earlier tray. Fails if another kind of file exists there.
Result<void> removeStaleSocket(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return {};
  if (!S_ISSOCK(status.st_mode)) return Error{path, " exists and is not a socket"};
  if (::unlink(path.c_str()) != 0) return systemError(path, errno);
  return {};
}

}  // namespace

std::vector<std::string> CommandSocket::places(const std::string& baseDirectory) {
  std::vector<std::string> places;
  if (const auto directory = runtimeDirectory())
    places.push_back(placeIn(*directory, baseDirectory));
  places.push_back(joinPath(baseDirectory, nameInBaseDirectory));
  if (!environmentVariable("XDG_RUNTIME_DIR")) {
    places.push_back(placeIn(formatText("/run/user/{}", ::geteuid()), baseDirectory));
  }
  return places;
}

Result<CommandSocket> CommandSocket::listen(const std::string& baseDirectory) {
  if (const auto directory = runtimeDirectory()) {
    const auto claimed = claimPrivateDirectory(joinPath(*directory, directoryName));
    if (claimed) return listenAt(placeIn(*directory, baseDirectory));
    log("{}; creating the command socket in {} instead", claimed.error().message, baseDirectory);
  }
  return listenAt(joinPath(baseDirectory, nameInBaseDirectory));
}

Result<CommandSocket> CommandSocket::listenAt(const std::string& path) {
  if (const auto removed = removeStaleSocket(path); !removed) return removed.error();
  FileDescriptor socket = newSocket();
  if (!socket) return systemError("socket", errno);
  const LocalAddress address(path);
  if (!address.isUsable) return systemError(path, ENAMETOOLONG);
  if (::bind(socket.get(), address.get(), sizeof address.address) != 0) {
    return systemError(path, errno);
  }
  // Before `listen`, because the umask may permit others to connect until the mode is set.
  CommandSocket result(std::move(socket), path);
  if (::chmod(path.c_str(), S_IRUSR | S_IWUSR) != 0 ||
      ::listen(result.descriptor(), waitingConnections) != 0) {
    return systemError(path, errno);
  }
  return result;
}

CommandSocket::CommandSocket(FileDescriptor socket, std::string path)
    : socket_(std::move(socket)), path_(std::move(path)) {
  struct stat status {};
  if (::lstat(path_.c_str(), &status) != 0) return;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

CommandSocket::~CommandSocket() {
  struct stat status {};
  if (!socket_ || ::lstat(path_.c_str(), &status) != 0) return;
  if (status.st_dev == device_ && status.st_ino == inode_) ::unlink(path_.c_str());
}

boost::system::result<FileDescriptor> CommandSocket::connect(const std::string& path) {
  const auto failure = [](int number) {
    return boost::system::error_code(number, boost::system::system_category());
  };
  FileDescriptor socket = newSocket();
  if (!socket) return failure(errno);
  const LocalAddress address(path);
  if (!address.isUsable) return failure(ENOENT);
  if (::connect(socket.get(), address.get(), sizeof address.address) != 0) return failure(errno);
  if (!peerIsThisUser(socket.get())) return failure(EPERM);
  return socket;
}

bool CommandSocket::peerIsThisUser(int connection) {
  ucred peer{};
  socklen_t size = sizeof peer;
  return ::getsockopt(connection, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
         peer.uid == ::geteuid();
}

}  // namespace zephyl
