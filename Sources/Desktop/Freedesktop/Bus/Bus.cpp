#include "Desktop/Freedesktop/Bus/Bus.hpp"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <mutex>
#include <string_view>
#include <utility>

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>

#include "System/Concurrency/TaskFailure.hpp"
#include "System/Data/Format.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/FileDescriptor.hpp"

namespace zephyl {

namespace {

/// Returns the milliseconds until a deadline of the library in microseconds of monotonic time, or
/// -1 for no deadline.
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

constexpr int batchMilliseconds =
    std::chrono::duration_cast<std::chrono::milliseconds>(Bus::batchTime).count();

/// How often the thread checks for tasks while no descriptor can wake it.
constexpr int checkMilliseconds = 100;

int sooner(int limit, int other) {
  return limit < 0 ? other : std::min(limit, other);
}

/// The conditions for which `poll` must wait on behalf of the library.
struct BusInterest {
  pollfd descriptor{-1, 0, 0};
  int limit = -1;  ///< in milliseconds; -1 for no limit
};

/// Returns nullopt if the connection is lost.
std::optional<BusInterest> interestOf(sd_bus& bus) {
  std::uint64_t deadline = UINT64_MAX;
  const int events = sd_bus_get_events(&bus);
  if (events < 0 || sd_bus_get_timeout(&bus, &deadline) < 0) return std::nullopt;
  return BusInterest{.descriptor = {sd_bus_get_fd(&bus), static_cast<short>(events), 0},
                     .limit = millisecondsUntil(deadline)};
}

/// Escapes a path for a bus address.
std::string escapedForAddress(const std::string& path) {
  std::string escaped;
  for (const char c : path) {
    const bool plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                       std::string_view("-_/.").find(c) != std::string_view::npos;
    if (plain) {
      escaped += c;
    } else {
      escaped += formatText("%{:02x}", static_cast<unsigned char>(c));
    }
  }
  return escaped;
}

/// Returns the address of the session bus, or nullopt if the environment does not define it.
std::optional<std::string> address() {
  if (auto named = environmentVariable("DBUS_SESSION_BUS_ADDRESS"); named && !named->empty()) {
    return named;
  }
  const auto directory = environmentVariable("XDG_RUNTIME_DIR");
  if (!directory || directory->empty()) return std::nullopt;
  return "unix:path=" + escapedForAddress(*directory) + "/bus";
}

}  // namespace

/// The queue of tasks for the bus thread. Timers may outlive the bus, so they hold it weakly.
class Bus::Mailbox {
 public:
  void post(Task task) {
    const std::scoped_lock lock(mutex_);
    tasks_.push_back(std::move(task));
    wake();
  }

  void postBatched(Task task) {
    const std::scoped_lock lock(mutex_);
    tasks_.push_back(std::move(task));
    if (!std::exchange(batching_, true)) wake();  // otherwise the thread checks again later
  }

  std::vector<Task> drain() {
    const std::scoped_lock lock(mutex_);
    return std::exchange(tasks_, {});
  }

  [[nodiscard]] bool isBatching() {
    const std::scoped_lock lock(mutex_);
    return batching_;
  }
  /// Ends the batch time. If tasks were posted meanwhile, another batch time begins.
  void endBatch() {
    const std::scoped_lock lock(mutex_);
    batching_ = !tasks_.empty();
  }

  /// Returns a descriptor that is readable after a post, or -1 if no descriptor is available.
  [[nodiscard]] int descriptor() {
    const std::scoped_lock lock(mutex_);
    if (!wake_) {
      wake_.reset(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
      if (!tasks_.empty()) wake();
    }
    return wake_.get();
  }
  void clear() {
    const std::scoped_lock lock(mutex_);
    eventfd_t count = 0;
    eventfd_read(wake_.get(), &count);
  }

 private:
  void wake() const {
    if (wake_) eventfd_write(wake_.get(), 1);
  }

  std::mutex mutex_;
  FileDescriptor wake_;
  std::vector<Task> tasks_;
  bool batching_ = false;
};

Bus::Bus(Clock& clock) : clock_(clock), mailbox_(std::make_shared<Mailbox>()) {}

Bus::~Bus() {
  stop();
}

void Bus::start() {
  thread_ = std::thread([this] {
    pthread_setname_np(pthread_self(), "bus");
    taskFailure::guard("bus", [this] { run(); });
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

void Bus::postBatched(Task task) {
  mailbox_->postBatched(std::move(task));
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

Bus::Handle Bus::openAndWait() {
  using std::chrono::steady_clock;
  auto bus = open();
  const auto deadline = steady_clock::now() + handshakeTimeout;
  while (bus && sd_bus_is_ready(bus.get()) == 0) {
    const int handled = sd_bus_process(bus.get(), nullptr);
    if (handled < 0) return nullptr;
    if (handled > 0) continue;
    auto interest = interestOf(*bus);
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - steady_clock::now()).count();
    if (!interest || left <= 0) return nullptr;
    poll(&interest->descriptor, 1, sooner(interest->limit, static_cast<int>(left)));
  }
  return bus;
}

void Bus::run() {
  connect();
  while (true) {
    for (const auto& task : mailbox_->drain()) {
      task();
      if (stopping_) return dropConnection();
    }
    process();
    wait();
  }
}

void Bus::connect() {
  if (bus_ || stopping_) return;
  bus_ = open();
  if (!bus_) return dropConnection();
  handshake_ = after(handshakeTimeout, [this] {
    if (bus_ && !connection_) dropConnection();
  });
}

void Bus::process() {
  // Remaining messages make the next `wait` return at once.
  for (int message = 0; bus_ && message < messagesPerTurn; ++message) {
    const int handled = sd_bus_process(bus_.get(), nullptr);
    if (handled < 0) return dropConnection();
    if (!connection_ && sd_bus_is_ready(bus_.get()) > 0) completeConnection();
    if (handled == 0) return;
  }
}

void Bus::completeConnection() {
  handshake_.cancel();
  connection_.emplace(*bus_);
  for (auto* client : clients_) client->connected(*connection_);
  notify(true);
}

void Bus::dropConnection() {
  if (connection_ || !notified_) {
    for (auto* client : clients_) client->disconnected();
  }
  connection_.reset();
  bus_.reset();
  if (stopping_) return;
  notify(false);
  retry_ = after(retryInterval, [this] { connect(); });
}

void Bus::notify(bool connected) {
  if (std::exchange(notified_, connected) == connected) return;
  if (changed_) changed_(connected);
}

void Bus::wait() {
  BusInterest interest;
  if (bus_) {
    const auto wanted = interestOf(*bus_);
    if (!wanted) return dropConnection();
    interest = *wanted;
  }
  pollfd descriptors[] = {{mailbox_->descriptor(), POLLIN, 0}, interest.descriptor};
  int limit = interest.limit;
  if (descriptors[0].fd < 0) limit = sooner(limit, checkMilliseconds);
  const bool batching = mailbox_->isBatching();
  if (batching) limit = sooner(limit, batchMilliseconds);
  const int ready = poll(descriptors, std::size(descriptors), limit);
  if (batching && ready == 0) mailbox_->endBatch();
  if (descriptors[0].revents != 0) mailbox_->clear();
}

}  // namespace zephyl
