#include "Desktop/Freedesktop/StatusNotifierItem.hpp"

#include <string_view>
#include <utility>

#include "Desktop/Freedesktop/Bus/BusText.hpp"
#include "Desktop/Freedesktop/Menu/DBusMenu.hpp"
#include "System/Data/Text.hpp"
#include "System/Files/Log.hpp"

namespace zephyl {

namespace {

constexpr const char* itemInterface = "org.kde.StatusNotifierItem";
constexpr const char* watcherName = "org.kde.StatusNotifierWatcher";
constexpr BusAddress watcher{watcherName, "/StatusNotifierWatcher", watcherName};

}  // namespace

StatusNotifierItem::StatusNotifierItem(BusSignalThrottle& throttle,
                                       std::optional<IconLocation> icons, Listener listener)
    : throttle_(throttle),
      icons_(std::move(icons)),
      listener_(std::move(listener)),
      sources_(addSources()) {}

StatusNotifierItem::Sources StatusNotifierItem::addSources() {
  const auto sendLabel = [this] {
    const auto label = visibleLines(appearance_.label);
    return sendSignal("XAyatanaNewLabel", {label.c_str(), label.c_str()});
  };
  const auto sendWords = [this] { return sendSignal("NewToolTip") + sendSignal("NewTitle"); };
  return {.icon = throttle_.add({.send = [this] { return sendSignal("NewIcon"); }}),
          .label = throttle_.add({.send = sendLabel}),
          .words = throttle_.add({.maxSignals = 2, .send = sendWords})};
}

const sd_bus_vtable* StatusNotifierItem::table() {
  constexpr auto property = answerProperty<&StatusNotifierItem::property, StatusNotifierItem>;
  constexpr auto activate = answerCall<&StatusNotifierItem::activate, StatusNotifierItem>;
  constexpr auto openWindow = answerCall<&StatusNotifierItem::openWindow, StatusNotifierItem>;
  constexpr auto ignore = answerCall<&StatusNotifierItem::ignore, StatusNotifierItem>;
  constexpr auto token = answerCall<&StatusNotifierItem::provideToken, StatusNotifierItem>;
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(0),
      // Hidden, because hosts that see the method wait for a double click before they call it.
      SD_BUS_METHOD("Activate", "ii", "", activate, SD_BUS_VTABLE_HIDDEN),
      SD_BUS_METHOD("ContextMenu", "ii", "", openWindow, 0),
      SD_BUS_METHOD("SecondaryActivate", "ii", "", openWindow, 0),
      SD_BUS_METHOD("Scroll", "is", "", ignore, 0),
      SD_BUS_METHOD("ProvideXdgActivationToken", "s", "", token, 0),
      SD_BUS_PROPERTY("Category", "s", property, 0, 0),
      SD_BUS_PROPERTY("Id", "s", property, 0, 0),
      SD_BUS_PROPERTY("Title", "s", property, 0, 0),
      SD_BUS_PROPERTY("Status", "s", property, 0, 0),
      SD_BUS_PROPERTY("WindowId", "i", property, 0, 0),
      SD_BUS_PROPERTY("IconThemePath", "s", property, 0, 0),
      SD_BUS_PROPERTY("IconName", "s", property, 0, 0),
      SD_BUS_PROPERTY("IconPixmap", "a(iiay)", property, 0, 0),
      SD_BUS_PROPERTY("IconAccessibleDesc", "s", property, 0, 0),
      SD_BUS_PROPERTY("OverlayIconName", "s", property, 0, 0),
      SD_BUS_PROPERTY("OverlayIconPixmap", "a(iiay)", property, 0, 0),
      SD_BUS_PROPERTY("AttentionIconName", "s", property, 0, 0),
      SD_BUS_PROPERTY("AttentionIconPixmap", "a(iiay)", property, 0, 0),
      SD_BUS_PROPERTY("AttentionMovieName", "s", property, 0, 0),
      SD_BUS_PROPERTY("AttentionAccessibleDesc", "s", property, 0, 0),
      SD_BUS_PROPERTY("ToolTip", "(sa(iiay)ss)", property, 0, 0),
      SD_BUS_PROPERTY("ItemIsMenu", "b", property, 0, 0),
      SD_BUS_PROPERTY("Menu", "o", property, 0, 0),
      SD_BUS_PROPERTY("XAyatanaLabel", "s", property, 0, 0),
      SD_BUS_PROPERTY("XAyatanaLabelGuide", "s", property, 0, 0),
      SD_BUS_PROPERTY("XAyatanaOrderingIndex", "u", property, 0, 0),
      SD_BUS_SIGNAL("NewTitle", "", 0),
      SD_BUS_SIGNAL("NewIcon", "", 0),
      SD_BUS_SIGNAL("NewAttentionIcon", "", 0),
      SD_BUS_SIGNAL("NewOverlayIcon", "", 0),
      SD_BUS_SIGNAL("NewToolTip", "", 0),
      SD_BUS_SIGNAL("NewStatus", "s", 0),
      SD_BUS_SIGNAL("NewIconThemePath", "s", 0),
      SD_BUS_SIGNAL("NewMenu", "", 0),
      SD_BUS_SIGNAL("XAyatanaNewLabel", "ss", 0),
      SD_BUS_VTABLE_END,
  };
  return table;
}

void StatusNotifierItem::connected(BusConnection& connection) {
  connection_ = &connection;
  object_ = connection.addObject(path, itemInterface, table(), this);
  plasmaShell_.watch(connection);
  if (shown_) watchForWatcher();
}

void StatusNotifierItem::disconnected() {
  connection_ = nullptr;
  object_.reset();
  watcher_.forget();
  watcherProgram_.query.reset();
  plasmaShell_.forget();
  hostWatch_.reset();
  registration_.reset();
  wasRead_ = false;
}

void StatusNotifierItem::show() {
  if (std::exchange(shown_, true) || connection_ == nullptr) return;
  watchForWatcher();
}

void StatusNotifierItem::watchForWatcher() {
  watcher_.watch(*connection_, [this](const std::string& owner) {
    if (!owner.empty()) {
      watcherAppeared(owner);
    } else if (!std::exchange(waitWasLogged_, true)) {
      log("no panel shows status items; waiting for one");
    }
  });
  hostWatch_ = watcher_.subscribe(
      *connection_,
      std::string("interface='") + watcherName + "',member='StatusNotifierHostRegistered'",
      [this](sd_bus_message&) { registerItem(); });
}

void StatusNotifierItem::watcherAppeared(const std::string& owner) {
  watcherProgram_.query = connection_->queryProcess(owner, [this](pid_t process) {
    watcherProgram_.panel = panelOf(programOf(process));
    registerItem();
  });
}

void StatusNotifierItem::registerItem() {
  const auto call = connection_->newCall(watcher, "RegisterStatusNotifierItem");
  sd_bus_message_set_auto_start(call.get(), 0);
  BusWriter(call.get()).append("s", path);
  registration_ = connection_->call(call, [](sd_bus_message& reply) {
    if (isError(reply)) log("could not register the status item: {}", errorText(reply));
  });
}

void StatusNotifierItem::setIcon(StatusIcon icon) {
  if (std::exchange(appearance_.icon, icon) != icon) throttle_.request(sources_.icon);
}

void StatusNotifierItem::setLabel(std::string label) {
  if (label == appearance_.label) return;
  appearance_.label = std::move(label);
  throttle_.request(sources_.label);
}

void StatusNotifierItem::setDescription(std::string description) {
  if (description == appearance_.description) return;
  appearance_.description = std::move(description);
  throttle_.request(sources_.words);
}

std::size_t StatusNotifierItem::sendSignal(const char* name,
                                           std::initializer_list<const char*> texts) const {
  if (connection_ == nullptr || !wasRead_) return 0;
  const auto signal = connection_->newSignal(path, itemInterface, name);
  BusWriter writer(signal.get());
  for (const char* text : texts) writer.append("s", text);
  connection_->send(signal);
  return 1;
}

std::string StatusNotifierItem::title() const {
  if (appearance_.description.empty()) return "Zephyl";
  return "Zephyl: " + appearance_.description;
}

int StatusNotifierItem::property(const std::string& name, BusWriter& writer) {
  wasRead_ = true;
  if (name == "IconPixmap") {
    writePixmaps(writer);
  } else if (name.ends_with("Pixmap")) {
    writer.append("a(iiay)", 0);
  } else if (name == "ToolTip") {
    writeToolTip(writer);
  } else if (name == "ItemIsMenu") {
    writer.append("b", 1);
  } else if (name == "Menu") {
    writer.append("o", DBusMenu::path);
  } else if (name == "WindowId") {
    writer.append("i", 0);
  } else if (name == "XAyatanaOrderingIndex") {
    writer.append("u", 0U);
  } else {
    writer.append("s", text(name).c_str());
  }
  return writer.status();
}

std::string StatusNotifierItem::text(std::string_view name) const {
  if (name == "Category") return "ApplicationStatus";
  if (name == "Id") return "zephyl-tray";
  if (name == "Status") return "Active";
  if (name == "Title") return withoutMarkup(title());
  if (name == "IconAccessibleDesc") return visibleLines(title());
  if (name == "IconName" && hasIconName()) return iconName(appearance_.icon);
  if (name == "IconThemePath" && icons_) return icons_->themePath;
  if (name.starts_with("XAyatanaLabel")) return visibleLines(appearance_.label);
  return "";
}

bool StatusNotifierItem::hasIconName() const {
  if (!icons_ || watcherProgram_.panel == Panel::waybar) return false;
  return watcherProgram_.panel != Panel::cinnamon || icons_->themePath.empty();
}

void StatusNotifierItem::writeToolTip(BusWriter& writer) const {
  if (watcherProgram_.panel == Panel::lxqt) {
    writer.append("(sa(iiay)ss)", "", 0, withoutMarkup(title()).c_str(), "");
    return;
  }
  writer.append("(sa(iiay)ss)", "", 0, "Zephyl", escapedMarkup(appearance_.description).c_str());
}

void StatusNotifierItem::writePixmaps(BusWriter& writer) const {
  writer.open('a', "(iiay)");
  for (const auto& [side, pixels] : pixmapsOf(appearance_.icon)) {
    writer.open('r', "iiay").append("ii", side, side);
    writer.bytes(pixels.data(), pixels.size()).close();
  }
  writer.close();
}

/// Plasma opens the menu itself, but only if this call fails.
int StatusNotifierItem::activate(sd_bus_message& call) {
  if (plasmaShell_.sent(call)) {
    return sd_bus_reply_method_errorf(&call, SD_BUS_ERROR_NOT_SUPPORTED, "the item is a menu");
  }
  return openWindow(call);
}

int StatusNotifierItem::openWindow(sd_bus_message& call) {
  listener_.activated();
  return sd_bus_reply_method_return(&call, "");
}

int StatusNotifierItem::ignore(sd_bus_message& call) {
  return sd_bus_reply_method_return(&call, "");
}

int StatusNotifierItem::provideToken(sd_bus_message& call) {
  listener_.tokenProvided(readString(call));
  return sd_bus_reply_method_return(&call, "");
}

}  // namespace zephyl
