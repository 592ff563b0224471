#ifndef ZEFO_TESTS_SUPPORT_GOLDEN_H_
#define ZEFO_TESTS_SUPPORT_GOLDEN_H_

#include <string>

namespace zefo::testing {

// Compares `actual` with tests/golden/<name>, failing with a line diff where they differ.
// Run a test with ZEFO_UPDATE_GOLDEN=1 in the environment to (re)write the file instead; review
// the change with git diff before committing it.
void ExpectGolden(const std::string& name, const std::string& actual);

}  // namespace zefo::testing

#endif  // ZEFO_TESTS_SUPPORT_GOLDEN_H_
