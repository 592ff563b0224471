#include "record/pass_codec.h"

#include <type_traits>

namespace zefo::record::detail {

namespace {

constexpr uint8_t kLastKnownType = ProcInfo;

// A kind's section: how many items the previous pass had and which of them this pass keeps
// (one bit each), the names of the new items, then one column per figure: the figure of every
// item, in name order. Columns keep alike bytes together, which is what the compressor likes.
template <typename Item>
void EncodeKind(const std::map<std::string, Item>* prev, const std::map<std::string, Item>& cur,
                const std::vector<Field<Item>>& fields, ByteWriter& out) {
  static const std::map<std::string, Item> kEmpty;
  const auto& before = prev != nullptr ? *prev : kEmpty;
  out.Varint(before.size());
  uint8_t bits = 0;
  int filled = 0;
  for (const auto& entry : before) {
    if (cur.count(entry.first) != 0) bits |= static_cast<uint8_t>(1u << filled);
    if (++filled == 8) {
      out.U8(bits);
      bits = 0;
      filled = 0;
    }
  }
  if (filled != 0) out.U8(bits);
  std::vector<const Item*> previous;
  previous.reserve(cur.size());
  std::size_t added = 0;
  for (const auto& entry : cur) {
    const auto found = before.find(entry.first);
    previous.push_back(found != before.end() ? &found->second : nullptr);
    if (found == before.end()) ++added;
  }
  out.Varint(added);
  std::size_t index = 0;
  for (const auto& entry : cur) {
    if (previous[index++] == nullptr) out.Str(entry.first);
  }
  for (const Field<Item>& field : fields) {
    std::size_t i = 0;
    Column column;
    for (const auto& entry : cur) field.encode(previous[i++], entry.second, column, out);
  }
}

template <typename Item>
bool DecodeKind(ByteReader& in, const std::vector<std::pair<int, WireType>>& figures,
                const std::vector<Field<Item>>& fields, const std::map<std::string, Item>* prev,
                std::map<std::string, Item>& items) {
  static const std::map<std::string, Item> kEmpty;
  const auto& before = prev != nullptr ? *prev : kEmpty;
  if (in.Varint() != before.size()) return false;
  uint8_t bits = 0;
  int used = 8;
  for (const auto& entry : before) {
    if (used == 8) {
      bits = in.U8();
      used = 0;
    }
    if (bits & (1u << used++)) items.insert(entry);
  }
  const uint64_t added = in.Varint();
  if (!in.ok() || added > in.left()) return false;
  for (uint64_t i = 0; i < added; ++i) {
    if (!items.emplace(std::string(in.Str()), Item()).second || !in.ok()) return false;
  }
  for (const auto& [index, wire] : figures) {
    Column column;
    for (auto& entry : items) {
      if (index >= 0) {
        fields[static_cast<std::size_t>(index)].decode(in, entry.second, column);
      } else {
        SkipFigure(in, wire);
      }
    }
    if (!in.ok()) return false;
  }
  return in.done();
}

}  // namespace

Layout CurrentLayout() {
  Layout layout;
  ForEachKind([&layout](ResourceMonitorType type, auto, const auto& fields) {
    KindLayout kind;
    kind.type = static_cast<uint8_t>(type);
    kind.name = format::KindName(type);
    for (const auto& field : fields) kind.figures.emplace_back(field.name, field.wire);
    layout.push_back(std::move(kind));
  });
  return layout;
}

void WriteLayout(const Layout& layout, ByteWriter& out) {
  out.Varint(layout.size());
  for (const KindLayout& kind : layout) {
    out.U8(kind.type);
    out.Str(kind.name);
    out.Varint(kind.figures.size());
    for (const auto& [name, wire] : kind.figures) {
      out.Str(name);
      out.U8(static_cast<uint8_t>(wire));
    }
  }
}

bool ReadLayout(ByteReader& in, Layout& out) {
  out.clear();
  const uint64_t kinds = in.Varint();
  for (uint64_t k = 0; k < kinds && in.ok(); ++k) {
    KindLayout kind;
    kind.type = in.U8();
    kind.name = std::string(in.Str());
    const uint64_t figures = in.Varint();
    if (figures > in.left()) return false;
    for (uint64_t f = 0; f < figures && in.ok(); ++f) {
      std::string name(in.Str());
      kind.figures.emplace_back(std::move(name), static_cast<WireType>(in.U8()));
    }
    out.push_back(std::move(kind));
  }
  return in.ok();
}

LayoutMap MapLayout(const Layout& segment) {
  LayoutMap map;
  ForEachKind([&](ResourceMonitorType type, auto, const auto& fields) {
    for (const KindLayout& kind : segment) {
      if (kind.type != type) continue;
      auto& figures = map.kinds[kind.type];
      for (const auto& [name, wire] : kind.figures) {
        int index = -1;
        for (std::size_t i = 0; i < fields.size(); ++i) {
          if (name == fields[i].name && wire == fields[i].wire) index = static_cast<int>(i);
        }
        figures.emplace_back(index, wire);
      }
    }
  });
  return map;
}

// The pass: its time, its kinds, then one length-prefixed section per kind that has items now
// or had some in the previous pass.
void EncodePass(const format::Snapshot* prev, const format::Snapshot& cur, std::string& body) {
  ByteWriter out(body);
  out.U64(cur.update_time);
  out.Varint(cur.kinds.size());
  for (ResourceMonitorType type : cur.kinds) out.U8(static_cast<uint8_t>(type));
  std::string section;
  ForEachKind([&](ResourceMonitorType type, auto member, const auto& fields) {
    const auto* before = prev != nullptr ? &(prev->*member) : nullptr;
    if ((cur.*member).empty() && (before == nullptr || before->empty())) return;
    section.clear();
    ByteWriter kind_out(section);
    EncodeKind(before, cur.*member, fields, kind_out);
    out.U8(static_cast<uint8_t>(type));
    out.Str(section);
  });
}

bool DecodePass(std::string_view body, const LayoutMap& map, const format::Snapshot* prev,
                format::Snapshot& out) {
  out = format::Snapshot();
  ByteReader in(body);
  out.update_time = in.U64();
  const uint64_t kinds = in.Varint();
  if (kinds > in.left()) return false;
  for (uint64_t i = 0; i < kinds; ++i) {
    const uint8_t type = in.U8();
    // Kinds a newer writer added are left out: this build cannot show them.
    if (type <= kLastKnownType) out.kinds.push_back(static_cast<ResourceMonitorType>(type));
  }
  bool ok = in.ok();
  while (ok && !in.done()) {
    const uint8_t type = in.U8();
    ByteReader section(in.Str());
    if (!in.ok()) return false;
    const auto figures = map.kinds.find(type);
    if (figures == map.kinds.end()) continue;
    ForEachKind([&](ResourceMonitorType kind, auto member, const auto& fields) {
      if (kind != type) return;
      const auto* before = prev != nullptr ? &(prev->*member) : nullptr;
      ok = DecodeKind(section, figures->second, fields, before, out.*member);
    });
  }
  return ok;
}

}  // namespace zefo::record::detail
