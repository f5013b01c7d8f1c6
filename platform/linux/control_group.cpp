#include "platform/linux/control_group.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <fstream>
#include <vector>

namespace qm {
namespace {

// Reads up to two numbers at the start of a file; "max" or anything else that is not a number
// reads as none. Returns how many were read.
int readNumbers(const std::string& path, long long* first, long long* second) {
  std::FILE* file = std::fopen(path.c_str(), "r");
  if (!file) return 0;
  int read = std::fscanf(file, "%lld %lld", first, second);
  std::fclose(file);
  return read < 0 ? 0 : read;
}

// The process's group in a hierarchy, as its membership lists it: "0::/a/b" for the current
// kind (`controller` empty), "4:memory:/a/b" or "2:cpu,cpuacct:/a/b" for the older kind. Empty
// when not listed.
std::string ownGroup(const std::string& membership, const std::string& controller) {
  std::ifstream in(membership);
  std::string line;
  while (std::getline(in, line)) {
    std::size_t first = line.find(':');
    std::size_t second = first == std::string::npos ? first : line.find(':', first + 1);
    if (second == std::string::npos) continue;
    const std::string controllers = "," + line.substr(first + 1, second - first - 1) + ",";
    const bool match =
        controller.empty() ? controllers == ",," : controllers.find("," + controller + ",") != std::string::npos;
    if (match) return line.substr(second + 1);
  }
  return "";
}

// The folders of the process's group and of every group above it, up to the hierarchy's top
// at `top`. A container often sees its own group at the top while its membership still names
// the host's path; folders that do not exist are simply read as setting nothing.
std::vector<std::string> groupFolders(const std::string& top, const std::string& group) {
  std::vector<std::string> folders{top};
  std::string path = group;
  while (path.size() > 1 && path.front() == '/') {
    folders.push_back(top + path);
    std::size_t slash = path.rfind('/');
    path.resize(slash == 0 ? 1 : slash);
  }
  return folders;
}

// Whole processors for a quota of `quota` microseconds in every `period`; 0 for none.
unsigned processorsForQuota(long long quota, long long period) {
  if (quota <= 0 || period <= 0) return 0;
  long long processors = quota / period + (quota % period != 0);
  return static_cast<unsigned>(std::min<long long>(processors, UINT_MAX));
}

unsigned tighterQuota(unsigned a, unsigned b) { return a == 0 ? b : b == 0 ? a : std::min(a, b); }

}  // namespace

std::uint64_t controlGroupMemoryLimit(const ControlGroupPlace& place) {
  std::uint64_t limit = UINT64_MAX;
  auto take = [&](const std::string& path) {
    long long bytes = 0;
    long long unused = 0;
    if (readNumbers(path, &bytes, &unused) >= 1 && bytes > 0) {
      limit = std::min(limit, static_cast<std::uint64_t>(bytes));
    }
  };
  for (const std::string& folder : groupFolders(place.root, ownGroup(place.membership, ""))) {
    take(folder + "/memory.max");
  }
  // The older kind's "no limit" is a number near the top of the range, above any physical
  // memory, so taking it as a limit changes nothing.
  for (const std::string& folder : groupFolders(place.root + "/memory", ownGroup(place.membership, "memory"))) {
    take(folder + "/memory.limit_in_bytes");
  }
  return limit;
}

unsigned controlGroupProcessorQuota(const ControlGroupPlace& place) {
  unsigned quota = 0;
  // Current kind: "<quota> <period>", or "max <period>" without a quota.
  for (const std::string& folder : groupFolders(place.root, ownGroup(place.membership, ""))) {
    long long time = 0;
    long long period = 0;
    if (readNumbers(folder + "/cpu.max", &time, &period) == 2) {
      quota = tighterQuota(quota, processorsForQuota(time, period));
    }
  }
  // Older kind: the two in files of their own, the quota -1 without one.
  for (const std::string& folder : groupFolders(place.root + "/cpu", ownGroup(place.membership, "cpu"))) {
    long long time = 0;
    long long period = 0;
    long long unused = 0;
    if (readNumbers(folder + "/cpu.cfs_quota_us", &time, &unused) >= 1 &&
        readNumbers(folder + "/cpu.cfs_period_us", &period, &unused) >= 1) {
      quota = tighterQuota(quota, processorsForQuota(time, period));
    }
  }
  return quota;
}

}  // namespace qm
