#ifndef ZEFO_QELTDDR_MONITOR_H_
#define ZEFO_QELTDDR_MONITOR_H_

#include "zefo/base_monitor.h"
#include "zefo/zefo_export.h"

namespace zefo {

// TODO: not built yet; samples nothing.
class ZEFO_EXPORT QeltDdrMonitor : public BaseMonitor {
 public:
  QeltDdrMonitor();
  explicit QeltDdrMonitor(const KernelPaths& paths);
  bool DoMonitor() override;
};

}  // namespace zefo

#endif  // ZEFO_QELTDDR_MONITOR_H_
