#include "support/golden.h"

#include <cstdio>
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

std::string Shown(const std::string& in) {
  std::string out;
  for (std::size_t i = 0; i < in.size();) {
    std::size_t run = 1;
    while (i + run < in.size() && in[i + run] == in[i]) ++run;
    const auto byte = static_cast<unsigned char>(in[i]);
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02x", byte);
    const std::string one = byte == '\\'                  ? "\\\\"
                            : byte >= 0x20 && byte < 0x7f ? std::string(1, in[i])
                                                          : hex;
    out += run > 8 ? one + "{" + std::to_string(run) + "}" : std::string();
    for (std::size_t k = 0; run <= 8 && k < run; ++k) out += one;
    i += run;
  }
  return "\"" + out + "\"";
}

std::string Figures(std::initializer_list<long long> figures) {
  std::string out;
  for (long long f : figures) out += " " + std::to_string(f);
  return out;
}

std::string Rows(const std::string& title, const std::vector<std::string>& inputs,
                 const std::function<std::string(std::string)>& show) {
  std::string out = title + ":\n";
  for (const std::string& in : inputs) out += "  " + Shown(in) + " ->" + show(in) + "\n";
  return out;
}

}  // namespace zefo::testing
