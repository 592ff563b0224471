#ifndef ZEFO_TESTS_SUPPORT_GOLDEN_H_
#define ZEFO_TESTS_SUPPORT_GOLDEN_H_

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace zefo::testing {

// Compares `actual` with tests/golden/<name>, failing with a line diff where they differ.
// Run a test with ZEFO_UPDATE_GOLDEN=1 in the environment to (re)write the file instead; review
// the change with git diff before committing it.
void ExpectGolden(const std::string& name, const std::string& actual);

// Bytes as a golden file shows them: quoted, backslashes doubled, control bytes and bytes beyond
// ASCII escaped, runs of more than eight of one character counted.
std::string Shown(const std::string& bytes);
// " 1 2 3".
std::string Figures(std::initializer_list<long long> figures);
// One block of a golden table: `title`, then a row per input, the input shown and what `show`
// makes of it.
std::string Rows(const std::string& title, const std::vector<std::string>& inputs,
                 const std::function<std::string(std::string)>& show);

}  // namespace zefo::testing

#endif  // ZEFO_TESTS_SUPPORT_GOLDEN_H_
