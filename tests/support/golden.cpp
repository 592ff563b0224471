#include "support/golden.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace zefo::testing {

namespace {

// printf writes the NaN of 0/0 as "-nan" on x86 and "nan" on ARM: golden files hold "nan".
std::string WithoutNanSign(std::string text) {
  for (std::size_t at = 0; (at = text.find(" -nan", at)) != std::string::npos;)
    text.erase(at + 1, 1);
  return text;
}

}  // namespace

void ExpectGolden(const std::string& name, const std::string& raw_actual) {
  const std::string actual = WithoutNanSign(raw_actual);
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
