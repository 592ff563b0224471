// ScanCursor against sscanf: the input picks a chain of steps and the text they run on; the
// same chain as a scanf format, with "%n" after each step, must succeed on the same steps,
// stop at the same offsets and fill the same targets.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "core/scan_cursor.h"
#include "fuzz_support.h"

namespace {

enum Kind { kNumber, kSkipNumber, kInt, kWord, kUntil, kLiteral, kSpace, kKinds };

struct Step {
  Kind kind;
  std::size_t width;
  char c;
};

constexpr int kMaxSteps = 8;
constexpr std::size_t kMaxWidth = 300;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using zefo::detail::ScanCursor;
  FuzzedDataProvider provider(data, size);
  std::vector<Step> steps(provider.ConsumeIntegralInRange<int>(1, kMaxSteps));
  for (Step& step : steps) {
    step.kind = static_cast<Kind>(provider.ConsumeIntegralInRange<int>(0, kKinds - 1));
    step.width = provider.ConsumeIntegralInRange<std::size_t>(1, kMaxWidth);
    step.c = provider.ConsumeIntegral<char>();
    // A literal that scanf would read as something else: white space in a format skips any
    // white space, '%' starts a directive, and a NUL would end the format.
    if (step.kind == kLiteral && ScanCursor::IsSpace(step.c)) step.kind = kSpace;
    if (step.c == '%' || step.c == '\0') step.c = 'x';
  }
  const std::string text = provider.ConsumeRemainingBytesAsString();
  const std::string_view input(text);

  // The format, and sscanf's targets: one value and one offset per step.
  std::string format;
  long long numbers[kMaxSteps] = {};
  int ints[kMaxSteps] = {};
  char words[kMaxSteps][kMaxWidth + 1] = {};
  int offsets[kMaxSteps];
  std::vector<void*> args;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& step = steps[i];
    switch (step.kind) {
      case kNumber:
        format += "%lld";
        args.push_back(&numbers[i]);
        break;
      case kSkipNumber:
        format += "%*lld";
        break;
      case kInt:
        format += "%d";
        args.push_back(&ints[i]);
        break;
      case kWord:
        format += "%" + std::to_string(step.width) + "s";
        args.push_back(words[i]);
        break;
      case kUntil:
        format += "%" + std::to_string(step.width) + "[^" + std::string(1, step.c) + "]";
        args.push_back(words[i]);
        break;
      case kLiteral:
        format += step.c;
        break;
      default:
        format += ' ';
        break;
    }
    format += "%n";
    offsets[i] = -1;
    args.push_back(&offsets[i]);
  }
  args.resize(2 * kMaxSteps, nullptr);
  std::sscanf(text.c_str(), format.c_str(), args[0], args[1], args[2], args[3], args[4], args[5],
              args[6], args[7], args[8], args[9], args[10], args[11], args[12], args[13], args[14],
              args[15]);

  ScanCursor cursor(input);
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const Step& step = steps[i];
    bool ok = true;
    long long number = 0;
    int narrow = 0;
    std::string_view word;
    switch (step.kind) {
      case kNumber:
        ok = cursor.Number(number);
        if (ok) ZEFO_FUZZ_CHECK(number == numbers[i], input);
        break;
      case kSkipNumber:
        ok = cursor.SkipNumber();
        break;
      case kInt:
        ok = cursor.Int(narrow);
        if (ok) ZEFO_FUZZ_CHECK(narrow == ints[i], input);
        break;
      case kWord:
        ok = cursor.Word(step.width, word);
        if (ok) ZEFO_FUZZ_CHECK(word == words[i], input);
        break;
      case kUntil:
        ok = cursor.Until(step.c, step.width, word);
        if (ok) ZEFO_FUZZ_CHECK(word == words[i], input);
        break;
      case kLiteral:
        ok = cursor.Literal(step.c);
        break;
      default:
        cursor.SkipSpace();
        break;
    }
    if (!ok) {
      // scanf stopped here too: this step's offset was never stored.
      ZEFO_FUZZ_CHECK(offsets[i] == -1, input);
      break;
    }
    const auto consumed = static_cast<std::size_t>(cursor.Rest().data() - input.data());
    ZEFO_FUZZ_CHECK(offsets[i] >= 0 && static_cast<std::size_t>(offsets[i]) == consumed, input);
  }
  return 0;
}
