#pragma once

#include <chrono>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "System/Data/Result.hpp"

namespace zephyl {

/// Files and directories. Every error names the path and the reason. Callable from any thread.

/// Returns `base` and `component` joined by exactly one separator. If one of them is empty, returns
/// the other.
std::string joinPath(std::string_view base, std::string_view component);

/// Returns `path` without its last component: "." for a bare name, "/" for an entry of the root.
std::string parentDirectory(std::string_view path);

/// Returns whether something exists at `path`. Follows links.
bool fileExists(const std::string& path);
/// Returns whether both paths name the same file, false if either file does not exist. Follows
/// links.
bool isSameFile(const std::string& one, const std::string& other);
bool isDirectory(const std::string& path);
/// Returns whether `path` is a regular file that this process may execute.
bool isExecutableFile(const std::string& path);

/// The largest file that `readFile` accepts, in bytes: far more than any file of this program.
inline constexpr std::size_t maxReadableFile = std::size_t{64} << 20;

/// Returns the contents of a regular file. Anything else, or a larger file, is an error.
Result<std::string> readFile(const std::string& path);

/// Creates `path` and its missing parents. New directories get exactly `mode`.
Result<void> createDirectories(const std::string& path, mode_t mode = 0700);

/// Whether a file's bytes are flushed to disk before the file is renamed.
enum class Durability { flushed, unflushed };

/// Replaces the file at `path` so that a reader sees either the whole old file or the whole new
/// one, even after a crash. Writes a temporary file in the same directory (mode 0600), flushes it
/// if requested, renames it over the old file and flushes the directory. Removes the temporary file
/// on failure. After the rename the file counts as saved: a failure to flush the directory is only
/// logged.
///
/// A symbolic link at `path` stays. The file it points to is replaced or created, in that file's
/// directory.
Result<void> writeFileAtomically(const std::string& path, std::string_view bytes,
                                 Durability durability);

/// Does the same, but replaces a symbolic link at `path`. For directories where others may have
/// created one.
Result<void> replaceFile(const std::string& path, std::string_view bytes, Durability durability);

/// Copies a file that could not be decoded to "<path>.unreadable-<fileTimestamp>", so that the next
/// save does not destroy its contents. Adds a number if that name exists. The copy has mode 0600
/// and is flushed. If copying fails, because the file cannot be read or the disk is full, for
/// example, creates a hard link of that name instead, except in a shortage. Returns the path of the
/// copy.
Result<std::string> copyAside(const std::string& path);

/// Moves a file or directory to `to`, which must not exist, across file systems if necessary. In
/// that case sockets and other special files are not copied, and are deleted with the original.
Result<void> movePath(const std::string& from, const std::string& to);

/// Deletes the file, or the directory with its contents, at `path`. Does not follow links. Succeeds
/// if nothing exists there.
Result<void> removePath(const std::string& path);

/// Returns "yyyyMMdd-HHmmss" in local time, for file names.
std::string fileTimestamp(std::chrono::system_clock::time_point time);

}  // namespace zephyl
