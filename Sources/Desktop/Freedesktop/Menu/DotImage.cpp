#include <span>

#include "Desktop/Freedesktop/Menu/MenuProperties.hpp"
#include "DotImages.hpp"

namespace zephyl {

namespace {

std::string_view textOf(std::span<const unsigned char> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace

std::string_view dotImage(DotColor color) {
  switch (color) {
    case DotColor::green:
      return textOf(images::greenDot);
    case DotColor::orange:
      return textOf(images::orangeDot);
    case DotColor::red:
      return textOf(images::redDot);
    case DotColor::grey:
      break;
  }
  return textOf(images::greyDot);
}

}  // namespace zephyl
