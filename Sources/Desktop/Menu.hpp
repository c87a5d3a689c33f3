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

/// The action of an entry: a value of any type of the program, which an adapter returns unread when
/// the entry is chosen. Immutable. Copies share the value. Callable from any thread.
class MenuAction {
 public:
  /// `Value` must be copyable and comparable.
  template <std::equality_comparable Value>
    requires(!std::same_as<Value, MenuAction>)
  explicit MenuAction(Value value)
      : content_(std::make_shared<const Holder<Value>>(std::move(value))) {}

  /// Returns the value, or null if it has another type. It is valid while a copy of this exists.
  template <typename Value>
  [[nodiscard]] const Value* as() const {
    const auto* const holder = dynamic_cast<const Holder<Value>*>(content_.get());
    return holder != nullptr ? &holder->value : nullptr;
  }

  /// Returns whether type and value are equal.
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

  /// The identity of the row, unique among its siblings. A row with the same meaning keeps its key
  /// when its title changes, and a key is never reused for another meaning.
  std::string key;
  Kind kind = Kind::item;
  std::string title;            ///< plain text, without the dot
  std::optional<DotColor> dot;  ///< if set, the title is shown in bold after the dot
  bool enabled = true;          ///< a disabled row only shows information
  std::string shortcut;         ///< one letter, pressed with Control; may be empty
  std::optional<MenuAction> action;
  std::vector<MenuEntry> submenu;  ///< empty for no submenu

  bool operator==(const MenuEntry&) const = default;
};

using Menu = std::vector<MenuEntry>;

}  // namespace zephyl
