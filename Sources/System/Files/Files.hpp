#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// Files and directories. Every error names the path and says why. Callable from any thread.

/// `base` and `component` with exactly one separator between them; the other one alone when one
/// of them is empty.
std::string joinPath(std::string_view base, std::string_view component);

/// `path` without its last component: "." for a bare name, "/" for what lies in the root.
std::string parentDirectory(std::string_view path);

/// Whether something exists at `path` (links followed).
bool fileExists(const std::string& path);
/// Returns whether both paths name the same file (links followed). False if either names none.
bool isSameFile(const std::string& one, const std::string& other);
bool isDirectory(const std::string& path);
/// A regular file that this process may execute.
bool isExecutableFile(const std::string& path);

/// What `readFile` takes at most, in bytes: far more than any file that this program reads.
inline constexpr std::size_t maxReadableFile = std::size_t{64} << 20;

/// The whole of a regular file. Anything else, a larger file among it, is an error.
Result<std::string> readFile(const std::string& path);

/// Creates `path` and what is missing above it; new directories get exactly `mode`.
Result<void> createDirectories(const std::string& path, mode_t mode = 0700);

/// Whether a file's bytes are forced to disk before it takes its name.
enum class Durability { flushed, unflushed };

/// Puts `bytes` at `path` so that a reader, also after a crash, sees the old file or the new one,
/// whole: written to a temporary file in the same directory (mode 0600), flushed if asked,
/// renamed over the old one, directory flushed. The temporary is removed on failure. Once the file
/// has its name it is saved: when the directory cannot be flushed afterwards, one line is logged.
///
/// A symbolic link at `path` stays: the file that it points to is replaced, or made if there is
/// none, in that file's own directory.
Result<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                 Durability durability);

/// The same, but a symbolic link at `path` is what gets replaced: for directories where others may
/// have put one.
Result<void> replaceFile(const std::string& path, std::string_view bytes, Durability durability);

/// Copies a file that could not be understood to "<path>.unreadable-<fileTimestamp>", so that the
/// next save cannot destroy what it held; a number is added when that name is taken. The copy has
/// mode 0600 and is flushed. Where copying fails, be it that the file cannot be read or that the
/// disk is full, the file gets the new name as a hard link. Returns the path of the copy.
Result<std::string> copyAside(const std::string& path);

/// Moves a file or directory to `to`, which must not exist, from another file system if need be;
/// then sockets and the like stay behind and go with the original.
Result<void> movePath(const std::string& from, const std::string& to);

/// Deletes what is at `path`, a directory with all that is in it; links are not followed. Nothing
/// there is a success.
Result<void> removePath(const std::string& path);

/// "yyyyMMdd-HHmmss" in local time, for names of files.
std::string fileTimestamp(std::chrono::system_clock::time_point time);

}  // namespace zephyl
