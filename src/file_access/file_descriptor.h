#pragma once

#include <unistd.h>

#include <utility>

namespace file_utils {

/// Owns an open file descriptor, or none (any negative number), and closes it on destruction.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { Close(); }

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }

  /// Owns `fd` from now on. The descriptor owned before is closed.
  void Reset(int fd) {
    Close();
    fd_ = fd;
  }

  /// False if close(2) reports that something written before did not reach the file. The descriptor
  /// is gone in either case.
  bool Close() { return !IsOpen() || close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

}  // namespace file_utils
