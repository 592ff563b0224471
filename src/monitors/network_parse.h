#ifndef ZEFO_SRC_MONITORS_NETWORK_PARSE_H_
#define ZEFO_SRC_MONITORS_NETWORK_PARSE_H_

#include <string>

#include "zefo/network_monitor.h"

namespace zefo {
namespace detail {

// One interface line of /proc/net/dev (the file's two header lines are not for this parser).
// "  eth0: 18707308     781    0    0    0     0          0         0    49151     663    0 ..."
//  name   rx: bytes packets errs drop fifo frame compressed multicast
//         tx: bytes packets errs drop fifo colls carrier compressed
// `name` is the first word as it stands, colon included. When the kernel runs a large first
// counter into the colon ("eth0:123456789") that counter stays part of the name and every
// later counter moves one place left. All sixteen counters are reset first, so one the line
// lacks reads 0. False, with nothing changed, for a line without a word or whose first word is
// longer than 255 bytes.
bool ParseNetDevLine(const char* line, std::string& name, NetworkState& out);

}  // namespace detail
}  // namespace zefo

#endif  // ZEFO_SRC_MONITORS_NETWORK_PARSE_H_
