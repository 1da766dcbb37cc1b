#include "file_access/directory_lock.h"

#include <sys/file.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <thread>

namespace file_utils {
namespace {

constexpr std::chrono::milliseconds kPause{10};
constexpr int kMaxIdlePauses = 1000;  // 10 s in which the file is not modified
constexpr int kMaxPauses = 6000;      // 60 s

long long ModificationTime(const Location& location) {
  struct stat status = {};
  fstatat(location.directory.Get(), location.name.c_str(), &status, AT_SYMLINK_NOFOLLOW);
  return status.st_mtim.tv_sec * 1'000'000'000LL + status.st_mtim.tv_nsec;
}

}  // namespace

DirectoryLock::DirectoryLock(const std::string& path) : location_(Locate(path)) {
  long long last_save = ModificationTime(location_);
  int idle_pauses = 0;
  for (int pauses = 0; pauses < kMaxPauses && idle_pauses < kMaxIdlePauses; ++pauses) {
    if (flock(location_.directory.Get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
    std::this_thread::sleep_for(kPause);
    const long long save = ModificationTime(location_);
    idle_pauses = save == last_save ? idle_pauses + 1 : 0;
    last_save = save;
  }
}

}  // namespace file_utils
