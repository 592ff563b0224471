#include "record/segment.h"

#include <zlib.h>
#include <zstd.h>

namespace zefo::record::detail {

namespace {

constexpr std::string_view kSegmentMagic("ZEFOREC\x1a", 8);
constexpr std::string_view kRecordMagic("\xe5ZR1", 4);

uint32_t Crc(std::string_view bytes) {
  uLong crc = crc32(0L, Z_NULL, 0);
  // zlib takes a 32-bit length; records and headers are far smaller.
  crc = crc32(crc, reinterpret_cast<const Bytef*>(bytes.data()), static_cast<uInt>(bytes.size()));
  return static_cast<uint32_t>(crc);
}

}  // namespace

std::string SegmentHeader(uint64_t created_ms, const Layout& layout) {
  std::string body;
  ByteWriter b(body);
  b.U64(created_ms);
  WriteLayout(layout, b);
  std::string out(kSegmentMagic);
  ByteWriter w(out);
  w.U16(kStoreVersion);
  w.U32(static_cast<uint32_t>(body.size()));
  w.Raw(body);
  w.U32(Crc(std::string_view(out).substr(kSegmentMagic.size())));
  return out;
}

HeaderStatus ParseSegmentHeader(std::string_view file, SegmentInfo& out) {
  const std::size_t magic = kSegmentMagic.size();
  if (file.size() < magic) {
    return kSegmentMagic.substr(0, file.size()) == file ? HeaderStatus::kTorn
                                                        : HeaderStatus::kNotStore;
  }
  if (file.substr(0, magic) != kSegmentMagic) return HeaderStatus::kNotStore;
  ByteReader in(file.substr(magic));
  out.version = in.U16();
  if (!in.ok()) return HeaderStatus::kTorn;
  if (out.version > kStoreVersion) return HeaderStatus::kNewer;
  const uint32_t length = in.U32();
  const std::string_view body = in.Take(length);
  const uint32_t crc = in.U32();
  if (!in.ok()) return length > kMaxRecordBytes ? HeaderStatus::kDamaged : HeaderStatus::kTorn;
  if (Crc(file.substr(magic, 6 + body.size())) != crc) return HeaderStatus::kDamaged;
  ByteReader b(body);
  out.created_ms = b.U64();
  if (!ReadLayout(b, out.layout) || !b.done()) return HeaderStatus::kDamaged;
  out.header_bytes = magic + in.pos();
  return HeaderStatus::kOk;
}

std::string FrameRecord(uint8_t flags, std::string_view payload) {
  std::string out(kRecordMagic);
  out.reserve(kRecordMagic.size() + 9 + payload.size());
  ByteWriter w(out);
  w.U32(static_cast<uint32_t>(payload.size()));
  w.U8(flags);
  w.Raw(payload);
  w.U32(Crc(std::string_view(out).substr(kRecordMagic.size())));
  return out;
}

RecordStatus NextRecord(std::string_view file, std::size_t& pos, RecordView& out) {
  if (pos >= file.size()) return RecordStatus::kEnd;
  const std::string_view rest = file.substr(pos);
  const auto resync = [&]() {
    const std::size_t next = file.find(kRecordMagic, pos + 1);
    pos = next == std::string_view::npos ? file.size() : next;
    return RecordStatus::kDamaged;
  };
  if (rest.size() < kRecordMagic.size()) {
    if (kRecordMagic.substr(0, rest.size()) != rest) return resync();
    pos = file.size();
    return RecordStatus::kTorn;
  }
  if (rest.substr(0, kRecordMagic.size()) != kRecordMagic) return resync();
  ByteReader in(rest.substr(kRecordMagic.size()));
  const uint32_t length = in.U32();
  out.flags = in.U8();
  if (in.ok() && length > kMaxRecordBytes) return resync();
  out.payload = in.Take(length);
  const uint32_t crc = in.U32();
  if (!in.ok()) {
    // Cut short, unless a later record follows: then these bytes were damaged, not torn.
    if (file.find(kRecordMagic, pos + 1) != std::string_view::npos) return resync();
    pos = file.size();
    return RecordStatus::kTorn;
  }
  if (Crc(rest.substr(kRecordMagic.size(), 5 + length)) != crc) return resync();
  out.offset = pos;
  pos += kRecordMagic.size() + in.pos();
  return RecordStatus::kOk;
}

std::string Compress(std::string_view raw, int level) {
  std::string out(ZSTD_compressBound(raw.size()), '\0');
  const std::size_t n = ZSTD_compress(out.data(), out.size(), raw.data(), raw.size(), level);
  out.resize(ZSTD_isError(n) ? 0 : n);
  return out;
}

bool Decompress(std::string_view frame, std::string& raw) {
  const unsigned long long size = ZSTD_getFrameContentSize(frame.data(), frame.size());
  if (size == ZSTD_CONTENTSIZE_ERROR || size == ZSTD_CONTENTSIZE_UNKNOWN ||
      size > kMaxRecordBytes) {
    return false;
  }
  raw.resize(static_cast<std::size_t>(size));
  const std::size_t n = ZSTD_decompress(raw.data(), raw.size(), frame.data(), frame.size());
  return !ZSTD_isError(n) && n == size;
}

}  // namespace zefo::record::detail
