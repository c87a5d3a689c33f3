#include <exception>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>

#include "Common/Log.hpp"
#include "Tailnet/Client/Connection.hpp"
#include "Tailnet/Client/Settings.hpp"

namespace zephyl::sandbox {
namespace {

Result<int> serve(const Settings& settings) {
  PreauthKey key;
  boost::asio::io_context io(1);
  Ending ending(io, settings.misbehavior);
  boost::asio::co_spawn(io, bringUp(settings, key),
                        [&ending](const std::exception_ptr& exception, const Result<void>& result) {
                          if (exception) std::rethrow_exception(exception);
                          if (!result) ending.end(1, result.error().message);
                        });
  io.run();
  if (ending.status() == 0) logLine("stopped");
  return ending.status();
}

}  // namespace
}  // namespace zephyl::sandbox

int main(int argc, char** argv) {
  using namespace zephyl::sandbox;
  return runProgram(companionProgram, std::span(argv, argc), readSettings, serve);
}
