#pragma once

#include <string>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

namespace zephyl {

enum class FindingState {
  ok,
  note,   ///< worth knowing, and not wrong
  wrong,  ///< something does not work because of it
};
BOOST_DESCRIBE_ENUM(FindingState, ok, note, wrong)

/// What one check of the environment has found.
struct Finding {
  std::string check;  ///< stable, such as "session bus"
  FindingState state = FindingState::ok;
  std::string message;
  std::string advice;  ///< what to do; empty if there is nothing to do

  bool operator==(const Finding&) const = default;
};
BOOST_DESCRIBE_STRUCT(Finding, (), (check, state, message, advice))

using Findings = std::vector<Finding>;

}  // namespace zephyl
