#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

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

/// Opens the directory of the file at `path`, which starts at the directory `start` if it is
/// relative. The caller owns the result; -1 tells of a failure, with the reason in errno.
inline int OpenDirectoryOf(const std::string& path, int start = AT_FDCWD) {
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
  return openat(start, directory.empty() ? "." : directory.c_str(), flags);
}

}  // namespace file_utils
