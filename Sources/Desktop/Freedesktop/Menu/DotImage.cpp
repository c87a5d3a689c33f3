#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include <boost/crc.hpp>

#include "Desktop/Freedesktop/Menu/MenuProperties.hpp"

// The images are so small that they are stored, not compressed: four bits for a pixel, which
// index a palette of one colour from transparent to opaque.

namespace zephyl {

namespace {

constexpr int side = 16;
constexpr double dotRadius = 4.75;
constexpr unsigned levels = 16;

void appendNumber(std::string& bytes, std::uint32_t number) {
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift);
}

std::string chunk(const std::string& typeAndData) {
  std::string bytes;
  appendNumber(bytes, static_cast<std::uint32_t>(typeAndData.size() - 4));
  bytes += typeAndData;
  boost::crc_32_type checksum;
  checksum.process_bytes(typeAndData.data(), typeAndData.size());
  appendNumber(bytes, checksum.checksum());
  return bytes;
}

std::uint32_t adler32(const std::string& data) {
  constexpr std::uint32_t modulus = 65521;
  std::uint32_t sum = 1;
  std::uint32_t sumOfSums = 0;
  for (const char byte : data) {
    sum = (sum + static_cast<unsigned char>(byte)) % modulus;
    sumOfSums = (sumOfSums + sum) % modulus;
  }
  return sumOfSums << 16 | sum;
}

/// A zlib stream of one stored block.
std::string stored(const std::string& data) {
  const auto size = static_cast<std::uint16_t>(data.size());
  std::string stream("\x78\x01\x01", 3);
  for (const std::uint16_t number : {size, static_cast<std::uint16_t>(~size)}) {
    stream += static_cast<char>(number & 0xff);
    stream += static_cast<char>(number >> 8);
  }
  stream += data;
  appendNumber(stream, adler32(data));
  return stream;
}

/// How much of a pixel the disc covers, as a level.
unsigned coverage(int x, int y) {
  const double fromEdge = dotRadius - std::hypot(x - (side - 1) / 2.0, y - (side - 1) / 2.0) + 0.5;
  return static_cast<unsigned>(std::lround(std::clamp(fromEdge, 0.0, 1.0) * (levels - 1)));
}

std::string disc() {
  std::string rows;
  for (int y = 0; y < side; ++y) {
    rows += '\0';  // no filter
    for (int x = 0; x < side; x += 2) {
      rows += static_cast<char>(coverage(x, y) << 4 | coverage(x + 1, y));
    }
  }
  return rows;
}

std::string draw(std::uint32_t color) {
  std::string header = "IHDR";
  appendNumber(header, side);
  appendNumber(header, side);
  header.append("\x04\x03\0\0\0", 5);  // four bits, palette
  std::string palette = "PLTE";
  std::string opacity = "tRNS";
  for (unsigned level = 0; level < levels; ++level) {
    for (int shift = 16; shift >= 0; shift -= 8) palette += static_cast<char>(color >> shift);
    opacity += static_cast<char>(level * 255 / (levels - 1));
  }
  return "\x89PNG\r\n\x1a\n" + chunk(header) + chunk(palette) + chunk(opacity) +
         chunk("IDAT" + stored(disc())) + chunk("IEND");
}

}  // namespace

std::string_view dotImage(DotColor color) {
  static const std::array images{draw(0x8e8e93), draw(0x2fa84f), draw(0xe8890c), draw(0xd93a32)};
  static_assert(static_cast<int>(DotColor::grey) == 0 && static_cast<int>(DotColor::red) == 3);
  return images.at(static_cast<std::size_t>(color));
}

}  // namespace zephyl
