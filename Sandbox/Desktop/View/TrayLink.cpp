#include "Desktop/View/TrayLink.hpp"

#include <QCoreApplication>
#include <exception>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>

namespace zephyl::sandbox::desktop {
namespace asio = boost::asio;

TrayLink::TrayLink(TrayAccess access, Events events)
    : service_(std::move(access)), events_(std::move(events)) {}

TrayLink::~TrayLink() {
  stopping_ = true;
  service_.stop();
  if (thread_.joinable()) thread_.join();
}

Result<void> TrayLink::start() {
  const auto socket = service_.start(WindowService::Polling::never);
  asio::co_spawn(service_.io(), watchRoutes(), asio::detached);
  thread_ = std::thread([this] {
    service_.run();
    if (!stopping_) post(events_.ended);
  });
  return socket ? Result<void>() : socket.error();
}

void TrayLink::post(std::function<void()> task) {
  QMetaObject::invokeMethod(QCoreApplication::instance(), std::move(task), Qt::QueuedConnection);
}

void TrayLink::ask(const Request& request, std::function<void(const Result<Answer>&)> answered) {
  asio::co_spawn(
      service_.io(), service_.tray().ask(request),
      [answered = std::move(answered)](const std::exception_ptr& failure, Result<Answer> answer) {
        if (failure) answer = Error{"The tray cannot be reached."};
        post([answered, answer = std::move(answer)] { answered(answer); });
      });
}

asio::awaitable<void> TrayLink::watchRoutes() {
  Routes::Watcher watcher(service_.routes(), service_.io().get_executor());
  for (;;) {
    co_await watcher.wait();
    while (const auto route = watcher.take()) {
      post([show = events_.route, route = *route] { show(route); });
    }
  }
}

}  // namespace zephyl::sandbox::desktop
