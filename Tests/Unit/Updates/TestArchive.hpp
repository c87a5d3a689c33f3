#pragma once

#include <string>
#include <string_view>

#include <zlib.h>

#include "System/Data/Format.hpp"

namespace zephyl::test {

/// Builds a tar of the format "ustar", field by field, so that a test can create invalid archives.
class TestArchive {
 public:
  static constexpr std::size_t block = 512;

  TestArchive& add(std::string_view name, std::string_view contents, char type = '0',
                   std::string_view target = "", std::string_view mode = "0000755") {
    std::string header(block, '\0');
    put(header, 0, name);
    put(header, 100, mode);
    put(header, 124, formatText("{:011o}", contents.size()));
    header[156] = type;
    put(header, 157, target);
    put(header, 257, std::string_view("ustar\00000", 8));
    seal(header);
    bytes_ += header;
    bytes_ += contents;
    bytes_.append((block - contents.size() % block) % block, '\0');
    return *this;
  }
  /// Adds an entry with the name in two parts.
  TestArchive& addSplit(std::string_view prefix, std::string_view name) {
    add(name, "");
    std::string header = bytes_.substr(bytes_.size() - block);
    put(header, 345, prefix);
    seal(header);
    bytes_.replace(bytes_.size() - block, block, header);
    return *this;
  }

  /// Returns the archive without its end.
  [[nodiscard]] const std::string& open() const { return bytes_; }
  [[nodiscard]] std::string tar() const { return bytes_ + std::string(2 * block, '\0'); }
  [[nodiscard]] std::string compressed() const { return gzip(tar()); }

  static std::string gzip(std::string text) {
    z_stream stream{};
    deflateInit2(&stream, 1, Z_DEFLATED, MAX_WBITS + 16, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, text.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(text.data());
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(packed.size() - stream.avail_out);
    deflateEnd(&stream);
    return packed;
  }

 private:
  static void put(std::string& header, std::size_t offset, std::string_view text) {
    header.replace(offset, text.size(), text);
  }
  static void seal(std::string& header) {
    put(header, 148, "        ");
    unsigned sum = 0;
    for (const char byte : header) sum += static_cast<unsigned char>(byte);
    put(header, 148, formatText("{:06o}", sum) + std::string("\0 ", 2));
  }

  std::string bytes_;
};

}  // namespace zephyl::test
