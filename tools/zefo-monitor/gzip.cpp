#include "gzip.h"

#include <zlib.h>

namespace zefo::cli {

bool Gzip(const std::string& text, std::string& out) {
  z_stream stream{};
  // 15 bits of window, +16 for the gzip wrapper; memory level 8 is zlib's default.
  if (deflateInit2(&stream, Z_BEST_SPEED, Z_DEFLATED, 15 + 16, 8, Z_DEFAULT_STRATEGY) != Z_OK) {
    return false;
  }
  out.resize(deflateBound(&stream, static_cast<uLong>(text.size())) + 32);
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(out.data());
  stream.avail_out = static_cast<uInt>(out.size());
  const int result = deflate(&stream, Z_FINISH);
  out.resize(stream.total_out);
  deflateEnd(&stream);
  return result == Z_STREAM_END;
}

}  // namespace zefo::cli
