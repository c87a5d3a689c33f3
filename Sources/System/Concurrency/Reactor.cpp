#include "System/Concurrency/Reactor.hpp"

#include <algorithm>
#include <future>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>

#include <pthread.h>

#include "System/Concurrency/TaskFailure.hpp"

namespace zephyl {

namespace asio = boost::asio;

struct Reactor::Loop {
  asio::io_context context{1};
  asio::executor_work_guard<asio::io_context::executor_type> guard = asio::make_work_guard(context);
};

Reactor::Reactor(std::string name) : loop_(std::make_unique<Loop>()) {
  constexpr std::size_t longestName = 15;
  name.resize(std::min(name.size(), longestName));
  thread_ = std::thread([context = &loop_->context, name = std::move(name)] {
    pthread_setname_np(pthread_self(), name.c_str());
    while (!taskFailure::guard(name, [context] { context->run(); })) {
    }
  });
}

Reactor::~Reactor() {
  loop_->context.stop();
  thread_.join();
}

void Reactor::post(Task task) {
  asio::post(loop_->context, std::move(task));
}

void Reactor::run(const Task& task) {
  if (isCurrent()) return task();
  std::promise<void> done;
  post([&] {
    try {
      task();
      done.set_value();
    } catch (...) {
      done.set_exception(std::current_exception());
    }
  });
  done.get_future().get();
}

bool Reactor::isCurrent() const {
  return std::this_thread::get_id() == thread_.get_id();
}

asio::io_context& Reactor::context() {
  return loop_->context;
}

}  // namespace zephyl
