#ifndef ZEFO_TESTS_FAULTS_DAMAGE_H_
#define ZEFO_TESTS_FAULTS_DAMAGE_H_

// Fault injection over fixture trees. A Source writes the healthy kernel files of one monitor
// for pass 1, 2, 3 ...; a Target is one of those files; a Damage is what a hostile kernel,
// driver or user can put there instead. RunDamaged drives a pristine and a damaged tree side by
// side through five passes (the damage is in place for passes 3 and 4, gone again for pass 5)
// and holds the damaged monitor to three things:
//   - every pass completes, quickly;
//   - after pass 4 every item the damage cannot have touched reads exactly as in the pristine
//     run (same block of the report, same update count);
//   - after pass 5 every item is being updated again.

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "support/fixture_tree.h"
#include "zefo/base_monitor.h"

namespace zefo::testing {

// The clock every monitor of the fault tests is given: pass k runs at k * 2000 ms.
int64_t FaultClock();

struct Damage {
  std::string name;
  // A damaged line, built from a key that makes the line one the parser takes up ("cpu9",
  // "  bad0:") so that the bytes after it are really parsed. Empty for whole-file damage.
  std::function<std::string(const std::string& key)> line;
  // Whole-file damage: puts something else at `rel` (which has been removed). Empty for lines.
  std::function<void(const FixtureTree& tree, const std::string& rel)> plant;
  // A line damage that ends the file without a newline, like a read cut short.
  bool at_end = false;
};

// Binary bytes and NULs, a truncated line, a 1 MB line, a 300-character first word, tokens of
// 70000 characters, 25-digit integers.
const std::vector<Damage>& LineDamages();
// Empty, missing, a directory, a FIFO, a link to /dev/zero, a 10 GB sparse file.
const std::vector<Damage>& FileDamages();

struct Target {
  std::string rel;  // the file (or directory), relative to the tree's root
  // Whether line damages apply (not to a directory).
  bool lines = true;
  // Line damage: the key of the damaged line, and how many healthy lines stay before it. A
  // one-line file (`single_line`) has its line replaced instead.
  std::string key;
  int after = 1;
  bool single_line = false;
  // Items the damage may change: by a damaged line, and by damage to the whole file. "*" is
  // every item.
  std::set<std::string> line_affects;
  std::set<std::string> file_affects = {"*"};
};

struct Source {
  std::string name;
  std::function<std::unique_ptr<BaseMonitor>(const KernelPaths&)> make;
  // Writes the healthy files of pass `pass` (1, 2, ...); figures move from pass to pass.
  std::function<void(const FixtureTree&, int pass)> write;
  std::vector<Target> targets;
  // Lines of the report blocks that follow the live machine rather than the tree (free space
  // of the file system under the tree), left out of the comparison.
  std::vector<std::string> live_labels = {};
};

// A file of many lines: damaged lines go after its first `after` lines and disturb no item;
// damage to the whole file may disturb `file_affects`.
Target ManyLines(std::string rel, std::string key, int after,
                 std::set<std::string> file_affects = {"*"});
// A one-line file (or the first line of one): its line is replaced; either damage may disturb
// `affects`.
Target OneLine(std::string rel, std::string key, std::set<std::string> affects);
// A directory or an entry of one: only whole-file damage applies.
Target Entry(std::string rel, std::set<std::string> affects);

// A damaged line, or damage to a whole file.
Damage LineDamage(std::string name, std::function<std::string(const std::string&)> line,
                  bool at_end = false);

// Runs `damage` at `target` through five passes as described above; failures name the case.
void RunDamaged(const Source& source, const Target& target, const Damage& damage);

// Every target of `source` with every damage that applies (line damages to every target, file
// damages to every target).
void RunAllDamages(const Source& source);

}  // namespace zefo::testing

#endif  // ZEFO_TESTS_FAULTS_DAMAGE_H_
