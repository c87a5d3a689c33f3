#include <csignal>
#include <cstdio>
#include <exception>
#include <span>
#include <variant>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

#include "Common/Log.hpp"
#include "Tailnet/Client/Connection.hpp"
#include "Tailnet/Client/PreauthKey.hpp"
#include "Tailnet/Client/Settings.hpp"
#include "Tailnet/Common/Ending.hpp"

namespace zephyl::sandbox {
namespace {

constexpr int usageStatus = 2;

int serve(const Settings& settings, PreauthKey& key) {
  boost::asio::io_context io(1);
  Ending ending(io, settings.misbehaviour);
  boost::asio::co_spawn(io, bringUp(settings, key),
                        [&ending](const std::exception_ptr& exception, const Result<void>& result) {
                          if (exception) std::rethrow_exception(exception);
                          if (!result) ending.end(1, result.error().message);
                        });
  io.run();
  if (ending.status() == 0) logLine("stopped");
  return ending.status();
}

int run(std::span<const char* const> words, PreauthKey& key) {
  const auto invocation = readSettings(words);
  if (!invocation) {
    fmt::print(stderr, "zephyl-tailnet: {}\n", invocation.error().message);
    return usageStatus;
  }
  if (const auto* notice = std::get_if<Notice>(&*invocation)) {
    fmt::print("{}", notice->text);
    return 0;
  }
  return serve(std::get<Settings>(*invocation), key);
}

}  // namespace
}  // namespace zephyl::sandbox

int main(int argc, char** argv) {
  // A client or a reader of the log that goes away is an error of that write, no reason to die.
  std::signal(SIGPIPE, SIG_IGN);
  try {
    auto key = zephyl::sandbox::PreauthKey::takeFromEnvironment();
    return zephyl::sandbox::run(std::span(argv, argc).subspan(1), key);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "zephyl-tailnet: %s\n", error.what());
    return 1;
  }
}
