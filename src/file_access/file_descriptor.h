#pragma once

#include <unistd.h>

#include <cerrno>

namespace file_utils {

/// Owns an open file descriptor, or none (any negative number), and closes it on destruction. What
/// close(2) reports is not looked at: fsync(2) has told before. errno stays as it is.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { Reset(-1); }

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }

  /// Owns `fd` from now on. The descriptor owned before is closed.
  void Reset(int fd) {
    const int error = errno;
    if (IsOpen()) close(fd_);
    errno = error;
    fd_ = fd;
  }

 private:
  int fd_;
};

}  // namespace file_utils
