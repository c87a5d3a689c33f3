#pragma once

#include <concepts>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zephyl {

/// The color of the dot before an entry, which shows a state.
enum class DotColor { grey, green, orange, red };

/// What choosing an entry asks for: a value of a type of the program's own, which a desktop hands
/// back unread. An immutable value; copies share it. Any thread.
class MenuAction {
 public:
  /// `Value` can be copied and compared.
  template <std::equality_comparable Value>
    requires(!std::same_as<Value, MenuAction>)
  explicit MenuAction(Value value)
      : content_(std::make_shared<const Holder<Value>>(std::move(value))) {}

  /// Returns the value, or null if it is of another type. Valid as long as a copy of this exists.
  template <typename Value>
  [[nodiscard]] const Value* as() const {
    const auto* const holder = dynamic_cast<const Holder<Value>*>(content_.get());
    return holder != nullptr ? &holder->value : nullptr;
  }

  /// Whether type and value are the same.
  bool operator==(const MenuAction& other) const {
    return content_ == other.content_ || content_->equals(*other.content_);
  }

 private:
  struct Content {
    Content() = default;
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;
    virtual ~Content() = default;
    [[nodiscard]] virtual bool equals(const Content& other) const = 0;
  };
  template <typename Value>
  struct Holder final : Content {
    explicit Holder(Value held) : value(std::move(held)) {}
    [[nodiscard]] bool equals(const Content& other) const override {
      const auto* const same = dynamic_cast<const Holder*>(&other);
      return same != nullptr && same->value == value;
    }
    const Value value;
  };

  std::shared_ptr<const Content> content_;
};

/// One row of a menu. A value: equal entries look and act the same.
struct MenuEntry {
  enum class Kind { item, separator };

  /// What the row means, unique among its siblings: as long as a row means the same thing it keeps
  /// its key, whatever its title says, and another meaning never gets it.
  std::string key;
  Kind kind = Kind::item;
  std::string title;            ///< plain text, without the dot
  std::optional<DotColor> dot;  ///< a dot line: the dot, then the title in bold
  bool enabled = true;          ///< a disabled row is information
  std::string keyEquivalent;    ///< one letter, pressed with Control; empty for none
  std::optional<MenuAction> action;
  std::vector<MenuEntry> submenu;  ///< empty for none

  bool operator==(const MenuEntry&) const = default;
};

using Menu = std::vector<MenuEntry>;

}  // namespace zephyl
