#include "Desktop/Freedesktop/Bus.hpp"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <mutex>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include "System/Environment.hpp"
#include "System/FileDescriptor.hpp"

namespace zephyl {

namespace {

/// Milliseconds until a deadline of the library, which counts microseconds of monotonic time;
/// -1 for none.
int millisecondsUntil(std::uint64_t deadline) {
  if (deadline == UINT64_MAX) return -1;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const auto nowMicroseconds = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
                               static_cast<std::uint64_t>(now.tv_nsec) / 1'000;
  if (deadline <= nowMicroseconds) return 0;
  constexpr std::uint64_t longest = 60'000;
  return static_cast<int>(std::min((deadline - nowMicroseconds + 999) / 1'000, longest));
}

constexpr int gatheringMilliseconds =
    std::chrono::duration_cast<std::chrono::milliseconds>(Bus::gatheringTime).count();

/// A path as addresses of buses spell it.
std::string escapedForAddress(const std::string& path) {
  std::string escaped;
  for (const char c : path) {
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                       std::string_view("-_/.").find(c) != std::string_view::npos;
    if (plain) {
      escaped += c;
    } else {
      escaped += fmt::format("%{:02x}", static_cast<unsigned char>(c));
    }
  }
  return escaped;
}

/// The address of the session bus; none when the environment names none.
std::optional<std::string> address() {
  if (auto named = environmentVariable("DBUS_SESSION_BUS_ADDRESS"); named && !named->empty()) {
    return named;
  }
  const auto directory = environmentVariable("XDG_RUNTIME_DIR");
  if (!directory || directory->empty()) return std::nullopt;
  return "unix:path=" + escapedForAddress(*directory) + "/bus";
}

}  // namespace

/// Where tasks wait for the bus thread. Timers may outlive the bus, so they hold it weakly.
class Bus::Mailbox {
 public:
  void post(Task task) {
    {
      const std::scoped_lock lock(mutex_);
      tasks_.push_back(std::move(task));
    }
    eventfd_write(wake_.get(), 1);
  }

  void postSoon(Task task) {
    {
      const std::scoped_lock lock(mutex_);
      tasks_.push_back(std::move(task));
      if (std::exchange(gathering_, true)) return;  // the thread looks again by itself
    }
    eventfd_write(wake_.get(), 1);
  }

  std::vector<Task> take() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(tasks_, {});
  }

  [[nodiscard]] bool isGathering() {
    const std::scoped_lock lock(mutex_);
    return gathering_;
  }
  /// The time to gather is over; when something came meanwhile, more may follow.
  void endGathering() {
    const std::scoped_lock lock(mutex_);
    gathering_ = !tasks_.empty();
  }

  [[nodiscard]] int descriptor() const { return wake_.get(); }
  void clear() const {
    eventfd_t count = 0;
    eventfd_read(wake_.get(), &count);
  }

 private:
  FileDescriptor wake_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
  std::mutex mutex_;
  std::vector<Task> tasks_;
  bool gathering_ = false;
};

Bus::Bus(Clock& clock) : clock_(clock), mailbox_(std::make_shared<Mailbox>()) {}

Bus::~Bus() {
  stop();
}

void Bus::start() {
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "bus");
    run();
  });
}

void Bus::stop() {
  if (!thread_.joinable()) return;
  post([this] { stopping_ = true; });
  thread_.join();
}

void Bus::post(Task task) {
  mailbox_->post(std::move(task));
}

void Bus::postSoon(Task task) {
  mailbox_->postSoon(std::move(task));
}

Timer Bus::after(Duration delay, Task task) {
  return clock_.after(delay, [weak = std::weak_ptr(mailbox_), task = std::move(task)] {
    if (const auto mailbox = weak.lock()) mailbox->post(task);
  });
}

Bus::Handle Bus::open() {
  const auto where = address();
  sd_bus* raw = nullptr;
  if (!where || sd_bus_new(&raw) < 0) return nullptr;
  Handle bus(raw);
  const bool begun = sd_bus_set_address(raw, where->c_str()) >= 0 &&
                     sd_bus_set_bus_client(raw, 1) >= 0 && sd_bus_start(raw) >= 0;
  return begun ? std::move(bus) : nullptr;
}

void Bus::run() {
  connect();
  while (true) {
    for (const auto& task : mailbox_->take()) {
      task();
      if (stopping_) return lose();
    }
    process();
    wait();
  }
}

void Bus::connect() {
  if (bus_ || stopping_) return;
  bus_ = open();
  if (!bus_) lose();
}

void Bus::process() {
  while (bus_) {
    const int handled = sd_bus_process(bus_.get(), nullptr);
    if (handled < 0) return lose();
    if (!connection_ && sd_bus_is_ready(bus_.get()) > 0) arrive();
    if (handled == 0) return;
  }
}

void Bus::arrive() {
  connection_.emplace(*bus_);
  for (auto* client : clients_) client->connected(*connection_);
  tell(true);
}

void Bus::lose() {
  if (connection_ || !told_) {
    for (auto* client : clients_) client->disconnected();
  }
  connection_.reset();
  bus_.reset();
  if (stopping_) return;
  tell(false);
  retry_ = after(retryInterval, [this] { connect(); });
}

void Bus::tell(bool connected) {
  if (std::exchange(told_, connected) == connected) return;
  if (changed_) changed_(connected);
}

void Bus::wait() {
  pollfd descriptors[] = {{mailbox_->descriptor(), POLLIN, 0}, {-1, 0, 0}};
  std::uint64_t deadline = UINT64_MAX;
  if (bus_) {
    const int events = sd_bus_get_events(bus_.get());
    if (events < 0 || sd_bus_get_timeout(bus_.get(), &deadline) < 0) return lose();
    descriptors[1] = {sd_bus_get_fd(bus_.get()), static_cast<short>(events), 0};
  }
  int limit = millisecondsUntil(deadline);
  const bool gathering = mailbox_->isGathering();
  if (gathering && (limit < 0 || limit > gatheringMilliseconds)) limit = gatheringMilliseconds;
  const int ready = poll(descriptors, std::size(descriptors), limit);
  if (gathering && ready == 0) mailbox_->endGathering();
  if (descriptors[0].revents != 0) mailbox_->clear();
}

}  // namespace zephyl
