#pragma once

#include <string>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace zephyl::sandbox::desktop {

// What the answers of the control API look like to a human. A field that is missing shows as
// nothing.

std::string statusReport(const boost::json::object& status);
std::string serversReport(const boost::json::array& servers);
/// The servers give the names of those that a folder is shared with.
std::string foldersReport(const boost::json::array& roots, const boost::json::array& servers);
/// Any JSON, indented: for what is to be read but has no form of its own.
std::string outline(const boost::json::value& value);

}  // namespace zephyl::sandbox::desktop
