#pragma once

#include <boost/describe.hpp>
#include <boost/mp11/algorithm.hpp>

#include "System/Data/JSON.hpp"

namespace zephyl::sandbox {

/// The base of a record whose JSON keys are the names of its fields, as Boost.Describe lists them:
///
///     struct Folder : Record<Folder> {
///       std::string root;
///     };
///     BOOST_DESCRIBE_STRUCT(Folder, (), (root))
template <typename Derived>
struct Record {
  template <typename Self, typename Fields>
  static void describe(Self& self, Fields& fields) {
    using Members = boost::describe::describe_members<Derived, boost::describe::mod_public>;
    boost::mp11::mp_for_each<Members>(
        [&](auto member) { fields(member.name, self.*member.pointer); });
  }
};

}  // namespace zephyl::sandbox
