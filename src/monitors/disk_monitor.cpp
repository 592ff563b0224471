#include "zefo/disk_monitor.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <iomanip>

#include "monitors/counter_math.h"
#include "monitors/disk_parse.h"

namespace zefo {

void DiskResourceItem::PrintToStream(std::ostream& os) {
  os << "Mounted on: " << name << std::endl;
  os << "  file system       : " << std::fixed << std::setprecision(2) << file_system << std::endl;
  os << "  mounted point     : " << std::fixed << std::setprecision(2) << mount_point << std::endl;
  os << "  total size        : " << std::fixed << std::setprecision(2) << total_size << std::endl;
  os << "  available size    : " << std::fixed << std::setprecision(2) << available_size
     << std::endl;
  os << "  read bandwidth    : " << std::fixed << std::setprecision(2) << read_bandwidth
     << std::endl;
  os << "  written bandwidth : " << std::fixed << std::setprecision(2) << written_bandwidth
     << std::endl;
}

void DiskResourceInfo::DoUpdate(const std::string& /*name*/, DiskResourceItem* item,
                                const DiskState& current, const DiskState& previous,
                                double elapsed_seconds) {
  item->name = current.name;
  item->file_system = current.file_system;
  item->mount_point = current.mount_point;
  item->total_size = current.total_size;
  item->available_size = current.available_size;
  // diskstats counts in 512-byte units whatever the device's own sector size.
  item->read_bandwidth =
      static_cast<double>(detail::WrappingSub(current.sectors_read, previous.sectors_read)) *
      512.0 / elapsed_seconds;
  item->written_bandwidth =
      static_cast<double>(detail::WrappingSub(current.sectors_written, previous.sectors_written)) *
      512.0 / elapsed_seconds;
}

DiskMonitor::DiskMonitor() : DiskMonitor(KernelPaths()) {}

DiskMonitor::DiskMonitor(const KernelPaths& paths)
    : BaseMonitor(Disk, paths), info_(new DiskResourceInfo()) {}

DiskMonitor::~DiskMonitor() {
  delete info_;
}

MountTable DiskMonitor::GetMounts() const {
  MountTable table;
  std::string file_system;
  std::string mount_point;
  for (const std::string& line : ReadFile(Paths().Proc("mounts"))) {
    if (detail::ParseMountLine(line, file_system, mount_point) <= 0) continue;
    if (mount_point.empty()) continue;
    const std::string path = Paths().Root(mount_point);
    struct statvfs vfs;
    if (statvfs(path.c_str(), &vfs) != 0) continue;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) continue;
    Mount mount;
    mount.file_system = file_system;
    mount.mount_point = mount_point;
    // Counted in f_bsize blocks, not f_frsize fragments; the two agree on the usual disk file
    // systems. Multiplied unsigned so that a file system reporting absurd counts wraps rather
    // than overflows.
    const uint64_t block = vfs.f_bsize;
    mount.total_size = static_cast<int64_t>(static_cast<uint64_t>(vfs.f_blocks) * block);
    mount.available_size = static_cast<int64_t>(static_cast<uint64_t>(vfs.f_bavail) * block);
    table[static_cast<uint64_t>(st.st_dev)].push_back(mount);
  }
  return table;
}

bool DiskMonitor::DoMonitor() {
  const MountTable mounts = GetMounts();
  if (mounts.empty()) return true;
  for (const std::string& line : ReadFile(Paths().Proc("diskstats"))) {
    uint64_t key = 0;
    if (!detail::ParseDiskstatsKey(line, key)) continue;
    auto found = mounts.find(key);
    if (found == mounts.end() || found->second.empty()) continue;
    DiskState state;
    if (!detail::ParseDiskstatsLine(line, state)) continue;
    for (const Mount& mount : found->second) {
      state.file_system = mount.file_system;
      state.mount_point = mount.mount_point;
      state.total_size = mount.total_size;
      state.available_size = mount.available_size;
      info_->Update(MutableItems(), mount.mount_point, state, Now());
    }
  }
  return true;
}

}  // namespace zefo
