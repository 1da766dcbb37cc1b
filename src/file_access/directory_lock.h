#pragma once

#include <string>

#include "file_access/file_descriptor.h"

namespace file_utils {

/// Keeps those apart who read files and save what they made of them, in one process or several: of
/// two, the second reads what the first has saved. A lock on the directory (flock(2)), held until
/// it is released or destroyed, or its process ends. It binds only those who ask for it: a file can
/// be read and saved without.
class DirectoryLock {
 public:
  /// Locks the directory of the file at `path`. Waits for whoever has the lock, but for some 10 s
  /// at most, since anyone who may read the directory can have it. Goes on without the lock then,
  /// and if the directory cannot be read or locked.
  explicit DirectoryLock(const std::string& path);

  void Release() { directory_.Reset(-1); }

 private:
  FileDescriptor directory_;
};

}  // namespace file_utils
