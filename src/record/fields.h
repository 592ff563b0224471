// One table of figures per item class: the name a segment header gives each figure, how it is
// encoded, and the member it lives in. The encoder and the decoder walk these tables, and a
// segment header lists them, so a reader can map a recording written with another layout by
// the figures' names.
#ifndef ZEFO_SRC_RECORD_FIELDS_H_
#define ZEFO_SRC_RECORD_FIELDS_H_

#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "format/item_fields.h"
#include "record/bytes.h"
#include "zefo/format/snapshot.h"

namespace zefo::record::detail {

// How a figure travels. Every figure is written as a mode byte (kSame: as in the previous pass;
// kRaw: the value follows; kDiff: the difference from the previous pass follows; kStep: it moved
// by the same difference as the last kDiff of the column) and then, for kRaw and kDiff, its
// value: integers as zigzag varints, doubles as 8 bytes, strings length-prefixed, a map of named
// pairs of doubles as a count and then name, first, second per entry.
enum class WireType : uint8_t { kInt = 1, kDouble = 2, kString = 3, kPairMap = 4 };
enum Mode : uint8_t { kSame = 0, kRaw = 1, kDiff = 2, kStep = 3 };

// What a column of figures (one figure of every item of a kind) carries from item to item:
// counters and run times move by the same step in most items of a pass.
struct Column {
  uint64_t int_step = 0;
  double step = 0;
};

template <typename T, typename = void>
struct Codec;

template <typename T>
struct Codec<T, std::enable_if_t<std::is_integral_v<T>>> {
  static constexpr WireType kWire = WireType::kInt;
  static void Encode(const T* prev, const T& cur, Column& column, ByteWriter& out) {
    if (prev == nullptr) {
      out.U8(kRaw);
      out.Zigzag(static_cast<int64_t>(cur));
      return;
    }
    const uint64_t diff = static_cast<uint64_t>(cur) - static_cast<uint64_t>(*prev);
    if (diff == 0) {
      out.U8(kSame);
    } else if (diff == column.int_step) {
      out.U8(kStep);
    } else {
      out.U8(kDiff);
      out.Zigzag(static_cast<int64_t>(diff));
      column.int_step = diff;
    }
  }
  static void Decode(ByteReader& in, T& value, Column& column) {
    const uint8_t mode = in.U8();
    if (mode == kRaw) {
      value = static_cast<T>(in.Zigzag());
      return;
    }
    if (mode == kDiff) {
      column.int_step = static_cast<uint64_t>(in.Zigzag());
    } else if (mode != kStep) {
      if (mode != kSame) in.Fail();
      return;
    }
    value = static_cast<T>(static_cast<uint64_t>(value) + column.int_step);
  }
};

inline bool SameBits(double a, double b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

template <>
struct Codec<double> {
  static constexpr WireType kWire = WireType::kDouble;
  // A difference is written only when adding it back gives the very same bits; rates that move
  // by the same step in many items then compress well.
  static void Encode(const double* prev, const double& cur, Column& column, ByteWriter& out) {
    if (prev != nullptr && SameBits(*prev, cur)) {
      out.U8(kSame);
      return;
    }
    if (prev != nullptr && SameBits(*prev + column.step, cur)) {
      out.U8(kStep);
      return;
    }
    if (prev != nullptr) {
      const double diff = cur - *prev;
      if (SameBits(*prev + diff, cur)) {
        out.U8(kDiff);
        out.F64(diff);
        column.step = diff;
        return;
      }
    }
    out.U8(kRaw);
    out.F64(cur);
  }
  static void Decode(ByteReader& in, double& value, Column& column) {
    const uint8_t mode = in.U8();
    if (mode == kRaw) {
      value = in.F64();
    } else if (mode == kDiff) {
      column.step = in.F64();
      value += column.step;
    } else if (mode == kStep) {
      value += column.step;
    } else if (mode != kSame) {
      in.Fail();
    }
  }
};

template <>
struct Codec<std::string> {
  static constexpr WireType kWire = WireType::kString;
  static void Encode(const std::string* prev, const std::string& cur, Column&, ByteWriter& out) {
    if (prev != nullptr && *prev == cur) {
      out.U8(kSame);
    } else {
      out.U8(kRaw);
      out.Str(cur);
    }
  }
  static void Decode(ByteReader& in, std::string& value, Column&) {
    const uint8_t mode = in.U8();
    if (mode == kRaw) {
      value = std::string(in.Str());
    } else if (mode != kSame) {
      in.Fail();
    }
  }
};

// The two figures of a DDR port and of a process's network interface.
template <typename P>
struct PairOf;
template <>
struct PairOf<QeltDdrResourceItem::BandWidth> {
  static constexpr double QeltDdrResourceItem::BandWidth::*kFirst =
      &QeltDdrResourceItem::BandWidth::read;
  static constexpr double QeltDdrResourceItem::BandWidth::*kSecond =
      &QeltDdrResourceItem::BandWidth::write;
};
template <>
struct PairOf<ProcInfoNetResourceItem> {
  static constexpr double ProcInfoNetResourceItem::*kFirst = &ProcInfoNetResourceItem::tx_bandwidth;
  static constexpr double ProcInfoNetResourceItem::*kSecond =
      &ProcInfoNetResourceItem::rx_bandwidth;
};

template <typename P>
struct Codec<std::map<std::string, P>> {
  static constexpr WireType kWire = WireType::kPairMap;
  using Map = std::map<std::string, P>;
  static bool Equal(const Map& a, const Map& b) {
    if (a.size() != b.size()) return false;
    for (auto i = a.begin(), j = b.begin(); i != a.end(); ++i, ++j) {
      if (i->first != j->first ||
          !SameBits(i->second.*PairOf<P>::kFirst, j->second.*PairOf<P>::kFirst) ||
          !SameBits(i->second.*PairOf<P>::kSecond, j->second.*PairOf<P>::kSecond)) {
        return false;
      }
    }
    return true;
  }
  static void Encode(const Map* prev, const Map& cur, Column&, ByteWriter& out) {
    if (prev != nullptr && Equal(*prev, cur)) {
      out.U8(kSame);
      return;
    }
    out.U8(kRaw);
    out.Varint(cur.size());
    for (const auto& [name, pair] : cur) {
      out.Str(name);
      out.F64(pair.*PairOf<P>::kFirst);
      out.F64(pair.*PairOf<P>::kSecond);
    }
  }
  static void Decode(ByteReader& in, Map& value, Column&) {
    const uint8_t mode = in.U8();
    if (mode == kSame) return;
    if (mode != kRaw) {
      in.Fail();
      return;
    }
    value.clear();
    const uint64_t n = in.Varint();
    for (uint64_t i = 0; i < n && in.ok(); ++i) {
      P pair;
      const std::string name(in.Str());
      pair.*PairOf<P>::kFirst = in.F64();
      pair.*PairOf<P>::kSecond = in.F64();
      value[name] = pair;
    }
  }
};

// Reads past one figure of a layout this reader does not know.
void SkipFigure(ByteReader& in, WireType wire);

template <typename Item>
struct Field {
  const char* name;
  WireType wire;
  // Writes the figure of `cur`, against that of `prev` unless it is null (a new item or a key
  // frame).
  void (*encode)(const Item* prev, const Item& cur, Column& column, ByteWriter& out);
  // Reads the figure into `item`, which holds the previous pass's figures (or the defaults).
  void (*decode)(ByteReader& in, Item& item, Column& column);
};

// The figures of `Item` in the order a record writes them: those of the formats' table of the
// class, so that a new figure is recorded as soon as it is in the table. Recordings made before
// it replay with the class's default for it.
template <typename Item, std::size_t I>
Field<Item> MakeField() {
  static constexpr auto kFigure = std::get<I>(format::detail::ItemFields<Item>::kAll);
  using C = Codec<typename decltype(kFigure)::Type>;
  return Field<Item>{kFigure.name, C::kWire,
                     [](const Item* prev, const Item& cur, Column& column, ByteWriter& out) {
                       C::Encode(prev != nullptr ? &(prev->*kFigure.member) : nullptr,
                                 cur.*kFigure.member, column, out);
                     },
                     [](ByteReader& in, Item& item, Column& column) {
                       C::Decode(in, item.*kFigure.member, column);
                     }};
}

template <typename Item, std::size_t... I>
std::vector<Field<Item>> FieldsOf(std::index_sequence<I...>) {
  return {MakeField<Item, I>()...};
}

template <typename Item>
const std::vector<Field<Item>>& Fields() {
  static const std::vector<Field<Item>> fields =
      FieldsOf<Item>(std::make_index_sequence<
                     std::tuple_size_v<decltype(format::detail::ItemFields<Item>::kAll)>>());
  return fields;
}

// Calls f(type, &Snapshot::<map>, fields) for every kind of item, in type order.
template <typename F>
void ForEachKind(F&& f) {
  format::detail::ForEachKind([&f](ResourceMonitorType type, const char*, auto member) {
    using Item =
        typename std::remove_reference_t<decltype(format::Snapshot().*member)>::mapped_type;
    f(type, member, Fields<Item>());
  });
}

}  // namespace zefo::record::detail

#endif  // ZEFO_SRC_RECORD_FIELDS_H_
