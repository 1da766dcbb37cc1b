#include "file_access/file_saver.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <utility>

#include "file_access/file_descriptor.h"

namespace file_utils {
namespace {

// Whether a failed step ends the save, with the old content kept: short of room, or with a failing
// disk, writing in place would fail as well, and lose it. Any other error tells what this file
// system, directory, name or user cannot do, and writing in place can be done even so.
bool EndsSave(int error) {
  return error == EDQUOT || error == EFBIG || error == EIO || error == ENOMEM || error == ENOSPC;
}

// Where a path leads once the links that its name may be are followed: a directory and a name in
// it. The directory is held open, so it may be moved, and its path may be as long as a path can be.
// It is not open if it cannot be, or if the path leads through a link of /proc, which stands for an
// open file and only looks like a name.
struct Location {
  explicit Location(std::string path) {
    std::array<char, PATH_MAX> link;
    for (int links = 0; links < 40; ++links) {  // the kernel's own bound
      const size_t start_of_name = path.rfind('/') + 1;
      const std::string parent = start_of_name == 0 ? "." : path.substr(0, start_of_name);
      name = path.substr(start_of_name);
      directory.Reset(openat(directory.Get(), parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
      const ssize_t length = readlinkat(directory.Get(), name.c_str(), link.data(), link.size());
      if (length < 0) return;
      struct statfs file_system;
      if (fstatfs(directory.Get(), &file_system) != 0 || file_system.f_type == PROC_SUPER_MAGIC) {
        break;
      }
      path.assign(link.data(), static_cast<size_t>(length));
    }
    directory.Close();
  }

  FileDescriptor directory{AT_FDCWD};
  std::string name;
};

// The steps of a save: each is true, or else false with the reason in errno.

bool Write(const FileDescriptor& file, const std::string& content) {
  for (size_t written = 0; written < content.size();) {
    const ssize_t count = write(file.Get(), content.data() + written, content.size() - written);
    if (count > 0) {
      written += static_cast<size_t>(count);
    } else if (count == 0 || errno != EINTR) {
      errno = EIO;  // whatever it was: the same content would fail in place too
      return false;
    }
  }
  // Some file systems report a failed write only when a descriptor is closed. A file without a name
  // is gone with its last one, so that a copy is closed.
  const int copy = fcntl(file.Get(), F_DUPFD_CLOEXEC, 0);
  if (copy >= 0 && close(copy) == 0) return true;
  errno = EIO;
  return false;
}

// Access control lists and other attributes, which a new file would lack or have inherited. The
// labels of security modules do not count: the kernel gives each file its own.
bool HasNoAttributes(const FileDescriptor& file) {
  std::array<char, 4096> names;
  const ssize_t length = flistxattr(file.Get(), names.data(), names.size());
  if (length < 0) return errno == ENOTSUP || errno == ENOSYS;
  for (size_t i = 0; i < static_cast<size_t>(length); i += std::strlen(&names[i]) + 1) {
    if (std::strncmp(&names[i], "security.", 9) != 0) {
      errno = ENOTSUP;
      return false;
    }
  }
  return true;
}

// Whether the name is still that of the file that was opened. Another may have come meanwhile.
bool IsStill(const Location& location, const struct stat& former) {
  struct stat now;
  errno = ESTALE;
  return fstatat(location.directory.Get(), location.name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 &&
         now.st_dev == former.st_dev && now.st_ino == former.st_ino;
}

// Names a file that has none. Its data is set on its way before, so that it reaches the disk before
// the name does, whatever the file system promises: nothing waits for it, unlike for fsync(2).
bool Link(const FileDescriptor& file, const FileDescriptor& directory, const std::string& name) {
  sync_file_range(file.Get(), 0, 0, SYNC_FILE_RANGE_WRITE);
  const std::string self = "/proc/self/fd/" + std::to_string(file.Get());  // as open(2) has it
  return linkat(AT_FDCWD, self.c_str(), directory.Get(), name.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

// A sibling in a directory that only grows could be neither renamed nor removed.
bool OnlyGrows(const FileDescriptor& directory) {
  struct statx status;
  return statx(directory.Get(), "", AT_EMPTY_PATH, 0, &status) == 0 &&
         (status.stx_attributes & STATX_ATTR_APPEND) != 0;
}

// Makes the new file all that the target shall be. `former` is what the target is, if it is open.
// Mode after owner: a change of owner clears the set-user-ID bits.
bool Fill(const FileDescriptor& file, const FileDescriptor& target, const struct stat& former,
          const std::string& content) {
  if (!target.IsOpen()) return Write(file, content);
  return HasNoAttributes(target) && HasNoAttributes(file) && Write(file, content) &&
         fchown(file.Get(), former.st_uid, former.st_gid) == 0 &&
         fchmod(file.Get(), former.st_mode & 07777) == 0;
}

// Puts a new file in place of the target: one that has no name until it is filled, or else, for
// file systems without such files, a sibling from the start. Gives 0 or, with the target as it was,
// the error.
int Replace(const Location& location, const FileDescriptor& target, const struct stat& former,
            const std::string& content, bool nameless) {
  const int directory = location.directory.Get();
  const bool exists = target.IsOpen();
  const bool renames = exists || !nameless;
  if (renames && OnlyGrows(location.directory)) return EPERM;

  // Short, since a name without room for a suffix is valid too; of this thread and moment only.
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  const std::string sibling =
      ".feature_toggled." + std::to_string(gettid()) + "." + std::to_string(now);
  const int flags = O_WRONLY | O_CLOEXEC | (nameless ? O_TMPFILE : O_CREAT | O_EXCL);
  const FileDescriptor file(
      openat(directory, nameless ? "." : sibling.c_str(), flags, exists ? 0600 : 0666));
  if (!file.IsOpen()) return errno;
  bool done = Fill(file, target, former, content) && (!exists || IsStill(location, former));
  if (done && nameless) done = Link(file, location.directory, renames ? sibling : location.name);
  if (done && renames) {
    done = renameat(directory, sibling.c_str(), directory, location.name.c_str()) == 0;
  }
  const int error = done ? 0 : errno;
  if (!done && renames) unlinkat(directory, sibling.c_str(), 0);
  return error;
}

bool SaveFile(const std::string& path, const std::string& content) {
  // Opened even where it will be replaced: a file that may not be written must stay as it is.
  FileDescriptor target(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  const bool exists = target.IsOpen();
  if (!exists && errno != ENOENT) return false;
  struct stat former = {};
  if (exists && fstat(target.Get(), &former) != 0) return false;
  if (!exists || (S_ISREG(former.st_mode) && former.st_nlink <= 1)) {
    const Location location(path);
    int error = 0;
    for (const bool nameless : {true, false}) {
      error = Replace(location, target, former, content, nameless);
      if (error == 0 || EndsSave(error)) return error == 0;
    }
    // Replaced by another process since it was opened, it is nobody's file: the name counts.
    if (error == ESTALE && fstat(target.Get(), &former) == 0 && former.st_nlink == 0) {
      return SaveFile(path, content);
    }
  }
  if (!exists) target.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
  if (S_ISREG(former.st_mode) && ftruncate(target.Get(), 0) != 0) return false;
  return Write(target, content);
}

}  // namespace

class FileSaverImpl : public IFileSaver {
 public:
  void Save(const std::string& path, const std::string& content,
            std::function<void(const std::string&)> on_error) override {
    bool saved = false;
    try {
      saved = SaveFile(path, content);
    } catch (...) {
      // Memory ran out before anything was written.
    }
    if (!saved && on_error) on_error("Error writing file.");
  }
};

FileSaver::FileSaver() : impl_(std::make_unique<FileSaverImpl>()) {}

void FileSaver::Save(const std::string& path, const std::string& content,
                     std::function<void(const std::string&)> on_error) {
  impl_->Save(path, content, std::move(on_error));
}

}  // namespace file_utils
