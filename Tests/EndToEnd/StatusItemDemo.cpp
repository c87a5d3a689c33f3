// A status item without a tray. Standard input sets what it shows, as a JSON object per line.
// Standard output reports the user's actions in the same form.
#include <csignal>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>
#include <utility>

#include <boost/json.hpp>

#include "Desktop/Freedesktop/FreedesktopDesktop.hpp"
#include "System/Concurrency/MainLoop.hpp"
#include "System/Concurrency/Reactor.hpp"
#include "System/Concurrency/SystemClock.hpp"
#include "System/Files/Bundle.hpp"
#include "System/Files/Environment.hpp"
#include "System/Processes/Guardian.hpp"
#include "System/Processes/SystemProcessLauncher.hpp"

namespace zephyl {
namespace {

namespace json = boost::json;

void say(const json::object& what) {
  std::cout << json::serialize(what) << std::endl;
}

std::string text(const json::object& object, const char* name) {
  const auto* value = object.if_contains(name);
  return value != nullptr ? std::string(value->as_string()) : std::string();
}

Menu readMenu(const json::value& rows);

/// The action of a row: a name and an object.
using Action = std::pair<std::string, std::string>;

MenuEntry readEntry(const json::object& row) {
  MenuEntry entry;
  entry.key = text(row, "key");
  entry.title = text(row, "title");
  entry.shortcut = text(row, "letter");
  if (row.contains("separator")) entry.kind = MenuEntry::Kind::separator;
  if (const auto* enabled = row.if_contains("enabled")) entry.enabled = enabled->as_bool();
  if (const auto* dot = row.if_contains("dot")) {
    entry.dot = static_cast<DotColor>(dot->as_int64());
  }
  if (row.contains("action"))
    entry.action = MenuAction(Action(text(row, "action"), text(row, "object")));
  if (const auto* submenu = row.if_contains("submenu")) entry.submenu = readMenu(*submenu);
  return entry;
}

Menu readMenu(const json::value& rows) {
  Menu menu;
  for (const auto& row : rows.as_array()) menu.push_back(readEntry(row.as_object()));
  return menu;
}

class Demo {
 public:
  explicit Demo(FreedesktopDesktop& desktop) : desktop_(desktop) {
    desktop_.setEvents({.reopened =
                            [] {
                              say({{"event", "reopened"}});
                            },
                        .notificationActivated =
                            [](const std::string& identifier) {
                              say({{"event", "notification"}, {"identifier", identifier}});
                            }});
    item().setMenuEvents({.needsUpdate = [this] { needsUpdate(); },
                          .willOpen =
                              [] {
                                say({{"event", "willOpen"}});
                              },
                          .didClose =
                              [] {
                                say({{"event", "didClose"}});
                              },
                          .chosen =
                              [this](const MenuAction& action) {
                                const auto& [name, object] = *action.as<Action>();
                                say({{"event", "chosen"}, {"action", name}, {"object", object}});
                                performOnApplications(name, object);
                              }});
  }

  void perform(const json::object& command) {
    const auto what = text(command, "do");
    if (const auto* rows = command.if_contains("menu")) return setMenu(what, readMenu(*rows));
    if (what == "icon")
      item().setIcon(text(command, "icon") == "busy" ? StatusIcon::busy : StatusIcon::idle);
    if (what == "title") item().setTitle(text(command, "text"));
    if (what == "description") item().setDescription(text(command, "text"));
    if (what == "notify") notify(command);
    if (what == "unnotify") desktop_.removeNotification(text(command, "identifier"));
    if (what == "open") desktop_.openURL(text(command, "url"));
    if (what == "folder") chooseFolder(command);
    if (what == "block") block(command);
    performOnApplications(what, text(command, "identifier"));
  }

 private:
  StatusItem& item() { return desktop_.statusItem(); }

  void setMenu(const std::string& when, Menu menu) {
    if (when == "menuOnUpdate") {
      onUpdate_ = std::move(menu);
    } else {
      item().setMenu(menu);
    }
  }

  void needsUpdate() {
    say({{"event", "needsUpdate"}});
    if (onUpdate_) item().setMenu(*onUpdate_);
    onUpdate_.reset();
  }

  /// Blocks the main thread for a time, or until a file exists.
  static void block(const json::object& command) {
    say({{"event", "blocked"}});
    const auto file = text(command, "until");
    if (file.empty()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(command.at("ms").as_int64()));
    }
    while (!file.empty() && !std::filesystem::exists(file)) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }

  void notify(const json::object& command) {
    desktop_.postNotification({.identifier = text(command, "identifier"),
                               .title = text(command, "title"),
                               .body = text(command, "body"),
                               .actionTitle = text(command, "action")});
  }

  void chooseFolder(const json::object& command) {
    const FolderRequest request{.prompt = text(command, "prompt"),
                                .message = text(command, "message")};
    desktop_.chooseFolder(request, [](const FolderChoice& choice) {
      json::object line{{"event", "folder"}};
      if (!choice.answered) line["unanswered"] = true;
      if (const auto& answer = choice.answer; !answer) {
        line["error"] = answer.error().message;
      } else if (*answer) {
        line["path"] = **answer;
      }
      say(line);
    });
  }

  void performOnApplications(const std::string& what, const std::string& identifier) {
    if (what != "running" && what != "activate" && what != "terminate") return;
    const auto running = desktop_.runningApplications(identifier);
    const pid_t pid = running.empty() ? 0 : running.front().pid;
    if (what == "running") say({{"event", "running"}, {"pid", pid}});
    if (what == "activate" && !running.empty()) desktop_.activate(running.front());
    if (what == "terminate" && !running.empty()) desktop_.terminate(running.front());
  }

  FreedesktopDesktop& desktop_;
  std::optional<Menu> onUpdate_;
};

int run(Guardian& guardian) {
  MainLoop mainLoop;
  Reactor reactor;
  SystemClock clock(reactor);
  SystemProcessLauncher launcher(reactor, guardian);
  FreedesktopDesktop desktop({mainLoop, clock, launcher});
  Demo demo(desktop);
  std::thread input([&] {
    std::string line;
    while (std::getline(std::cin, line)) {
      mainLoop.async([&demo, command = json::parse(line).as_object()] { demo.perform(command); });
    }
    mainLoop.quit();
  });
  mainLoop.run();
  input.join();
  mainLoop.close();
  return 0;
}

}  // namespace
}  // namespace zephyl

int main(int argc, char** argv) {
  using namespace zephyl;
  std::signal(SIGPIPE, SIG_IGN);
  // "--ask PID" activates the running instance like a second start.
  if (argc == 3) return SingleInstance::requestReopen(std::stoi(argv[2]), "token-of-start") ? 0 : 1;
  Bundle::setMain(Bundle(Bundle::runningExecutable()));
  removePrivateEnvironmentVariables();
  auto guardian = Guardian::start();
  return guardian ? run(*guardian) : 1;
}
