#include "Desktop/Freedesktop/FreedesktopDesktop.hpp"

#include <utility>

#include "System/Files/Bundle.hpp"
#include "System/Files/Environment.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

/// Returns the application's icon if all hosts can find it, otherwise an empty string.
std::string notificationIcon(const std::optional<IconLocation>& icons) {
  return icons && icons->themePath.empty() ? applicationId : "";
}

}  // namespace

FreedesktopDesktop::FreedesktopDesktop(const Services& services, std::string activationToken)
    : FreedesktopDesktop(services, std::move(activationToken),
                         locateIcons(Bundle::main().executable())) {}

FreedesktopDesktop::FreedesktopDesktop(const Services& services, std::string activationToken,
                                       const std::optional<IconLocation>& icons)
    : services_(services),
      headless_(services.mainLoop, services.clock),
      item_(*this),
      tokens_(services.clock, std::move(activationToken)),
      backlog_(services.mainLoop),
      bus_(services.clock),
      throttle_(services.clock,
                [this](Duration delay, Task task) { return bus_.after(delay, std::move(task)); }),
      menu_(bus_, services.clock, throttle_, icons ? icons->themePath : "", menuListener()),
      statusNotifier_(throttle_, icons, itemListener()),
      notifications_(notificationIcon(icons), notificationListener()),
      folderPortal_(bus_),
      applications_(bus_),
      instance_(instanceListener()) {
  // The menu before the item, so that it is exported when the item registers.
  for (Bus::Client* client : std::initializer_list<Bus::Client*>{
           &menu_, &statusNotifier_, &instance_, &notifications_, &folderPortal_, &applications_}) {
    bus_.add(*client);
  }
  bus_.onChange([this](bool connected) {
    services_.mainLoop.async([this, connected] { busChanged(connected); });
  });
  bus_.start();
}

FreedesktopDesktop::~FreedesktopDesktop() {
  bus_.stop();
}

DBusMenu::Listener FreedesktopDesktop::menuListener() {
  return {.session =
              [this](MenuSession::Event event, unsigned opening) {
                backlog_.post([this, event, opening] { item_.notify(event, opening); });
              },
          .chosen = onMain(&FreedesktopDesktop::itemChosen),
          .isBusy = [this] { return backlog_.isFull(); }};
}

StatusNotifierItem::Listener FreedesktopDesktop::itemListener() {
  return {.activated = onMain(&FreedesktopDesktop::itemActivated),
          .tokenProvided = onMain(&FreedesktopDesktop::itemTokenProvided)};
}

Notifications::Listener FreedesktopDesktop::notificationListener() {
  return {.activated = onMain(&FreedesktopDesktop::notificationActivated)};
}

SingleInstance::Listener FreedesktopDesktop::instanceListener() {
  return {.reopened = onMain(&FreedesktopDesktop::reopened)};
}

void FreedesktopDesktop::reopened(const std::string& token) {
  if (events_.reopened) tokens_.handle(token, events_.reopened);
}

void FreedesktopDesktop::notificationActivated(const std::string& identifier,
                                               const std::string& token) {
  if (!events_.notificationActivated) return;
  tokens_.handle(token, [&] { events_.notificationActivated(identifier); });
}

void FreedesktopDesktop::itemChosen(const MenuAction& action) {
  tokens_.handle(tokens_.consumeProvided(), [&] { item_.choose(action); });
}

void FreedesktopDesktop::busChanged(bool connected) {
  if (!connected) {
    log("no session bus answers: running without a status item and retrying every {} s",
        std::chrono::duration_cast<std::chrono::seconds>(Bus::retryInterval).count());
  } else if (withoutBus_) {
    log("connected to the session bus");
  }
  withoutBus_ = !connected;
  item_.showInLog();
}

void FreedesktopDesktop::postNotification(const Notification& notification) {
  bus_.post([this, notification] { notifications_.post(notification); });
}

void FreedesktopDesktop::removeNotification(const std::string& identifier) {
  bus_.post([this, identifier] { notifications_.remove(identifier); });
}

void FreedesktopDesktop::activate(const RunningApplication& application) {
  applications_.activate(application.identifier, consumeActivationToken());
}

void FreedesktopDesktop::openURL(const std::string& url) {
  if (!url.starts_with("http://") && !url.starts_with("https://")) {
    return log("cannot open {}: not a web address", url);
  }
  launch("xdg-open", url);
}

void FreedesktopDesktop::openFile(const std::string& path, Editor editor) {
  switch (editor) {
    case Editor::cursor:
      return launch("cursor", path);
    case Editor::vsCode:
      return launch("code", path);
    case Editor::textEdit:
      return launch("xdg-open", path);
  }
}

void FreedesktopDesktop::launch(const std::string& program, const std::string& argument) {
  ProcessOptions options{.executable = "/usr/bin/env",  // finds the program in PATH
                         .arguments = {program, argument},
                         .environment = currentEnvironment(),
                         .lifetime = ProcessOptions::Lifetime::independent};
  setActivationToken(options.environment, consumeActivationToken());
  options.onExit = [program, argument](ExitStatus status) {
    if (status.isFailure()) log("{} {} exited with status {}", program, argument, status.status);
  };
  if (const auto child = services_.launcher.launch(std::move(options)); !child) {
    log("could not start {}: {}", program, child.error().message);
  }
}

void FreedesktopDesktop::chooseFolder(const FolderRequest& request,
                                      std::function<void(FolderChoice)> done) {
  bus_.post([this, request, done = std::move(done)] {
    folderPortal_.choose(request, [this, done](FolderChoice choice) {
      services_.mainLoop.async([done, choice = std::move(choice)] { done(choice); });
    });
  });
}

void FreedesktopDesktop::Item::setIcon(StatusIcon icon) {
  if (std::exchange(icon_, icon) == icon) return;
  desktop_.bus_.postBatched([&shown = desktop_.statusNotifier_, icon] { shown.setIcon(icon); });
}

void FreedesktopDesktop::Item::setTitle(const std::string& title) {
  if (title == title_) return;
  title_ = title;
  desktop_.bus_.postBatched([&shown = desktop_.statusNotifier_, title] { shown.setLabel(title); });
}

void FreedesktopDesktop::Item::setDescription(const std::string& description) {
  if (description == description_) return;
  description_ = description;
  showInLog();
  desktop_.bus_.postBatched(
      [&shown = desktop_.statusNotifier_, description] { shown.setDescription(description); });
}

void FreedesktopDesktop::Item::setMenu(const Menu& menu) {
  if (menu_ && menu == *menu_) return;
  menu_ = std::make_shared<const Menu>(menu);
  desktop_.bus_.postBatched([&desktop = desktop_, newMenu = menu_] {
    desktop.menu_.setMenu(newMenu);
    desktop.statusNotifier_.show();
  });
}

void FreedesktopDesktop::Item::notify(MenuSession::Event event, unsigned opening) {
  switch (event) {
    case MenuSession::Event::needsUpdate:
      if (events_.needsUpdate) events_.needsUpdate();
      return desktop_.bus_.post(
          [&menu = desktop_.menu_, opening] { menu.updateAnswered(opening); });
    case MenuSession::Event::willOpen:
      if (events_.willOpen) events_.willOpen();
      return;
    case MenuSession::Event::didClose:
      if (events_.didClose) events_.didClose();
      return;
  }
}

void FreedesktopDesktop::Item::choose(const MenuAction& action) {
  if (events_.chosen) events_.chosen(action);
}

void FreedesktopDesktop::Item::showInLog() {
  if (!desktop_.withoutBus_ || description_.empty()) return;
  desktop_.headless_.statusItem().setDescription(description_);
}

}  // namespace zephyl
