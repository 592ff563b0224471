#include "zefo/base_monitor.h"

#include <dirent.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "core/file_reader.h"
#include "core/scan_cursor.h"
#include "zefo/zefo_utils.h"

namespace zefo {

int64_t WallClockMs() {
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  return static_cast<int64_t>(static_cast<double>(static_cast<int64_t>(tv.tv_sec) * 1000) +
                              static_cast<double>(tv.tv_usec) / 1000.0);
}

ResourceItems::~ResourceItems() {
  for (auto& entry : items_) delete entry.second;
}

ResourceItem* ResourceItems::Find(const std::string& name) const {
  auto it = items_.find(name);
  return it == items_.end() ? nullptr : it->second;
}

void ResourceItems::Insert(const std::string& name, ResourceItem* item) {
  ResourceItem*& slot = items_[name];
  if (slot != item && slot != nullptr) {
    Untouch(slot);
    delete slot;
  }
  slot = item;
}

void ResourceItems::Erase(const std::string& name) {
  auto it = items_.find(name);
  if (it == items_.end()) return;
  Untouch(it->second);
  delete it->second;
  items_.erase(it);
}

void ResourceItems::StampTouched(uint64_t update_time) {
  for (ResourceItem* item : touched_) item->update_time = update_time;
  touched_.clear();
}

void ResourceItems::Untouch(const ResourceItem* item) {
  touched_.erase(std::remove(touched_.begin(), touched_.end(), item), touched_.end());
}

std::list<std::string> SubElement(const std::string& dir,
                                  std::function<bool(unsigned int)> filter) {
  std::list<std::string> names;
  if (dir.empty()) return names;
  std::string prefix = dir;
  if (prefix.back() != '/') prefix += '/';
  DIR* handle = opendir(prefix.c_str());
  if (handle == nullptr) return names;
  std::string entry_path;
  while (const struct dirent* entry = readdir(handle)) {
    if (entry->d_name[0] == '.') continue;
    entry_path.assign(prefix).append(entry->d_name);
    struct stat st;
    if (lstat(entry_path.c_str(), &st) != 0) continue;
    if (filter && filter(st.st_mode)) names.emplace_back(entry->d_name);
  }
  closedir(handle);
  return names;
}

BaseMonitor::BaseMonitor(ResourceMonitorType type) : BaseMonitor(type, KernelPaths()) {}

BaseMonitor::BaseMonitor(ResourceMonitorType type, const KernelPaths& paths)
    : type_(type),
      items_(new ResourceItems()),
      clock_ticks_(static_cast<double>(sysconf(_SC_CLK_TCK))),
      paths_(paths) {}

BaseMonitor::~BaseMonitor() {
  delete items_;
}

bool BaseMonitor::IsExists(const std::string& path) const {
  return common::util::PathExists(path);
}

namespace {

std::list<std::string> ReadLines(const std::string& path, detail::FollowLinks follow) {
  std::list<std::string> lines;
  std::string text;
  detail::ReadWholeFile(path, text, follow);
  detail::SplitLines(text, lines);
  return lines;
}

}  // namespace

std::list<std::string> BaseMonitor::ReadFile(const std::string& path) const {
  return ReadLines(path, detail::FollowLinks::kYes);
}

std::list<std::string> BaseMonitor::ReadFileNoFollow(const std::string& path) const {
  return ReadLines(path, detail::FollowLinks::kNo);
}

bool BaseMonitor::ReadValue(const std::string& path, const std::string& format, void* out) const {
  const std::list<std::string> lines = ReadFile(path);
  if (lines.empty()) return false;
  std::sscanf(lines.front().c_str(), format.c_str(), out);
  return true;
}

bool BaseMonitor::ReadValue(const std::string& path, long long& out) const {
  out = -1;
  return ReadValue(path, "%lld", &out);
}

bool BaseMonitor::ReadValue(const std::string& path, long& out) const {
  out = -1;
  return ReadValue(path, "%ld", &out);
}

bool BaseMonitor::ReadValue(const std::string& path, int& out) const {
  out = -1;
  return ReadValue(path, "%d", &out);
}

bool BaseMonitor::ReadValue(const std::string& path, double& out) const {
  out = 0;
  return ReadValue(path, "%f", &out);
}

bool BaseMonitor::ReadValue(const std::string& path, char* out) const {
  static_assert(kWordSize == 256, "the format below bounds the word to kWordSize - 1");
  return ReadValue(path, "%255s", out);
}

std::list<std::string> BaseMonitor::SubDirs(const std::string& dir) const {
  return SubElement(dir, [](unsigned int mode) { return (mode & S_IFMT) == S_IFDIR; });
}

std::list<std::string> BaseMonitor::SubFiles(const std::string& dir) const {
  return SubElement(dir, [](unsigned int mode) { return (mode & S_IFMT) == S_IFREG; });
}

uint64_t BaseMonitor::UnitToBytes(const std::string& unit) {
  return detail::UnitMultiplier(unit);
}

uint64_t BaseMonitor::LinuxProcessAdjustTime(unsigned long long ticks) const {
  const double hundredths = (1.0 / clock_ticks_) * static_cast<double>(ticks) * 100.0;
  // Out-of-range conversions are undefined; a counter that large is garbage anyway.
  if (!(hundredths >= 0.0)) return 0;
  if (hundredths >= 18446744073709551616.0) return UINT64_MAX;
  return static_cast<uint64_t>(hundredths);
}

}  // namespace zefo
