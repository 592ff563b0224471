// Little-endian fixed-width numbers, varints and length-prefixed strings: the building blocks
// of the store's records and segment headers.
#ifndef ZEFO_SRC_RECORD_BYTES_H_
#define ZEFO_SRC_RECORD_BYTES_H_

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace zefo::record::detail {

class ByteWriter {
 public:
  explicit ByteWriter(std::string& out) : out_(out) {}

  void U8(uint8_t v) { out_.push_back(static_cast<char>(v)); }
  void U16(uint16_t v) { Fixed(v, 2); }
  void U32(uint32_t v) { Fixed(v, 4); }
  void U64(uint64_t v) { Fixed(v, 8); }
  void F64(double v) {
    uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    U64(bits);
  }
  void Varint(uint64_t v) {
    while (v >= 0x80) {
      U8(static_cast<uint8_t>(v | 0x80));
      v >>= 7;
    }
    U8(static_cast<uint8_t>(v));
  }
  // Small magnitudes of either sign in few bytes.
  void Zigzag(int64_t v) {
    Varint((static_cast<uint64_t>(v) << 1) ^ static_cast<uint64_t>(v >> 63));
  }
  void Str(std::string_view s) {
    Varint(s.size());
    out_.append(s.data(), s.size());
  }
  void Raw(std::string_view s) { out_.append(s.data(), s.size()); }
  std::size_t size() const { return out_.size(); }

 private:
  void Fixed(uint64_t v, int bytes) {
    for (int i = 0; i < bytes; ++i) U8(static_cast<uint8_t>(v >> (8 * i)));
  }
  std::string& out_;
};

// Reads what ByteWriter wrote. Every read checks the bounds; after the first failure `ok()` is
// false and every later read yields zero, so a parser may check once at the end of a block.
class ByteReader {
 public:
  explicit ByteReader(std::string_view in) : in_(in) {}

  bool ok() const { return ok_; }
  bool done() const { return pos_ == in_.size(); }
  std::size_t pos() const { return pos_; }
  std::size_t left() const { return in_.size() - pos_; }
  void Fail() { ok_ = false; }

  uint8_t U8() { return static_cast<uint8_t>(Fixed(1)); }
  uint16_t U16() { return static_cast<uint16_t>(Fixed(2)); }
  uint32_t U32() { return static_cast<uint32_t>(Fixed(4)); }
  uint64_t U64() { return Fixed(8); }
  double F64() {
    const uint64_t bits = U64();
    double v;
    std::memcpy(&v, &bits, sizeof v);
    return v;
  }
  uint64_t Varint() {
    uint64_t v = 0;
    for (int shift = 0; shift < 64; shift += 7) {
      const uint8_t b = U8();
      if (!ok_) return 0;
      v |= static_cast<uint64_t>(b & 0x7f) << shift;
      if ((b & 0x80) == 0) return v;
    }
    ok_ = false;
    return 0;
  }
  int64_t Zigzag() {
    const uint64_t v = Varint();
    return static_cast<int64_t>((v >> 1) ^ (~(v & 1) + 1));
  }
  std::string_view Str() { return Take(Varint()); }
  std::string_view Take(uint64_t n) {
    if (!ok_ || n > left()) {
      ok_ = false;
      return std::string_view();
    }
    const std::string_view s = in_.substr(pos_, n);
    pos_ += n;
    return s;
  }

 private:
  uint64_t Fixed(int bytes) {
    if (!ok_ || left() < static_cast<std::size_t>(bytes)) {
      ok_ = false;
      return 0;
    }
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) {
      v |= static_cast<uint64_t>(static_cast<uint8_t>(in_[pos_ + i])) << (8 * i);
    }
    pos_ += bytes;
    return v;
  }
  std::string_view in_;
  std::size_t pos_ = 0;
  bool ok_ = true;
};

}  // namespace zefo::record::detail

#endif  // ZEFO_SRC_RECORD_BYTES_H_
