// The figures of a pass as metric families, and the two text expositions written from them.
#ifndef ZEFO_SRC_FORMAT_EXPOSITION_H_
#define ZEFO_SRC_FORMAT_EXPOSITION_H_

#include <string>
#include <utility>
#include <vector>

#include "zefo/format/formats.h"

namespace zefo::format::detail {

enum class MetricType { kGauge, kCounter, kInfo };

struct Sample {
  std::vector<std::pair<std::string, std::string>> labels;  // names and raw values
  double value = 0;
};

// One metric family. `name` is the family name: counters carry no "_total" and info metrics no
// "_info" here; the writers add them as each format wants.
struct Family {
  std::string name;
  MetricType type = MetricType::kGauge;
  std::string unit;  // "" for none; otherwise the last word of `name`
  std::string help;
  std::vector<Sample> samples;
};

// Every figure of `pass` as families in a fixed order; families without samples are included.
std::vector<Family> Families(const Snapshot& pass, const FormatOptions& options);

}  // namespace zefo::format::detail

#endif  // ZEFO_SRC_FORMAT_EXPOSITION_H_
