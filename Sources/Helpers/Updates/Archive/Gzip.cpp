#include <algorithm>
#include <limits>

#include <zlib.h>

#include "Helpers/Updates/Archive/Archive.hpp"

namespace zephyl {

struct GzipSource::State {
  std::string_view left;
  z_stream stream{};
  bool usable = false;
  bool ended = false;
};

GzipSource::GzipSource(std::string_view compressed) : state_(std::make_unique<State>()) {
  state_->left = compressed;
  constexpr int gzipOnly = 16;
  state_->usable = ::inflateInit2(&state_->stream, MAX_WBITS + gzipOnly) == Z_OK;
}

GzipSource::~GzipSource() {
  if (state_->usable) ::inflateEnd(&state_->stream);
}

Result<std::size_t> GzipSource::read(std::span<char> into) {
  State& state = *state_;
  if (state.ended || into.empty()) return std::size_t{0};
  if (!state.usable) return Error{"The archive cannot be unpacked."};
  constexpr std::size_t most = std::numeric_limits<uInt>::max();
  const auto input = std::min(state.left.size(), most);
  const auto output = std::min(into.size(), most);
  z_stream& stream = state.stream;
  // The interface of zlib is older than const. It does not write to its input.
  stream.next_in =
      reinterpret_cast<Bytef*>(const_cast<char*>(state.left.data()));  // NOLINT(*-const-cast)
  stream.avail_in = static_cast<uInt>(input);
  stream.next_out = reinterpret_cast<Bytef*>(into.data());
  stream.avail_out = static_cast<uInt>(output);
  const int outcome = ::inflate(&stream, Z_NO_FLUSH);
  state.left.remove_prefix(input - stream.avail_in);
  const std::size_t count = output - stream.avail_out;
  if (outcome == Z_STREAM_END) {
    state.ended = true;
    if (!state.left.empty()) return Error{"The archive continues after its end."};
    return count;
  }
  if (outcome != Z_OK || count == 0) return Error{"The archive is damaged."};
  return count;
}

}  // namespace zephyl
