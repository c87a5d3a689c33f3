#pragma once

#include <string_view>

#include "System/Data/Secret.hpp"

namespace zephyl {

/// An input of the user at the terminal.
struct Key {
  enum class Kind {
    character,  ///< in `text`
    paste,      ///< the whole text in `text`
    control,    ///< with the letter in `text`, in lower case
    enter,
    escape,
    tab,
    backTab,
    backspace,
    remove,  ///< deletes the character at the cursor
    up,
    down,
    left,
    right,
    home,
    end,
    pageUp,
    pageDown,
    press,  ///< of the mouse's first button, at `row` and `column`
    wheelUp,
    wheelDown,
    focusIn,  ///< not a key: the terminal has become active
  };

  Kind kind = Kind::character;
  SecretString text;
  int row = 0;  ///< from 0
  int column = 0;

  [[nodiscard]] bool is(std::string_view character) const {
    return kind == Kind::character && text == character;
  }
  bool operator==(const Key&) const = default;
};

}  // namespace zephyl
