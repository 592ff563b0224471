#include "time_arg.h"

#include <time.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace zefo::cli {

namespace {

// Reads exactly `width` digits at `pos`.
bool Digits(const std::string& s, std::size_t& pos, int width, int& out) {
  out = 0;
  for (int i = 0; i < width; ++i, ++pos) {
    if (pos >= s.size() || !std::isdigit(static_cast<unsigned char>(s[pos]))) return false;
    out = out * 10 + (s[pos] - '0');
  }
  return true;
}

bool Expect(const std::string& s, std::size_t& pos, char c) {
  if (pos < s.size() && s[pos] == c) {
    ++pos;
    return true;
  }
  return false;
}

// "123", "1.5": a non-negative number with an optional fraction; the rest goes to `suffix`.
bool Number(const std::string& text, double& value, std::string& suffix) {
  std::size_t i = 0;
  while (i < text.size() && (std::isdigit(static_cast<unsigned char>(text[i])) || text[i] == '.')) {
    ++i;
  }
  if (i == 0 || text.find('.') != text.rfind('.')) return false;
  value = std::strtod(text.substr(0, i).c_str(), nullptr);
  suffix = text.substr(i);
  return true;
}

}  // namespace

std::string ParseTime(const std::string& text, uint64_t& ms) {
  const std::string help =
      "'" + text + "' is not a time (give Unix seconds or ISO 8601, e.g. 2024-05-01T18:51:02Z)";
  double seconds = 0;
  std::string suffix;
  if (Number(text, seconds, suffix) && suffix.empty() && text.find('-') == std::string::npos) {
    ms = static_cast<uint64_t>(seconds * 1000 + 0.5);
    return std::string();
  }
  struct tm tm = {};
  std::size_t pos = 0;
  int year, month, day, hour = 0, minute = 0, second = 0;
  if (!Digits(text, pos, 4, year) || !Expect(text, pos, '-') || !Digits(text, pos, 2, month) ||
      !Expect(text, pos, '-') || !Digits(text, pos, 2, day)) {
    return help;
  }
  double fraction = 0;
  if (Expect(text, pos, 'T') || Expect(text, pos, ' ')) {
    if (!Digits(text, pos, 2, hour) || !Expect(text, pos, ':') || !Digits(text, pos, 2, minute)) {
      return help;
    }
    if (Expect(text, pos, ':')) {
      if (!Digits(text, pos, 2, second)) return help;
      if (Expect(text, pos, '.') || Expect(text, pos, ',')) {
        double scale = 0.1;
        if (pos >= text.size() || !std::isdigit(static_cast<unsigned char>(text[pos]))) return help;
        while (pos < text.size() && std::isdigit(static_cast<unsigned char>(text[pos]))) {
          fraction += (text[pos++] - '0') * scale;
          scale /= 10;
        }
      }
    }
  }
  if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
    return help;
  }
  tm.tm_year = year - 1900;
  tm.tm_mon = month - 1;
  tm.tm_mday = day;
  tm.tm_hour = hour;
  tm.tm_min = minute;
  tm.tm_sec = second;
  long long epoch;
  if (pos == text.size()) {
    tm.tm_isdst = -1;  // local time, summer time as it was on that day
    epoch = static_cast<long long>(mktime(&tm));
  } else if (text[pos] == 'Z' && pos + 1 == text.size()) {
    epoch = static_cast<long long>(timegm(&tm));
  } else if (text[pos] == '+' || text[pos] == '-') {
    const int sign = text[pos++] == '-' ? -1 : 1;
    int oh = 0, om = 0;
    if (!Digits(text, pos, 2, oh)) return help;
    Expect(text, pos, ':');
    if (pos < text.size() && !Digits(text, pos, 2, om)) return help;
    if (pos != text.size() || oh > 23 || om > 59) return help;
    epoch = static_cast<long long>(timegm(&tm)) - sign * (oh * 3600LL + om * 60LL);
  } else {
    return help;
  }
  if (epoch < 0) return "'" + text + "' lies before 1970";
  ms = static_cast<uint64_t>(epoch) * 1000 + static_cast<uint64_t>(fraction * 1000 + 0.5);
  return std::string();
}

std::string ParseSize(const std::string& text, uint64_t& bytes) {
  double value = 0;
  std::string suffix;
  if (!Number(text, value, suffix)) return "'" + text + "' is not a size (e.g. 64M, 1G, 500K)";
  double scale = 1;
  const std::string unit = suffix.empty() ? "" : suffix.substr(0, 1);
  const std::string rest = suffix.size() > 1 ? suffix.substr(1) : "";
  if (unit == "K" || unit == "k") {
    scale = 1024.0;
  } else if (unit == "M") {
    scale = 1024.0 * 1024;
  } else if (unit == "G") {
    scale = 1024.0 * 1024 * 1024;
  } else if (!unit.empty() && unit != "B") {
    return "'" + text + "' is not a size (e.g. 64M, 1G, 500K)";
  }
  if (!(rest.empty() || rest == "B" || rest == "iB" || (unit == "B" && rest.empty()))) {
    return "'" + text + "' is not a size (e.g. 64M, 1G, 500K)";
  }
  if (value * scale < 65536) return "'" + text + "' is too small (at least 64K)";
  if (value * scale > 1e15) return "'" + text + "' is too large";
  bytes = static_cast<uint64_t>(value * scale);
  return std::string();
}

std::string ParseDuration(const std::string& text, uint64_t& ms) {
  double value = 0;
  std::string suffix;
  const std::string help = "'" + text + "' is not a duration (e.g. 7d, 12h, 30m, 3600)";
  if (!Number(text, value, suffix)) return help;
  double scale;
  if (suffix.empty() || suffix == "s") {
    scale = 1;
  } else if (suffix == "m") {
    scale = 60;
  } else if (suffix == "h") {
    scale = 3600;
  } else if (suffix == "d") {
    scale = 86400;
  } else {
    return help;
  }
  if (value * scale < 1) return "'" + text + "' is too short (at least 1 s)";
  if (value * scale > 1e10) return "'" + text + "' is too long";
  ms = static_cast<uint64_t>(value * scale * 1000);
  return std::string();
}

}  // namespace zefo::cli
