#pragma once

#include <string>

#include "file_access/file_descriptor.h"

namespace file_utils {

/// A directory, held open, and a name in it. A file of that name need not exist.
struct Location {
  FileDescriptor directory;
  std::string name;
  int error;  ///< 0, or why the directory is not open (errno(3)). The name is then the whole path.
};

/// Returns where `path` leads after its final symbolic links are followed. All paths of a file lead
/// to the same location. The error is ELOOP if there are too many links, and for a link in /proc,
/// which leads to an open file rather than to a name.
Location Locate(const std::string& path);

}  // namespace file_utils
