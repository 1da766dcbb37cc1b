#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace file_utils {

/// Owns an open file descriptor and closes it on destruction. Errors of close(2) are ignored. Call
/// fsync(2) first if they matter.
class FileDescriptor {
 public:
  /// Owns nothing. Get() returns AT_FDCWD, which openat(2) takes for the working directory.
  FileDescriptor() = default;

  /// Owns `fd`, or nothing if it is negative.
  explicit FileDescriptor(int fd) : fd_(fd) {}

  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, AT_FDCWD)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor() {
    if (IsOpen()) close(fd_);
  }

  bool IsOpen() const { return fd_ >= 0; }
  int Get() const { return fd_; }

 private:
  int fd_ = AT_FDCWD;
};

}  // namespace file_utils
