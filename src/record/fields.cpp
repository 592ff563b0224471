#include "record/fields.h"

namespace zefo::record::detail {

void SkipFigure(ByteReader& in, WireType wire) {
  const uint8_t mode = in.U8();
  if (mode == kSame || mode == kStep) return;
  if (mode != kRaw && mode != kDiff) {
    in.Fail();
    return;
  }
  switch (wire) {
    case WireType::kInt:
      in.Zigzag();
      break;
    case WireType::kDouble:
      in.F64();
      break;
    case WireType::kString:
      in.Str();
      break;
    case WireType::kPairMap:
      for (uint64_t n = in.Varint(); n > 0 && in.ok(); --n) {
        in.Str();
        in.Take(16);
      }
      break;
    default:
      in.Fail();
  }
}

}  // namespace zefo::record::detail
