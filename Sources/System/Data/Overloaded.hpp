#pragma once

namespace zephyl {

/// A visitor for `std::visit`, made of one function for each alternative.
template <typename... Functions>
struct Overloaded : Functions... {
  using Functions::operator()...;
};
template <typename... Functions>
Overloaded(Functions...) -> Overloaded<Functions...>;

}  // namespace zephyl
