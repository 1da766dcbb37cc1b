#include "file_access/directory_lock.h"

#include <sys/file.h>

namespace file_utils {

DirectoryLock::DirectoryLock(const std::string& path) : directory_(OpenDirectoryOf(path)) {
  for (int waits = 0; waits < 1000; ++waits) {
    if (flock(directory_.Get(), LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
    usleep(10'000);
  }
}

}  // namespace file_utils
