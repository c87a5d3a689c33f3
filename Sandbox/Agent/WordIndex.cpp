#include "Agent/WordIndex.hpp"

#include <algorithm>
#include <array>

namespace zephyl::sandbox {
namespace {

constexpr std::size_t mostWords = 500'000;
constexpr std::size_t mostEntries = 8'000'000;
constexpr std::size_t shortestWord = 2;
constexpr std::size_t longestWord = 40;

/// What a byte is folded to inside a word; 0 when it stands between words.
constexpr std::array<char, 256> makeFolding() {
  std::array<char, 256> folding{};
  for (unsigned byte = 0; byte < folding.size(); ++byte) {
    const bool upper = byte >= 'A' && byte <= 'Z';
    const bool letter = (byte >= 'a' && byte <= 'z') || byte >= 0x80;
    const bool digit = (byte >= '0' && byte <= '9') || byte == '_';
    if (upper) folding[byte] = static_cast<char>(byte - 'A' + 'a');
    if (letter || digit) folding[byte] = static_cast<char>(byte);
  }
  return folding;
}

constexpr auto folding = makeFolding();

char fold(char character) {
  return folding[static_cast<unsigned char>(character)];
}

std::string folded(std::string_view word) {
  std::string result(word);
  std::transform(result.begin(), result.end(), result.begin(), fold);
  return result;
}

}  // namespace

void WordIndex::add(FileId file, std::string_view text) {
  ++live_;
  const auto all = folded(text);
  std::string_view rest = all;
  while (!rest.empty()) {
    const auto length = std::min(rest.find('\0'), rest.size());
    if (length >= shortestWord && length <= longestWord) addWord(file, rest.substr(0, length));
    rest.remove_prefix(std::min(length + 1, rest.size()));
  }
}

void WordIndex::addWord(FileId file, std::string_view word) {
  auto found = files_.find(word);
  if (found == files_.end()) {
    if (files_.size() >= mostWords) return;
    found = files_.try_emplace(std::string(word)).first;
    wordBytes_ += word.size();
  }
  auto& files = found->second;
  if (entries_ >= mostEntries || (!files.empty() && files.back() == file)) return;
  files.push_back(file);
  ++entries_;
}

void WordIndex::remove(FileId file) {
  --live_;
  removed_.insert(file);
  if (removed_.size() > live_ / 2 + 1000) sweep();
}

std::vector<WordIndex::FileId> WordIndex::find(std::string_view word) const {
  const auto found = files_.find(folded(word));
  if (found == files_.end()) return {};
  auto files = found->second;
  std::erase_if(files, [this](FileId file) { return removed_.contains(file); });
  return files;
}

std::size_t WordIndex::bytes() const {
  constexpr auto perWord = sizeof(std::string) + sizeof(std::vector<FileId>) + 2 * sizeof(void*);
  return entries_ * sizeof(FileId) + wordBytes_ + files_.size() * perWord;
}

void WordIndex::sweep() {
  for (auto entry = files_.begin(); entry != files_.end();) {
    entries_ -=
        std::erase_if(entry->second, [this](FileId file) { return removed_.contains(file); });
    if (entry->second.empty()) {
      wordBytes_ -= entry->first.size();
      entry = files_.erase(entry);
    } else {
      ++entry;
    }
  }
  removed_.clear();
}

}  // namespace zephyl::sandbox
