// The store's file format. A segment file is a header, then records back to back:
//
//   header  "ZEFOREC\x1a" | u16 version | u32 n | n bytes: u64 created (ms), the layout | u32 crc
//   record  "\xe5ZR1" | u32 n | u8 flags | n bytes: one zstd frame | u32 crc
//
// (little-endian; each crc is zlib's CRC-32 of everything between the magic and itself). A
// record holds one pass, whole when flags has kKeyFrame, else as the changes from the record
// before it. The marker in front of each record lets a reader find the next record after a
// damaged one. Pure functions over buffers; the I/O is the recorder's and the replayer's.
#ifndef ZEFO_SRC_RECORD_SEGMENT_H_
#define ZEFO_SRC_RECORD_SEGMENT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "record/pass_codec.h"

namespace zefo::record::detail {

// Version 1 is the first; a reader refuses a segment of a newer version.
constexpr uint16_t kStoreVersion = 1;
constexpr uint8_t kKeyFrame = 1;
// Larger records are taken for damage.
constexpr uint32_t kMaxRecordBytes = 64u << 20;

std::string SegmentHeader(uint64_t created_ms, const Layout& layout);

enum class HeaderStatus { kOk, kTorn, kDamaged, kNewer, kNotStore };
struct SegmentInfo {
  uint16_t version = 0;
  uint64_t created_ms = 0;
  Layout layout;
  std::size_t header_bytes = 0;
};
HeaderStatus ParseSegmentHeader(std::string_view file, SegmentInfo& out);

std::string FrameRecord(uint8_t flags, std::string_view payload);

enum class RecordStatus { kOk, kEnd, kTorn, kDamaged };
struct RecordView {
  uint8_t flags = 0;
  std::string_view payload;
  std::size_t offset = 0;  // where the record starts in the file
};
// Reads the record at `pos` and moves `pos` past it. kTorn: the file ends inside a record (a
// write cut short); `pos` moves to the end. kDamaged: the bytes at `pos` are not a whole,
// intact record; `pos` moves to the next record marker.
RecordStatus NextRecord(std::string_view file, std::size_t& pos, RecordView& out);

// zstd, one frame per record. Decompress refuses frames that would exceed kMaxRecordBytes.
std::string Compress(std::string_view raw, int level);
bool Decompress(std::string_view frame, std::string& raw);

}  // namespace zefo::record::detail

#endif  // ZEFO_SRC_RECORD_SEGMENT_H_
