#include "damage.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <map>
#include <sstream>

namespace zefo::testing {

namespace {

int64_t g_now = 0;

std::string Repeat(const std::string& piece, std::size_t bytes) {
  std::string out;
  out.reserve(bytes + piece.size());
  while (out.size() < bytes) out += piece;
  return out;
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The text with `line` put after its first `after` lines (or at the very end, without a newline).
std::string Insert(const std::string& text, const std::string& line, int after, bool at_end) {
  if (at_end) return text + line;
  std::size_t at = 0;
  for (int i = 0; i < after && at < text.size(); ++i) {
    const std::size_t end = text.find('\n', at);
    at = end == std::string::npos ? text.size() : end + 1;
  }
  return text.substr(0, at) + line + "\n" + text.substr(at);
}

void Apply(const FixtureTree& tree, const Target& target, const Damage& damage) {
  if (damage.plant) {
    tree.Remove(target.rel);
    damage.plant(tree, target.rel);
    return;
  }
  const std::string hostile = damage.line(target.key);
  if (target.single_line) {
    tree.Write(target.rel, damage.at_end ? hostile : hostile + "\n");
  } else {
    const std::string healthy = ReadAll(tree.Path(target.rel));
    tree.Write(target.rel, Insert(healthy, hostile, target.after, damage.at_end));
  }
}

struct Snapshot {
  std::map<std::string, std::string> blocks;
  std::map<std::string, uint64_t> counts;
};

Snapshot Take(const BaseMonitor& monitor, const std::vector<std::string>& live_labels) {
  Snapshot snapshot;
  for (const auto& [name, item] : monitor.Items()) {
    std::ostringstream block;
    item->PrintToStream(block);
    std::istringstream lines(block.str());
    std::string& kept = snapshot.blocks[name];
    for (std::string line; std::getline(lines, line);) {
      bool live = false;
      for (const std::string& label : live_labels) live = live || line.rfind(label, 0) == 0;
      if (!live) kept += line + "\n";
    }
    snapshot.counts[name] = item->count;
  }
  return snapshot;
}

// One pass of `monitor` at the clock of pass `pass`; it must come back within a bound that
// holds under the sanitizers too (a reader stuck on a FIFO or an endless file never would).
void Pass(BaseMonitor& monitor, int pass) {
  g_now = pass * 2000;
  const auto start = std::chrono::steady_clock::now();
  monitor.DoMonitor();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10)) << "pass " << pass;
}

}  // namespace

int64_t FaultClock() {
  return g_now;
}

Damage LineDamage(std::string name, std::function<std::string(const std::string&)> line,
                  bool at_end) {
  Damage damage;
  damage.name = std::move(name);
  damage.line = std::move(line);
  damage.at_end = at_end;
  return damage;
}

namespace {

Damage FileDamage(std::string name,
                  std::function<void(const FixtureTree&, const std::string&)> plant) {
  Damage damage;
  damage.name = std::move(name);
  damage.plant = std::move(plant);
  return damage;
}

}  // namespace

const std::vector<Damage>& LineDamages() {
  using namespace std::string_literals;
  static const std::vector<Damage> damages = {
      LineDamage(
          "binary and NULs",
          [](const std::string& key) { return key + " 1\0 2 \x01\xff\xfe\x7f\0\0 3\x80\x9b"s; }),
      LineDamage(
          "truncated line", [](const std::string& key) { return key + " 12"; }, true),
      LineDamage("1 MB line",
                 [](const std::string& key) { return key + Repeat(" 1234567", 1 << 20); }),
      LineDamage(
          "300-character first word",
          [](const std::string& key) { return key + std::string(300, 'w') + " 1 2 3 4 5 6 7 8"; }),
      LineDamage("tokens of 70000 characters",
                 [](const std::string& key) {
                   return key + " " + std::string(70000, '7') + " " + std::string(70000, 't');
                 }),
      LineDamage("25-digit integers",
                 [](const std::string& key) {
                   return key +
                          " 1234567890123456789012345 -9999999999999999999999999 "
                          "0000000000000000000000042 18446744073709551616 kB";
                 }),
  };
  return damages;
}

const std::vector<Damage>& FileDamages() {
  using Tree = const FixtureTree&;
  using Rel = const std::string&;
  static const std::vector<Damage> damages = {
      FileDamage("empty file", [](Tree t, Rel rel) { t.Write(rel, ""); }),
      FileDamage("missing file", [](Tree, Rel) {}),
      FileDamage("directory", [](Tree t, Rel rel) { t.Mkdir(rel); }),
      FileDamage("FIFO", [](Tree t, Rel rel) { t.Fifo(rel); }),
      FileDamage("link to /dev/zero", [](Tree t, Rel rel) { t.Symlink("/dev/zero", rel); }),
      FileDamage("10 GB sparse file", [](Tree t, Rel rel) { t.Sparse(rel, 10LL << 30); }),
  };
  return damages;
}

Target ManyLines(std::string rel, std::string key, int after, std::set<std::string> file_affects) {
  Target target;
  target.rel = std::move(rel);
  target.key = std::move(key);
  target.after = after;
  target.file_affects = std::move(file_affects);
  return target;
}

Target OneLine(std::string rel, std::string key, std::set<std::string> affects) {
  Target target;
  target.rel = std::move(rel);
  target.key = std::move(key);
  target.single_line = true;
  target.line_affects = affects;
  target.file_affects = std::move(affects);
  return target;
}

Target Entry(std::string rel, std::set<std::string> affects) {
  Target target;
  target.rel = std::move(rel);
  target.lines = false;
  target.file_affects = std::move(affects);
  return target;
}

void RunDamaged(const Source& source, const Target& target, const Damage& damage) {
  SCOPED_TRACE(source.name + ": " + damage.name + " at " + target.rel);
  FixtureTree pristine_tree;
  FixtureTree damaged_tree;
  std::unique_ptr<BaseMonitor> pristine = source.make(pristine_tree.paths());
  std::unique_ptr<BaseMonitor> damaged = source.make(damaged_tree.paths());
  pristine->SetClock(&FaultClock);
  damaged->SetClock(&FaultClock);

  std::map<std::string, uint64_t> counts_before;
  for (int pass = 1; pass <= 5; ++pass) {
    source.write(pristine_tree, pass);
    Pass(*pristine, pass);
    // What the last pass planted (a FIFO, a directory) must go before healthy files are
    // written over it: writing into a FIFO nobody reads would block.
    damaged_tree.Remove(target.rel);
    source.write(damaged_tree, pass);
    if (pass == 3 || pass == 4) Apply(damaged_tree, target, damage);
    Pass(*damaged, pass);

    const Snapshot got = Take(*damaged, source.live_labels);
    const Snapshot want = Take(*pristine, source.live_labels);
    if (pass == 4) {
      const std::set<std::string>& affected =
          damage.plant ? target.file_affects : target.line_affects;
      if (affected.count("*") == 0) {
        for (const auto& [name, block] : want.blocks) {
          if (affected.count(name) != 0) continue;
          ASSERT_EQ(got.blocks.count(name), 1u) << "item " << name << " is gone";
          EXPECT_EQ(got.blocks.at(name), block) << "item " << name;
          EXPECT_EQ(got.counts.at(name), want.counts.at(name)) << "item " << name;
        }
      }
      counts_before = got.counts;
    }
    if (pass == 5) {
      // Healthy again: every item of the healthy run is updated by this pass (items that only
      // the damage made, under garbage names, are not).
      for (const auto& entry : want.counts) {
        const std::string& name = entry.first;
        if (counts_before.count(name) == 0) continue;  // not there yet at pass 4
        const uint64_t before = counts_before.at(name);
        ASSERT_EQ(got.counts.count(name), 1u) << "item " << name << " is gone";
        EXPECT_GT(got.counts.at(name), before) << "item " << name << " is no longer updated";
      }
    }
  }
}

void RunAllDamages(const Source& source) {
  for (const Target& target : source.targets) {
    if (target.lines) {
      for (const Damage& damage : LineDamages()) RunDamaged(source, target, damage);
    }
    for (const Damage& damage : FileDamages()) RunDamaged(source, target, damage);
  }
}

}  // namespace zefo::testing
