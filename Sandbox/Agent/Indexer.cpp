#include "Agent/Indexer.hpp"

#include <chrono>
#include <map>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>

#include <fcntl.h>

#include "Agent/FolderIndex.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
using std::chrono::steady_clock;
namespace {

constexpr std::size_t mostFound = 100;
/// How long one folder works before others have their turn.
constexpr auto turn = 10ms;
constexpr auto reportInterval = 100ms;
/// An editor that saves touches a file several times; so long is waited for the end of it.
constexpr auto settling = 30ms;
constexpr auto missingRetry = 1s;

/// One folder's index with what drives it on the worker's thread: its turns, its changes, and the
/// wait for a missing folder. Every callback holds it weakly, so dropping it ends it.
class DrivenFolder : public std::enable_shared_from_this<DrivenFolder> {
 public:
  DrivenFolder(asio::io_context& io, std::string root, Indexer::OnReport onReport)
      : io_(io), index_(std::move(root)), pause_(io), onReport_(std::move(onReport)) {}

  void start() {
    // The descriptor closes what it is given, and the index closes its own.
    const int descriptor = ::fcntl(index_.changesDescriptor(), F_DUPFD_CLOEXEC, 0);
    if (descriptor >= 0) changes_.emplace(io_, descriptor);
    awaitChanges();
    takeTurn();
  }

  const FolderIndex& index() const { return index_; }

 private:
  void takeTurn() {
    const auto end = steady_clock::now() + turn;
    while (index_.hasWork() && steady_clock::now() < end) index_.step();
    if (!index_.hasWork()) {
      working_ = false;
      report();
      if (index_.missing()) lookAgainLater();
      return;
    }
    if (steady_clock::now() >= reported_ + reportInterval) report();
    asio::post(io_, guarded(&DrivenFolder::takeTurn));
  }

  void report() {
    reported_ = steady_clock::now();
    onReport_(index_.report());
  }

  void awaitChanges() {
    if (!changes_) return;
    changes_->async_wait(asio::posix::descriptor_base::wait_read,
                         [weak = weak_from_this()](boost::system::error_code error) {
                           const auto self = weak.lock();
                           if (self && !error) self->onChanges();
                         });
  }

  void onChanges() {
    index_.takeChanges();
    awaitChanges();
    if (!std::exchange(working_, true)) runAfter(settling, &DrivenFolder::takeTurn);
  }

  void lookAgainLater() {
    working_ = true;
    runAfter(missingRetry, &DrivenFolder::lookAgain);
  }

  void lookAgain() {
    index_.restart();
    index_.step();
    if (index_.missing()) {
      lookAgainLater();
    } else {
      takeTurn();
    }
  }

  void runAfter(steady_clock::duration delay, void (DrivenFolder::*then)()) {
    pause_.expires_after(delay);
    pause_.async_wait([run = guarded(then)](boost::system::error_code error) {
      if (!error) run();
    });
  }

  std::function<void()> guarded(void (DrivenFolder::*member)()) {
    return [weak = weak_from_this(), member] {
      if (const auto self = weak.lock()) (self.get()->*member)();
    };
  }

  asio::io_context& io_;
  FolderIndex index_;
  std::optional<asio::posix::stream_descriptor> changes_;
  asio::steady_timer pause_;
  Indexer::OnReport onReport_;
  steady_clock::time_point reported_ = steady_clock::now();
  /// A turn, or the pause before one, is under way.
  bool working_ = true;
};

}  // namespace

class Indexer::Worker {
 public:
  Worker(asio::any_io_executor home, OnReport onReport)
      : home_(std::move(home)),
        onReport_(std::make_shared<OnReport>(std::move(onReport))),
        thread_([this] { io_.run(); }) {}

  ~Worker() {
    io_.stop();
    thread_.join();
  }

  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void add(const std::string& root) {
    asio::post(io_, [this, root] {
      auto folder = std::make_shared<DrivenFolder>(
          io_, root, [this](const IndexReport& report) { bringHome(report); });
      folders_[root] = folder;
      folder->start();
    });
  }

  void remove(const std::string& root) {
    asio::post(io_, [this, root] { folders_.erase(root); });
  }

  void find(std::string word, OnFound onFound) {
    asio::post(io_, [this, word = std::move(word), onFound = std::move(onFound)] {
      asio::post(home_, [found = findHere(word), onFound] { onFound(found); });
    });
  }

 private:
  void bringHome(const IndexReport& report) {
    // Held weakly: with the worker gone, a report still under way is nobody's.
    asio::post(home_, [weak = std::weak_ptr(onReport_), report] {
      if (const auto onReport = weak.lock()) (*onReport)(report);
    });
  }

  std::vector<std::string> findHere(std::string_view word) const {
    std::vector<std::string> found;
    for (const auto& [root, folder] : folders_) {
      for (auto& path : folder->index().find(word)) {
        if (found.size() < mostFound) found.push_back(std::move(path));
      }
    }
    return found;
  }

  asio::any_io_executor home_;
  std::shared_ptr<OnReport> onReport_;
  asio::io_context io_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
  std::map<std::string, std::shared_ptr<DrivenFolder>> folders_;
  std::thread thread_;
};

Indexer::Indexer(asio::any_io_executor home, OnReport onReport)
    : worker_(std::make_unique<Worker>(std::move(home), std::move(onReport))) {}

Indexer::~Indexer() = default;

void Indexer::add(const std::string& root) {
  worker_->add(root);
}

void Indexer::remove(const std::string& root) {
  worker_->remove(root);
}

void Indexer::find(std::string word, OnFound onFound) {
  worker_->find(std::move(word), std::move(onFound));
}

}  // namespace zephyl::sandbox
