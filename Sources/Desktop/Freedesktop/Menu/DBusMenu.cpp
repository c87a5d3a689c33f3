#include "Desktop/Freedesktop/Menu/DBusMenu.hpp"

#include <algorithm>
#include <map>
#include <optional>
#include <utility>

namespace zephyl {

namespace {

constexpr const char* menuInterface = "com.canonical.dbusmenu";
constexpr std::uint32_t protocolVersion = 3;

using Names = std::vector<std::string>;

Names readNames(sd_bus_message& call) {
  Names names;
  if (sd_bus_message_enter_container(&call, 'a', "s") <= 0) return names;
  const char* name = nullptr;
  while (sd_bus_message_read_basic(&call, 's', &name) > 0) names.emplace_back(name);
  sd_bus_message_exit_container(&call);
  return names;
}

std::vector<std::int32_t> readIds(sd_bus_message& call) {
  std::vector<std::int32_t> ids;
  if (sd_bus_message_enter_container(&call, 'a', "i") <= 0) return ids;
  std::int32_t id = 0;
  while (sd_bus_message_read_basic(&call, 'i', &id) > 0) ids.push_back(id);
  sd_bus_message_exit_container(&call);
  return ids;
}

void writeIds(BusWriter& writer, const std::vector<std::int32_t>& ids) {
  writer.open('a', "i");
  for (const std::int32_t id : ids) writer.append("i", id);
  writer.close();
}

/// Writes a value as a variant.
struct ValueWriter {
  BusWriter& writer;

  void operator()(const std::string& text) const { writer.append("v", "s", text.c_str()); }
  void operator()(bool flag) const { writer.append("v", "b", static_cast<int>(flag)); }
  void operator()(const ImageBytes& image) const {
    writer.open('v', "ay").bytes(image.bytes.data(), image.bytes.size()).close();
  }
  void operator()(const Shortcut& shortcut) const {
    writer.append("v", "aas", 1, 2, "Control", shortcut.letter.c_str());
  }
};

/// Writes the properties with the given names, or all if there are no names.
void writeProperties(BusWriter& writer, const std::vector<MenuProperty>& properties,
                     const Names& names) {
  writer.open('a', "{sv}");
  for (const auto& property : properties) {
    if (!names.empty() && std::find(names.begin(), names.end(), property.name) == names.end()) {
      continue;
    }
    writer.open('e', "sv").append("s", property.name.data());
    std::visit(ValueWriter{writer}, property.value);
    writer.close();
  }
  writer.close();
}

/// Writes the names of properties that rows no longer have, by the ids of the rows.
void writeRemoved(BusWriter& writer,
                  const std::map<std::int32_t, std::vector<std::string_view>>& removed) {
  writer.open('a', "(ias)");
  for (const auto& [id, names] : removed) {
    writer.open('r', "ias").append("i", id).open('a', "s");
    for (const auto name : names) writer.append("s", name.data());
    writer.close().close();
  }
  writer.close();
}

struct LayoutWriter {
  BusWriter& writer;
  const Names& names;
  DotStyle style;

  /// Writes a row and `depth` levels below it, or all levels if `depth` is negative.
  void write(const MenuRow& row, int depth) const {
    writer.open('r', "ia{sv}av").append("i", row.id);
    writeProperties(writer, propertiesOf(row.entry, style), names);
    writer.open('a', "v");
    if (depth != 0) {
      for (const auto& child : row.children) {
        writer.open('v', "(ia{sv}av)");
        write(child, depth - 1);
        writer.close();
      }
    }
    writer.close().close();
  }
};

int refuse(sd_bus_message& call, const char* message) {
  return sd_bus_reply_method_errorf(&call, SD_BUS_ERROR_INVALID_ARGS, "%s", message);
}

}  // namespace

DBusMenu::DBusMenu(Bus& bus, Clock& clock, BusSignalThrottle& throttle, std::string iconThemePath,
                   Listener listener)
    : bus_(bus),
      clock_(clock),
      throttle_(throttle),
      iconThemePath_(std::move(iconThemePath)),
      listener_(std::move(listener)),
      source_(throttle.add(
          {.maxSignals = 2, .interval = layoutInterval, .send = [this] { return publish(); }})) {}

const sd_bus_vtable* DBusMenu::table() {
  constexpr auto property = answerProperty<&DBusMenu::property, DBusMenu>;
  static const sd_bus_vtable table[] = {
      SD_BUS_VTABLE_START(0),
      SD_BUS_METHOD("GetLayout", "iias", "u(ia{sv}av)",
                    (answerCall<&DBusMenu::getLayout, DBusMenu>), 0),
      SD_BUS_METHOD("GetGroupProperties", "aias", "a(ia{sv})",
                    (answerCall<&DBusMenu::getGroupProperties, DBusMenu>), 0),
      SD_BUS_METHOD("GetProperty", "is", "v", (answerCall<&DBusMenu::getProperty, DBusMenu>), 0),
      SD_BUS_METHOD("Event", "isvu", "", (answerCall<&DBusMenu::event, DBusMenu>), 0),
      SD_BUS_METHOD("EventGroup", "a(isvu)", "ai", (answerCall<&DBusMenu::eventGroup, DBusMenu>),
                    0),
      SD_BUS_METHOD("AboutToShow", "i", "b", (answerCall<&DBusMenu::aboutToShow, DBusMenu>), 0),
      SD_BUS_METHOD("AboutToShowGroup", "ai", "aiai",
                    (answerCall<&DBusMenu::aboutToShowGroup, DBusMenu>), 0),
      SD_BUS_PROPERTY("Version", "u", property, 0, 0),
      SD_BUS_PROPERTY("TextDirection", "s", property, 0, 0),
      SD_BUS_PROPERTY("Status", "s", property, 0, 0),
      SD_BUS_PROPERTY("IconThemePath", "as", property, 0, 0),
      SD_BUS_SIGNAL("ItemsPropertiesUpdated", "a(ia{sv})a(ias)", 0),
      SD_BUS_SIGNAL("LayoutUpdated", "ui", 0),
      SD_BUS_SIGNAL("ItemActivationRequested", "iu", 0),
      SD_BUS_VTABLE_END,
  };
  return table;
}

void DBusMenu::connected(BusConnection& connection) {
  connection_ = &connection;
  object_ = connection.addObject(path, menuInterface, table(), this);
  readers_.connected(connection);
}

void DBusMenu::disconnected() {
  connection_ = nullptr;
  object_.reset();
  readers_.disconnected();
  notify(session_.hostGone());
}

int DBusMenu::property(const std::string& name, BusWriter& writer) {
  if (name == "Version") return writer.append("u", protocolVersion).status();
  if (name == "TextDirection") return writer.append("s", "ltr").status();
  if (name == "Status") return writer.append("s", "normal").status();
  if (iconThemePath_.empty()) return writer.append("as", 0).status();
  return writer.append("as", 1, iconThemePath_.c_str()).status();
}

int DBusMenu::getLayout(sd_bus_message& call) {
  session_.called(clock_.now());
  std::int32_t parent = 0;
  std::int32_t depth = 0;
  if (const int read = sd_bus_message_read(&call, "ii", &parent, &depth); read < 0) return read;
  const auto names = readNames(call);
  update();
  const MenuRow* row = published_.layout().find(parent);
  if (row == nullptr) return refuse(call, "no such item");
  const auto unread = readers_.unread(call, *row, depth);
  const auto style = readers_.styleFor(call);
  const int sent = reply(call, [&](BusWriter& writer) {
    writer.append("u", published_.revision());
    LayoutWriter{writer, names, style}.write(*row, depth);
  });
  for (const std::int32_t menu : unread) sendLayoutUpdated(menu);
  return sent;
}

int DBusMenu::getGroupProperties(sd_bus_message& call) {
  session_.called(clock_.now());
  auto ids = readIds(call);
  const auto names = readNames(call);
  update();
  if (ids.empty()) ids = published_.layout().ids();
  const auto style = readers_.styleFor(call);
  return reply(call, [&](BusWriter& writer) {
    writer.open('a', "(ia{sv})");
    for (const std::int32_t id : ids) {
      const MenuRow* row = published_.layout().find(id);
      if (row == nullptr) continue;
      writer.open('r', "ia{sv}").append("i", id);
      writeProperties(writer, propertiesOf(row->entry, style), names);
      writer.close();
    }
    writer.close();
  });
}

int DBusMenu::getProperty(sd_bus_message& call) {
  session_.called(clock_.now());
  std::int32_t id = 0;
  if (const int read = sd_bus_message_read(&call, "i", &id); read < 0) return read;
  const auto name = readString(call);
  update();
  const MenuRow* row = published_.layout().find(id);
  if (row == nullptr) return refuse(call, "no such item");
  const auto properties = propertiesOf(row->entry, readers_.styleFor(call));
  const auto found = std::find_if(properties.begin(), properties.end(),
                                  [&](const auto& each) { return each.name == name; });
  if (found == properties.end()) return refuse(call, "no such property");
  return reply(call, [&](BusWriter& writer) { std::visit(ValueWriter{writer}, found->value); });
}

int DBusMenu::event(sd_bus_message& call) {
  session_.called(clock_.now());
  std::int32_t id = 0;
  const char* name = nullptr;
  if (const int read = sd_bus_message_read(&call, "is", &id, &name); read < 0) return read;
  handle(call, id, name);
  return sd_bus_reply_method_return(&call, "");
}

int DBusMenu::eventGroup(sd_bus_message& call) {
  session_.called(clock_.now());
  std::vector<std::int32_t> unknown;
  if (const int entered = sd_bus_message_enter_container(&call, 'a', "(isvu)"); entered < 0) {
    return entered;
  }
  while (sd_bus_message_enter_container(&call, 'r', "isvu") > 0) {
    std::int32_t id = 0;
    const char* name = nullptr;
    if (const int read = sd_bus_message_read(&call, "is", &id, &name); read < 0) return read;
    if (!handle(call, id, name)) unknown.push_back(id);
    sd_bus_message_skip(&call, "vu");
    sd_bus_message_exit_container(&call);
  }
  return reply(call, [&](BusWriter& writer) { writeIds(writer, unknown); });
}

int DBusMenu::aboutToShow(sd_bus_message& call) {
  session_.called(clock_.now());
  std::int32_t id = 0;
  if (const int read = sd_bus_message_read(&call, "i", &id); read < 0) return read;
  if (id == MenuLayout::rootId) announced(call);
  return sd_bus_reply_method_return(&call, "b", 0);
}

int DBusMenu::aboutToShowGroup(sd_bus_message& call) {
  session_.called(clock_.now());
  std::vector<std::int32_t> unknown = readIds(call);
  if (std::find(unknown.begin(), unknown.end(), MenuLayout::rootId) != unknown.end()) {
    announced(call);
  }
  std::erase_if(unknown,
                [this](std::int32_t id) { return published_.layout().find(id) != nullptr; });
  return reply(call, [&](BusWriter& writer) {
    writeIds(writer, {});
    writeIds(writer, unknown);
  });
}

bool DBusMenu::handle(sd_bus_message& call, std::int32_t id, const std::string& event) {
  const bool root = id == MenuLayout::rootId;
  const MenuRow* row = published_.layout().find(id);
  if (event == "closed" && root) {
    notify(session_.closedRoot(senderOf(call)));
  } else if (listener_.isBusy()) {
    return false;
  } else if (event == "opened") {
    notify(session_.opened(senderOf(call), root, clock_.now()));
  } else if (event == "clicked" && row != nullptr) {
    click(*row);
  }
  return row != nullptr;
}

void DBusMenu::announced(sd_bus_message& call) {
  if (listener_.isBusy()) return;
  notify(session_.aboutToShowRoot(senderOf(call), clock_.now()));
}

void DBusMenu::click(const MenuRow& row) {
  if (!row.children.empty()) return;
  const auto action = row.entry->enabled ? row.entry->action : std::nullopt;
  notify(session_.clicked());
  if (action) listener_.chosen(*action);
}

void DBusMenu::notify(const MenuSession::Events& events) {
  using Event = MenuSession::Event;
  for (const auto event : events) {
    if (event == Event::needsUpdate) ++opening_;
    // The menu for `needsUpdate` may still be published. `updateAnswered` ends that.
    published_.setHeld(event == Event::willOpen && events.front() == Event::willOpen);
    listener_.session(event, opening_);
    if (event == Event::didClose && published_.isOutdated()) throttle_.request(source_);
  }
  watchHost();
  expireLater();
}

void DBusMenu::updateAnswered(unsigned opening) {
  if (opening != opening_ || !session_.isOpen()) return;
  // The user is looking at the menu, so the signals are not delayed.
  throttle_.sendNow(source_);
  published_.setHeld(true);
}

void DBusMenu::watchHost() {
  if (session_.host() == host_.name) return;
  host_ = {.name = session_.host(), .slots = {}};
  if (connection_ == nullptr || host_.name.empty()) return;
  host_.slots = connection_->watchOwner(host_.name, [this](const std::string& owner) {
    if (owner.empty()) notify(session_.hostGone());
  });
}

void DBusMenu::expireLater() {
  silence_.cancel();
  const auto deadline = session_.deadline();
  if (!deadline) return;
  silence_ =
      bus_.after(*deadline - clock_.now(), [this] { notify(session_.expire(clock_.now())); });
}

void DBusMenu::setMenu(std::shared_ptr<const Menu> menu) {
  published_.set(std::move(menu));
  if (!published_.isHeld()) throttle_.request(source_);
}

void DBusMenu::update() {
  if (published_.update()) readers_.retain(published_.layout());
}

std::size_t DBusMenu::publish() {
  update();
  std::size_t sent = 0;
  auto& changes = published_.changes();
  if (connection_ != nullptr && readers_.any()) {
    if (sendProperties()) ++sent;
    for (const std::int32_t menu : changes.menus()) {
      if (published_.layout().find(menu) != nullptr) sendLayoutUpdated(menu);
    }
    if (!changes.menus().empty()) ++sent;
  }
  changes.clear();
  return sent;
}

bool DBusMenu::sendProperties() {
  const auto signal = connection_->newSignal(path, menuInterface, "ItemsPropertiesUpdated");
  BusWriter writer(signal.get());
  const auto style = readers_.lastStyle();
  std::map<std::int32_t, std::vector<std::string_view>> removed;
  bool any = false;
  writer.open('a', "(ia{sv})");
  for (const auto& [id, before] : published_.changes().before()) {
    const MenuRow* row = published_.layout().find(id);
    if (row == nullptr) continue;
    if (auto names = removedProperties(*before, *row->entry, style); !names.empty()) {
      removed.emplace(id, std::move(names));
    }
    const auto changed = changedProperties(*before, *row->entry, style);
    if (changed.empty()) continue;
    any = true;
    writer.open('r', "ia{sv}").append("i", id);
    writeProperties(writer, changed, {});
    writer.close();
  }
  writer.close();
  writeRemoved(writer, removed);
  any = any || !removed.empty();
  if (any && writer.status() >= 0) connection_->send(signal);
  return any;
}

void DBusMenu::sendLayoutUpdated(std::int32_t menu) {
  const auto signal = connection_->newSignal(path, menuInterface, "LayoutUpdated");
  BusWriter(signal.get()).append("ui", published_.revision(), menu);
  connection_->send(signal);
}

}  // namespace zephyl
