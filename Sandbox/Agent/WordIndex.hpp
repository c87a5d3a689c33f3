#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace zephyl::sandbox {

/// An inverted index: which files hold which words. Words are runs of letters, digits and "_", 2 to
/// 40 bytes long, compared without regard to the case of ASCII letters; bytes beyond ASCII are
/// letters. Bounded to 500 000 words and 8 000 000 entries: what comes after is left out.
class WordIndex {
 public:
  using FileId = std::uint32_t;

  /// Takes the words of a file that has not been added before; ids must grow from call to call.
  void add(FileId file, std::string_view text);
  void remove(FileId file);

  std::vector<FileId> find(std::string_view word) const;

  /// About how much memory the index takes.
  std::size_t bytes() const;

 private:
  struct Hash {
    using is_transparent = void;  // NOLINT(readability-identifier-naming)
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };

  void addWord(FileId file, std::string_view word);
  void sweep();

  std::unordered_map<std::string, std::vector<FileId>, Hash, std::equal_to<>> files_;
  /// Removed, but still listed by words until the next sweep.
  std::unordered_set<FileId> removed_;
  std::size_t live_ = 0;
  std::size_t entries_ = 0;
  std::size_t wordBytes_ = 0;
};

}  // namespace zephyl::sandbox
