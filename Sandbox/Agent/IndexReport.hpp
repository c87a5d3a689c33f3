#pragma once

#include <cstdint>
#include <string>

namespace zephyl::sandbox {

/// What is known about one folder's lexical index at one moment.
struct IndexReport {
  std::string root;
  /// The folder was walked to its end and nothing waits to be read.
  bool ready = false;
  /// A walk through the whole folder ends with this report.
  bool walked = false;
  /// The folder is not there at present; it is looked for again.
  bool missing = false;
  std::int64_t files = 0;
  std::int64_t bytes = 0;
  /// Pieces that the files would be cut into for embedding.
  std::int64_t chunks = 0;
  std::int64_t indexBytes = 0;

  // Since the report before, once the first walk is over:
  /// Files that came, went or got another content.
  std::int64_t changed = 0;
  /// Those of them that were there before and still are.
  std::int64_t rewritten = 0;
  /// One of them, relative to the folder.
  std::string changedPath;
};

}  // namespace zephyl::sandbox
