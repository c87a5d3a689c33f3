#include "Desktop/Freedesktop/DBusMenu.hpp"

#include <algorithm>
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

/// Writes the properties that were asked for: no names mean all.
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

struct LayoutWriter {
  BusWriter& writer;
  const Names& names;
  DotStyle style;

  /// A row and `depth` levels below it; all of them when negative.
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

DBusMenu::DBusMenu(Bus& bus, Clock& clock, SignalPacer& pacer, std::string iconThemePath,
                   Listener listener)
    : bus_(bus),
      clock_(clock),
      pacer_(pacer),
      iconThemePath_(std::move(iconThemePath)),
      listener_(std::move(listener)),
      source_(pacer.add(
          {.most = 2, .interval = layoutInterval, .send = [this] { return publish(); }})) {}

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
  gnomeWatch_ = connection.watchOwner("org.gnome.Shell",
                                      [this](const std::string& owner) { gnomeShell_ = owner; });
}

void DBusMenu::disconnected() {
  connection_ = nullptr;
  object_.reset();
  gnomeWatch_.clear();
  gnomeShell_.clear();
  wasRead_ = false;
  tell(session_.hostGone());
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
  const MenuRow* row = layout_.find(parent);
  if (row == nullptr) return refuse(call, "no such item");
  const auto style = styleFor(call);
  return reply(call, [&](BusWriter& writer) {
    writer.append("u", revision_);
    LayoutWriter{writer, names, style}.write(*row, depth);
  });
}

int DBusMenu::getGroupProperties(sd_bus_message& call) {
  session_.called(clock_.now());
  auto ids = readIds(call);
  const auto names = readNames(call);
  if (ids.empty()) ids = layout_.ids();
  const auto style = styleFor(call);
  return reply(call, [&](BusWriter& writer) {
    writer.open('a', "(ia{sv})");
    for (const std::int32_t id : ids) {
      const MenuRow* row = layout_.find(id);
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
  const MenuRow* row = layout_.find(id);
  if (row == nullptr) return refuse(call, "no such item");
  const auto properties = propertiesOf(row->entry, styleFor(call));
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
  if (id == MenuLayout::rootId) {
    tell(session_.aboutToShowRoot(clock_.now()));
    watchHost(call);
  }
  return sd_bus_reply_method_return(&call, "b", 0);
}

int DBusMenu::aboutToShowGroup(sd_bus_message& call) {
  session_.called(clock_.now());
  std::vector<std::int32_t> unknown = readIds(call);
  if (std::find(unknown.begin(), unknown.end(), MenuLayout::rootId) != unknown.end()) {
    tell(session_.aboutToShowRoot(clock_.now()));
    watchHost(call);
  }
  std::erase_if(unknown, [this](std::int32_t id) { return layout_.find(id) != nullptr; });
  return reply(call, [&](BusWriter& writer) {
    writeIds(writer, {});
    writeIds(writer, unknown);
  });
}

bool DBusMenu::handle(sd_bus_message& call, std::int32_t id, const std::string& event) {
  const bool root = id == MenuLayout::rootId;
  const MenuRow* row = layout_.find(id);
  if (event == "opened") {
    tell(session_.opened(root, clock_.now()));
    watchHost(call);
  } else if (event == "closed" && root) {
    tell(session_.closedRoot());
  } else if (event == "clicked" && row != nullptr) {
    click(*row);
  }
  return row != nullptr;
}

void DBusMenu::click(const MenuRow& row) {
  if (!row.children.empty()) return;
  const auto action = row.entry->enabled ? row.entry->action : std::nullopt;
  tell(session_.clicked());
  if (action) listener_.chosen(*action);
}

void DBusMenu::tell(const MenuSession::Events& events) {
  using Event = MenuSession::Event;
  for (const auto event : events) {
    if (event == Event::needsUpdate) ++opening_;
    // What `needsUpdate` brings may still be published; `updateAnswered` ends that.
    holding_ = event == Event::willOpen && events.front() == Event::willOpen;
    listener_.session(event, opening_);
    if (event == Event::didClose && wanted_) pacer_.request(source_);
  }
  if (!events.empty() && !session_.isOpen()) {
    host_.clear();
    hostWatch_.clear();
    silence_.cancel();
  } else if (!events.empty()) {
    expireLater();
  }
}

void DBusMenu::updateAnswered(unsigned opening) {
  if (opening == opening_ && session_.isOpen()) holding_ = true;
}

void DBusMenu::watchHost(sd_bus_message& call) {
  const char* sender = sd_bus_message_get_sender(&call);
  if (connection_ == nullptr || sender == nullptr || host_ == sender) return;
  host_ = sender;
  hostWatch_ = connection_->watchOwner(host_, [this](const std::string& owner) {
    if (owner.empty()) tell(session_.hostGone());
  });
}

void DBusMenu::expireLater() {
  const auto deadline = session_.deadline();
  if (!deadline) return;
  silence_ = bus_.after(*deadline - clock_.now(), [this] {
    tell(session_.expire(clock_.now()));
    expireLater();
  });
}

void DBusMenu::setMenu(std::shared_ptr<const Menu> menu) {
  wanted_ = std::move(menu);
  if (!holding_) pacer_.request(source_);
}

std::size_t DBusMenu::publish() {
  if (!wanted_ || holding_) return 0;
  const auto difference = layout_.update(std::exchange(wanted_, nullptr));
  if (difference.structure) ++revision_;
  if (connection_ == nullptr || !wasRead_) return 0;
  std::size_t sent = 0;
  if (!difference.changes.empty()) {
    sendChanges(difference);
    ++sent;
  }
  if (difference.structure) {
    const auto signal = connection_->newSignal(path, menuInterface, "LayoutUpdated");
    BusWriter(signal.get()).append("ui", revision_, MenuLayout::rootId);
    connection_->send(signal);
    ++sent;
  }
  return sent;
}

void DBusMenu::sendChanges(const MenuLayout::Difference& difference) {
  const auto signal = connection_->newSignal(path, menuInterface, "ItemsPropertiesUpdated");
  BusWriter writer(signal.get());
  writer.open('a', "(ia{sv})");
  for (const auto& change : difference.changes) {
    writer.open('r', "ia{sv}").append("i", change.row->id);
    writeProperties(writer, changedProperties(*change.before, *change.row->entry, lastReader_), {});
    writer.close();
  }
  writer.close().append("a(ias)", 0);
  if (writer.status() >= 0) connection_->send(signal);
}

DotStyle DBusMenu::styleFor(sd_bus_message& call) {
  wasRead_ = true;
  const char* sender = sd_bus_message_get_sender(&call);
  const bool gnome = sender != nullptr && gnomeShell_ == sender;
  lastReader_ = gnome ? DotStyle::character : DotStyle::icon;
  return lastReader_;
}

}  // namespace zephyl
