#ifndef ZEFO_TOOLS_ZEFO_MONITOR_PREFLIGHT_H_
#define ZEFO_TOOLS_ZEFO_MONITOR_PREFLIGHT_H_

#include <string>
#include <vector>

#include "options.h"

namespace zefo::cli {

// What the tool should say once, before sampling, about data it will not have: a --pid with no
// such process, a kernel root that does not exist, or one that is not the file system the
// kernel mounts there (a saved tree, say). One line each, without the program's name.
std::vector<std::string> MissingDataNotes(const Options& options);

}  // namespace zefo::cli

#endif  // ZEFO_TOOLS_ZEFO_MONITOR_PREFLIGHT_H_
