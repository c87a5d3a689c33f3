#pragma once

#include <string>

#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

/// The standard descriptors of a command.
namespace zephyl::commandTerminal {

/// Returns whether the user can be prompted: standard input and standard error are a terminal.
bool canAsk();

/// Shows `question` and returns the line that the user types. Discards input from before the
/// question. Requires `canAsk`.
std::string ask(const std::string& question);

/// Reads an invite key from standard input: one line of up to 4 KiB, without surrounding blanks. If
/// standard input is a terminal, prompts for the key and disables echo.
Result<SecretString> readKey();

/// Writes to standard output. Returns false on failure.
bool print(const std::string& text);
/// Writes "zephyl-tray: MESSAGE" to standard error.
void complain(const std::string& message);
/// Does the same and returns the exit status of a failed command.
int fail(const std::string& message);

}  // namespace zephyl::commandTerminal
