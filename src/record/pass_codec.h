// A pass into bytes and back: the whole Snapshot, or only what changed since the previous pass.
// Pure functions over buffers; no I/O, no compression.
#ifndef ZEFO_SRC_RECORD_PASS_CODEC_H_
#define ZEFO_SRC_RECORD_PASS_CODEC_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "record/bytes.h"
#include "record/fields.h"
#include "zefo/format/snapshot.h"

namespace zefo::record::detail {

// The kinds and figures a segment holds, as its header lists them.
struct KindLayout {
  uint8_t type = 0;
  std::string name;
  std::vector<std::pair<std::string, WireType>> figures;
};
using Layout = std::vector<KindLayout>;

// What this build writes.
Layout CurrentLayout();
void WriteLayout(const Layout& layout, ByteWriter& out);
bool ReadLayout(ByteReader& in, Layout& out);

// How to read a segment's layout into this build's item classes: per kind, for each figure of
// the segment, the index of the figure of the same name and wire type in this build's table,
// or -1 to skip it. Figures the segment lacks keep the class's default.
struct LayoutMap {
  std::map<uint8_t, std::vector<std::pair<int, WireType>>> kinds;
};
LayoutMap MapLayout(const Layout& segment);

// Appends `cur` to `body`: whole when `prev` is null (a key frame), else as the changes from
// `prev` (the pass written just before).
void EncodePass(const format::Snapshot* prev, const format::Snapshot& cur, std::string& body);

// Reads a pass EncodePass wrote, against the same `prev`. False if the bytes do not decode.
bool DecodePass(std::string_view body, const LayoutMap& map, const format::Snapshot* prev,
                format::Snapshot& out);

}  // namespace zefo::record::detail

#endif  // ZEFO_SRC_RECORD_PASS_CODEC_H_
