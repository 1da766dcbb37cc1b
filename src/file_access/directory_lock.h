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
  /// Any user who can read the directory can hold the lock. A wait therefore ends when the file has
  /// not been modified for 10 s, and after 60 s in all, which is less than systemd allows a start.
  /// The constructor then goes on without the lock. It does so too if the directory cannot be
  /// opened or locked.
  explicit DirectoryLock(const std::string& path);

  void Unlock() { location_.directory = FileDescriptor(); }

 private:
  Location location_;
};

}  // namespace file_utils
