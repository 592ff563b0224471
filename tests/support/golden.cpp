#include "support/golden.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace zefo::testing {

void ExpectGolden(const std::string& name, const std::string& actual) {
  const std::string path = std::string(ZEFO_GOLDEN_DIR) + "/" + name;
  const char* update = std::getenv("ZEFO_UPDATE_GOLDEN");
  if (update != nullptr && std::string(update) == "1") {
    std::ofstream(path, std::ios::binary) << actual;
    return;
  }
  std::ifstream in(path, std::ios::binary);
  ASSERT_TRUE(in) << "no golden file " << path << "; run with ZEFO_UPDATE_GOLDEN=1 to create it";
  std::ostringstream expected;
  expected << in.rdbuf();
  // gtest prints a line diff for multi-line strings.
  EXPECT_EQ(expected.str(), actual) << "golden file: " << path;
}

}  // namespace zefo::testing
