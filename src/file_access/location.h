#pragma once

#include <string>

#include "file_access/file_descriptor.h"

namespace file_utils {

/// An open directory and a name in it. A file of that name need not exist.
struct Location {
  FileDescriptor directory;
  std::string name;
  int error;  ///< 0, or why the directory is not open (errno(3)). The name is then the whole path.
};

/// Follows `path` while its last component is a symbolic link, and returns where it leads. All
/// links to a path thus have the location of that path. The error is ELOOP if there are too many
/// links, and for a link in /proc, which leads to an open file rather than to a name.
Location Locate(const std::string& path);

}  // namespace file_utils
