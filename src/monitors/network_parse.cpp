#include "monitors/network_parse.h"

#include <cstdio>

#include "monitors/word_scan.h"

namespace zefo {
namespace detail {

static_assert(BaseMonitor::kWordSize == 256, "the format below bounds the name to 255 bytes");

bool ParseNetDevLine(const char* line, std::string& name, NetworkState& out) {
  char word[BaseMonitor::kWordSize] = {};
  int word_end = -1;
  long long c[16] = {};
  const char* text = line;
  const int fields =
      std::sscanf(text,
                  "%255s%n %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld %lld "
                  "%lld %lld %lld %lld %lld",
                  word, &word_end, &c[0], &c[1], &c[2], &c[3], &c[4], &c[5], &c[6], &c[7], &c[8],
                  &c[9], &c[10], &c[11], &c[12], &c[13], &c[14], &c[15]);
  if (fields < 1 || !WordFits(text, word_end)) return false;
  name = word;
  out.rx_bytes = c[0];
  out.rx_packets = c[1];
  out.rx_errs = c[2];
  out.rx_drop = c[3];
  out.rx_fifo = c[4];
  out.rx_frame = c[5];
  out.rx_compressed = c[6];
  out.rx_multicast = c[7];
  out.tx_bytes = c[8];
  out.tx_packets = c[9];
  out.tx_errs = c[10];
  out.tx_drop = c[11];
  out.tx_fifo = c[12];
  out.tx_colls = c[13];
  out.tx_carrier = c[14];
  out.tx_compressed = c[15];
  return true;
}

}  // namespace detail
}  // namespace zefo
