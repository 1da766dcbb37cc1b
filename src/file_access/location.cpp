#include "file_access/location.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <array>
#include <cerrno>
#include <climits>

namespace file_utils {
namespace {

constexpr int kMaxLinks = 40;  // as many as the kernel follows: path_resolution(7)

bool IsInProc(const FileDescriptor& directory) {
  struct statfs file_system;
  return fstatfs(directory.Get(), &file_system) == 0 && file_system.f_type == PROC_SUPER_MAGIC;
}

}  // namespace

Location Locate(const std::string& path) {
  FileDescriptor start;     // the directory at which `rest` starts if it is relative
  std::string rest = path;  // the part of the path that is still to be followed
  std::array<char, PATH_MAX> link;
  for (int links = 0; links <= kMaxLinks; ++links) {
    const size_t name_start = rest.rfind('/') + 1;
    const std::string parent = name_start == 0 ? "." : rest.substr(0, name_start);
    const std::string name = rest.substr(name_start);
    FileDescriptor directory(
        openat(start.Get(), parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory.IsOpen()) return {FileDescriptor(), path, errno};
    const ssize_t length = readlinkat(directory.Get(), name.c_str(), link.data(), link.size());
    if (length < 0) return {std::move(directory), name, 0};  // not a link, or missing
    if (IsInProc(directory)) break;
    rest.assign(link.data(), static_cast<size_t>(length));
    start = std::move(directory);
  }
  return {FileDescriptor(), path, ELOOP};
}

}  // namespace file_utils
