#include "Agent/Index/Indexer.hpp"

#include <algorithm>
#include <chrono>
#include <map>
#include <thread>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include <fcntl.h>

#include "Common/Async.hpp"

namespace zephyl::sandbox {
namespace asio = boost::asio;
using namespace std::chrono_literals;
namespace {

constexpr std::size_t maxFound = 100;
/// The time slice of a folder.
constexpr auto turnLength = 10ms;
/// A save by an editor changes a file several times.
constexpr auto settlingTime = 30ms;
constexpr auto missingRetryInterval = 1s;

/// One folder's index and the descriptor that reports its changes, on the worker's thread.
struct WatchedFolder {
  WatchedFolder(asio::io_context& io, std::string root) : index(std::move(root)), changes(io) {
    // The stream closes its descriptor, and so does the index.
    const int descriptor = ::fcntl(index.changesDescriptor(), F_DUPFD_CLOEXEC, 0);
    if (descriptor >= 0) changes.assign(descriptor);
  }

  FolderIndex index;
  asio::posix::stream_descriptor changes;
  bool isRemoved = false;
};

/// Waits until the folder exists again.
asio::awaitable<void> awaitFolder(WatchedFolder& folder) {
  do {
    co_await pause(missingRetryInterval);
    folder.index.restart();
    folder.index.step();
  } while (folder.index.isMissing() && !folder.isRemoved);
}

/// Waits for a change and then for a quiet period, which is longer if a walk takes longer.
asio::awaitable<void> awaitChange(WatchedFolder& folder, steady_clock::duration walkTime) {
  co_await folder.changes.async_wait(asio::posix::descriptor_base::wait_read, asTuple);
  co_await pause(std::max<steady_clock::duration>(settlingTime, walkTime));
  folder.index.restart();
}

/// Keeps the index up to date until the folder is removed.
asio::awaitable<void> keepUp(std::shared_ptr<WatchedFolder> folder, Indexer::OnReport onReport) {
  auto walkBegan = steady_clock::now();
  while (!folder->isRemoved) {
    const auto end = steady_clock::now() + turnLength;
    while (folder->index.hasWork() && steady_clock::now() < end) folder->index.step();
    onReport(folder->index.report());
    if (folder->index.hasWork()) {
      co_await asio::post(asio::use_awaitable);
    } else if (folder->index.isMissing()) {
      co_await awaitFolder(*folder);
      walkBegan = steady_clock::now();
    } else if (folder->changes.is_open()) {
      co_await awaitChange(*folder, steady_clock::now() - walkBegan);
      walkBegan = steady_clock::now();
    } else {
      co_return;
    }
  }
}

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
      const auto folder = std::make_shared<WatchedFolder>(io_, root);
      folders_[root] = folder;
      asio::co_spawn(io_, keepUp(folder, [this](const IndexReport& report) { deliver(report); }),
                     asio::detached);
    });
  }

  void remove(const std::string& root) {
    asio::post(io_, [this, root] {
      const auto folder = folders_.extract(root);
      if (folder.empty()) return;
      folder.mapped()->isRemoved = true;
      folder.mapped()->changes.close();
    });
  }

  asio::awaitable<std::vector<std::string>> find(std::string word) {
    return asio::co_spawn(io_, findHere(std::move(word)), asio::use_awaitable);
  }

 private:
  void deliver(const IndexReport& report) {
    // Held weakly, because a report may be pending when the worker is destroyed.
    asio::post(home_, [weak = std::weak_ptr(onReport_), report] {
      if (const auto onReport = weak.lock()) (*onReport)(report);
    });
  }

  asio::awaitable<std::vector<std::string>> findHere(std::string word) const {
    std::vector<std::string> found;
    for (const auto& [root, folder] : folders_) {
      for (auto& path : folder->index.find(word, maxFound - found.size())) {
        found.push_back(std::move(path));
      }
    }
    co_return found;
  }

  asio::any_io_executor home_;
  std::shared_ptr<OnReport> onReport_;
  asio::io_context io_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_ = asio::make_work_guard(io_);
  std::map<std::string, std::shared_ptr<WatchedFolder>> folders_;
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

asio::awaitable<std::vector<std::string>> Indexer::find(const std::string& word) {
  return worker_->find(word);
}

}  // namespace zephyl::sandbox
