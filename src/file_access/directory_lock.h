#pragma once

#include <string>

#include "file_access/location.h"

namespace file_utils {

/// Serialises read-modify-write cycles on the files of one directory, between threads and between
/// processes (flock(2)). It binds only those who use it: files can be read and saved without it.
class DirectoryLock {
 public:
  /// Locks the directory of the file that `path` leads to, until `Unlock` or destruction.
  ///
  /// The wait is limited, because any user who can read the directory can hold the lock. It ends
  /// when that file has not been modified for about 10 s, and after about 60 s in all, less than
  /// the 90 s that systemd allows a start. The constructor then returns without the lock. It also
  /// does so if the directory cannot be opened or locked.
  explicit DirectoryLock(const std::string& path);

  void Unlock() { location_.directory = FileDescriptor(); }

 private:
  Location location_;
};

}  // namespace file_utils
