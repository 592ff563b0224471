// Inputs the fuzzers (fuzz/) found faults with, kept as regression cases once fixed. Each runs
// under the sanitizer suites as well, where the fault showed.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "process/procinfo_parse.h"

namespace zefo {
namespace {

TEST(FuzzFindings, CoreCountOfAPerCoreLineAtIntMax) {
  // "cpu%d" took 2147483647 and the core count (that number plus one) overflowed an int.
  struct Case {
    std::string stat;
    int cores;
  };
  const Case cases[] = {
      {"cpu  1 2 3 4\ncpu2147483647 1\n", INT_MAX},
      {"cpu  2147483647 2 3 4\n", INT_MAX},  // the aggregate line's first counter, read by %d
      {"cpu  1 2 3 4\ncpu2147483646 1\n", INT_MAX},
  };
  for (const Case& c : cases) {
    ProcInfoCpuState out;
    ASSERT_TRUE(detail::ParseCpuTotal(c.stat, out)) << c.stat;
    EXPECT_EQ(out.cores, c.cores) << c.stat;
  }
}

}  // namespace
}  // namespace zefo
