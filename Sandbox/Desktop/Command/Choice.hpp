#pragma once

#include <string>

#include <boost/json/array.hpp>

#include "Common/Result.hpp"

namespace zephyl::sandbox::desktop {

/// The id of the server that the user means: its id, its name in any case, or a beginning of an id
/// that no other has. A failure says which servers there are to choose from.
Result<std::string> chooseServer(const boost::json::array& servers, const std::string& meant);

/// The path of the folder that the user means: the path or the name of a shared folder, or else the
/// path itself, as seen from the working directory.
std::string chooseFolder(const boost::json::array& roots, const std::string& meant);

}  // namespace zephyl::sandbox::desktop
