#pragma once

#include <string>

#include "System/Data/Result.hpp"
#include "System/Data/Secret.hpp"

/// The standard descriptors of a command, when a person may sit at them.
namespace zephyl::commandTerminal {

/// Whether a person can be asked: standard input and standard error are a terminal.
bool canAsk();

/// Shows `question` and reads the line that is typed in answer. What was typed before the question
/// appeared does not count. Requires `canAsk`.
std::string ask(const std::string& question);

/// Reads an invite key from standard input: a line, up to 4 KiB, without blanks around it. Asks for
/// it if that is a terminal, which then does not show what is typed.
Result<SecretString> readKey();

/// Writes to standard output. Returns false if nobody takes it.
bool print(const std::string& text);
/// Writes "zephyl-tray: MESSAGE" to standard error.
void complain(const std::string& message);

}  // namespace zephyl::commandTerminal
