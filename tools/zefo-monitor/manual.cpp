#include "manual.h"

#include <vector>

#include "zefo/format/formats.h"

namespace zefo::cli {

namespace {

// The options people use, in the order --help lists them (hidden ones have no group).
std::vector<const CLI::Option*> Visible(const CLI::App& app) {
  std::vector<const CLI::Option*> options;
  for (const CLI::Option* option : app.get_options()) {
    if (!option->get_group().empty() && !option->get_lnames().empty()) options.push_back(option);
  }
  return options;
}

// Text as roff shows it literally: backslashes and hyphens escaped, no line starting with a
// control character.
std::string Roff(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\\') {
      out += "\\e";
    } else if (c == '-') {
      out += "\\-";
    } else {
      if ((c == '.' || c == '\'') && (out.empty() || out.back() == '\n')) out += "\\&";
      out += c;
    }
  }
  return out;
}

std::string FormatNames(const char* separator) {
  std::string names;
  for (const auto format : {format::Format::kReport, format::Format::kLine, format::Format::kJson,
                            format::Format::kOpenMetrics, format::Format::kPrometheus}) {
    names += (names.empty() ? "" : separator) + std::string(format::FormatName(format));
  }
  return names;
}

}  // namespace

std::string ManualPage(const CLI::App& app) {
  std::string page =
      ".TH ZEFO\\-MONITOR 1 \"\" \"zefo-monitor\" \"User Commands\"\n"
      ".SH NAME\n"
      "zefo\\-monitor \\- watch a board's CPU, BPU, DDR, memory, disks, network, temperatures "
      "and processes\n"
      ".SH SYNOPSIS\n"
      ".B zefo\\-monitor\n"
      "[\\fIOPTION\\fR]...\n"
      ".SH DESCRIPTION\n" +
      Roff(app.get_description()) +
      "\nThe figures need two samples, so the first pass has only its time.\n"
      ".SH OPTIONS\n";
  for (const CLI::Option* option : Visible(app)) {
    page += ".TP\n.B " + Roff("--" + option->get_lnames().front());
    const std::string type = option->get_type_name();
    if (option->get_expected_min() > 0 && !type.empty()) page += " \\fI" + Roff(type) + "\\fR";
    page += "\n" + Roff(option->get_description());
    if (!option->get_default_str().empty()) {
      page += " (default: " + Roff(option->get_default_str()) + ")";
    }
    page += "\n";
  }
  page +=
      ".SH UNITS\n"
      "Every human view (\\fB\\-\\-format line\\fR, \\fB\\-\\-top\\fR and the dashboard) writes "
      "rates in MB/s (10^6 bytes per second) and GB/s (10^9 bytes per second), sizes in MiB "
      "(2^20 bytes), frequencies in MHz and temperatures in degrees Celsius; CPU shares of a "
      "process are of one core.\n"
      ".SH KEYS\n"
      "In the \\fB\\-\\-top\\fR view: \\fBc\\fR, \\fBm\\fR, \\fBi\\fR, \\fBp\\fR, \\fBn\\fR sort "
      "the processes by CPU, memory, I/O, pid or name (again: reversed), \\fBr\\fR reverses, "
      "\\fB/\\fR types a filter (Enter keeps it, Esc clears it), the arrows, Page Up, Page Down, "
      "Home and End scroll, \\fBq\\fR or Ctrl\\-C quits.\n"
      ".SH ENVIRONMENT\n"
      ".TP\n.B NO_COLOR\n"
      "When set and not empty, no colour in \\fB\\-\\-top\\fR or \\fB\\-\\-format line\\fR.\n"
      ".TP\n.B TERM\n"
      "The terminal type \\fB\\-\\-top\\fR draws for (monochrome and ASCII where it has no "
      "colours or the locale is not UTF\\-8).\n"
      ".SH EXIT STATUS\n"
      "0 when it ends after \\fB\\-\\-count\\fR passes, \\fBq\\fR, SIGINT or SIGTERM; 2 for a "
      "bad option or an output it cannot write.\n";
  return page;
}

std::string BashCompletion(const CLI::App& app) {
  // Options by what follows them: a directory, a file, a format, other text (nothing offered).
  std::string options, dirs, files, others;
  const auto add = [](std::string& list, const std::string& name) {
    list += (list.empty() ? "" : "|") + name;
  };
  for (const CLI::Option* option : Visible(app)) {
    const std::string name = "--" + option->get_lnames().front();
    options += (options.empty() ? "" : " ") + name;
    const std::string type = option->get_type_name();
    if (option->get_expected_min() == 0 || type == "FORMAT") continue;
    add(type == "DIR" ? dirs : type == "FILE" ? files : others, name);
  }
  return "# bash completion for zefo-monitor; written by zefo-monitor --bash-completion\n"
         "_zefo_monitor() {\n"
         "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}\n"
         "  case $prev in\n"
         "    --format) COMPREPLY=($(compgen -W \"" +
         FormatNames(" ") +
         "\" -- \"$cur\")); return ;;\n"
         "    " +
         dirs +
         ") COMPREPLY=($(compgen -d -- \"$cur\")); return ;;\n"
         "    " +
         files +
         ") COMPREPLY=($(compgen -f -- \"$cur\")); return ;;\n"
         "    " +
         others +
         ") return ;;\n"
         "  esac\n"
         "  COMPREPLY=($(compgen -W \"" +
         options +
         "\" -- \"$cur\"))\n"
         "}\n"
         "complete -F _zefo_monitor zefo-monitor\n";
}

}  // namespace zefo::cli
