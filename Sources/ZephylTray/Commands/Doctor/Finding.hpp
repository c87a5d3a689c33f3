#pragma once

#include <string>
#include <vector>

#include <boost/describe/class.hpp>
#include <boost/describe/enum.hpp>

namespace zephyl {

/// The severity of a finding.
enum class FindingState {
  ok,
  note,   ///< information about something that is not wrong
  wrong,  ///< a problem that affects the user
};
BOOST_DESCRIBE_ENUM(FindingState, ok, note, wrong)

/// The result of one check of the environment.
struct Finding {
  std::string check;  ///< stable, such as "session bus"
  FindingState state = FindingState::ok;
  std::string message;
  std::string advice;  ///< what to do about it; may be empty

  bool operator==(const Finding&) const = default;
};
BOOST_DESCRIBE_STRUCT(Finding, (), (check, state, message, advice))

using Findings = std::vector<Finding>;

}  // namespace zephyl
