#include "zefo/qeltddr_monitor.h"

namespace zefo {

QeltDdrMonitor::QeltDdrMonitor() : QeltDdrMonitor(KernelPaths()) {}

QeltDdrMonitor::QeltDdrMonitor(const KernelPaths& paths) : BaseMonitor(QeltDdr, paths) {}

bool QeltDdrMonitor::DoMonitor() {
  return true;
}

}  // namespace zefo
