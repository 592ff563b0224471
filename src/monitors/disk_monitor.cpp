#include "zefo/disk_monitor.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <iomanip>

#include "core/counter_math.h"
#include "core/file_reader.h"
#include "core/path_join.h"
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
  item->counters.read_bytes = detail::WrappingMul(current.sectors_read, 512);
  item->counters.written_bytes = detail::WrappingMul(current.sectors_written, 512);
}

DiskMonitor::DiskMonitor() : DiskMonitor(KernelPaths()) {}

DiskMonitor::DiskMonitor(const KernelPaths& paths)
    : BaseMonitor(Disk, paths), info_(new DiskResourceInfo()) {
  SetSamples(info_);
}

DiskMonitor::~DiskMonitor() {
  delete info_;
}

namespace {

// Reads the mount table into `text` and calls fn(device, total_size, available_size) for every
// mount point, in table order, that statvfs and stat both answer (under the root file system
// path), with `file_system` and `mount_point` holding its line's words. The two words carry over
// from line to line as the parser leaves them: a line of one word keeps the last mount point.
template <typename Fn>
void ForEachQueriedMount(const KernelPaths& paths, std::string& text, std::string& path,
                         std::string& file_system, std::string& mount_point, Fn&& fn) {
  detail::ReadWholeFile(paths.Proc("mounts"), text);
  detail::ForEachLineInPlace(text, [&](const char* line) {
    if (detail::ParseMountLine(line, file_system, mount_point) <= 0) return;
    if (mount_point.empty()) return;
    detail::AssignJoined(path, paths.rootfs, mount_point);
    struct statvfs vfs;
    if (statvfs(path.c_str(), &vfs) != 0) return;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) return;
    // Counted in f_bsize blocks, not f_frsize fragments; the two agree on the usual disk file
    // systems. Multiplied unsigned so that a file system reporting absurd counts wraps rather
    // than overflows.
    const uint64_t block = vfs.f_bsize;
    fn(static_cast<uint64_t>(st.st_dev),
       static_cast<int64_t>(static_cast<uint64_t>(vfs.f_blocks) * block),
       static_cast<int64_t>(static_cast<uint64_t>(vfs.f_bavail) * block));
  });
}

}  // namespace

MountTable DiskMonitor::GetMounts() const {
  MountTable table;
  std::string text;
  std::string path;
  std::string file_system;
  std::string mount_point;
  ForEachQueriedMount(Paths(), text, path, file_system, mount_point,
                      [&](uint64_t device, int64_t total_size, int64_t available_size) {
                        Mount mount;
                        mount.file_system = file_system;
                        mount.mount_point = mount_point;
                        mount.total_size = total_size;
                        mount.available_size = available_size;
                        table[device].push_back(mount);
                      });
  return table;
}

bool DiskMonitor::DoMonitor() {
  // What GetMounts() gives, kept in reused storage: the mounts in table order, each with its
  // device, and a device's mounts found by a scan (a handful of mounts, a handful of lines).
  std::size_t count = 0;
  file_system_.clear();
  mount_point_.clear();
  ForEachQueriedMount(Paths(), text_, path_, file_system_, mount_point_,
                      [&](uint64_t device, int64_t total_size, int64_t available_size) {
                        if (count == mounts_.size()) mounts_.emplace_back();
                        QueriedMount& entry = mounts_[count++];
                        entry.device = device;
                        entry.mount.file_system = file_system_;
                        entry.mount.mount_point = mount_point_;
                        entry.mount.total_size = total_size;
                        entry.mount.available_size = available_size;
                      });
  if (count == 0) return true;
  detail::ReadWholeFile(Paths().Proc("diskstats"), text_);
  detail::ForEachLineInPlace(text_, [&](const char* line) {
    uint64_t key = 0;
    if (!detail::ParseDiskstatsKey(line, key)) return;
    bool parsed = false;
    for (std::size_t i = 0; i < count; ++i) {
      const Mount& mount = mounts_[i].mount;
      if (mounts_[i].device != key) continue;
      if (!parsed) {
        if (!detail::ParseDiskstatsLine(line, state_)) return;
        parsed = true;
      }
      state_.file_system = mount.file_system;
      state_.mount_point = mount.mount_point;
      state_.total_size = mount.total_size;
      state_.available_size = mount.available_size;
      info_->Update(MutableItems(), mount.mount_point, state_, Now());
    }
  });
  return true;
}

}  // namespace zefo
