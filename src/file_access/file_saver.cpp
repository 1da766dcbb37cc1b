#include "file_access/file_saver.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <utility>

#include "file_access/file_descriptor.h"
#include "file_access/file_loader.h"

namespace file_utils {
namespace {

// Whether an error tells that a replacement is not to be had in this place. The file is then
// written in place. After any other error it is left alone: writing to it may fail as well.
bool IsRuleOfPlace(int error) {
  const auto rules = {EACCES, EBUSY,   EINVAL, EISDIR, ELOOP, ENAMETOOLONG,
                      ENOSYS, ENOTSUP, EPERM,  EROFS,  EXDEV};
  return std::find(rules.begin(), rules.end(), error) != rules.end();
}

// Where a path leads once the links that its name may be are followed: a directory, which is held
// open, and a name in it. It is not open, with the reason in errno, if it cannot be, or if the
// name, or a link that it is, is itself a link in /proc, which only looks like a name.
struct Location {
  explicit Location(std::string path) {
    std::array<char, PATH_MAX> link;
    for (int links = 0; links <= 40; ++links) {  // as many as the kernel follows
      name = path.substr(path.rfind('/') + 1);
      sibling = "." + name.substr(0, NAME_MAX - 5) + ".new";
      directory.Reset(OpenDirectoryOf(path, directory.Get()));
      if (!directory.IsOpen()) return;
      const ssize_t length = readlinkat(directory.Get(), name.c_str(), link.data(), link.size());
      if (length < 0) return;
      struct statfs fs;
      if (fstatfs(directory.Get(), &fs) != 0 || fs.f_type == PROC_SUPER_MAGIC) break;
      path.assign(link.data(), static_cast<size_t>(length));
    }
    directory.Reset(-1);
    errno = ELOOP;
  }

  FileDescriptor directory{AT_FDCWD};
  std::string name;
  std::string sibling;  // what the new content of the name is written to
};

// The steps of a save: each is true, or else false with the reason in errno.

bool Fail(int error) {
  errno = error;
  return false;
}

// Whether the name is that of the open file; or, of a file that is not open, nobody's.
bool IsNamed(int directory, const std::string& name, const FileDescriptor& file) {
  struct stat opened = {};
  struct stat named = {};
  if (file.IsOpen() && fstat(file.Get(), &opened) != 0) return false;
  const bool exists = fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT) return false;
  return (named.st_dev == opened.st_dev && named.st_ino == opened.st_ino) || Fail(ESTALE);
}

// Removes what has the sibling's name, whatever it is, but for a directory.
bool RemoveLeftOver(const Location& location) {
  return unlinkat(location.directory.Get(), location.sibling.c_str(), 0) == 0 || errno == ENOENT;
}

// Whether the file at `path` holds the content already. It is not read if its size tells.
bool Holds(const std::string& path, const struct stat& status, const std::string& content) {
  bool holds = false;
  if (S_ISREG(status.st_mode) && static_cast<size_t>(status.st_size) == content.size()) {
    const auto compare = [&](const std::string& text) { holds = text == content; };
    FileLoader().Load(path, compare, nullptr);
  }
  return holds;
}

bool Write(const FileDescriptor& file, const std::string& content) {
  for (size_t written = 0; written < content.size();) {
    const ssize_t count = write(file.Get(), content.data() + written, content.size() - written);
    if (count > 0) written += static_cast<size_t>(count);
    // Whatever it was: the same content would fail in place too.
    if (count == 0 || (count < 0 && errno != EINTR)) return Fail(EIO);
  }
  return true;
}

// What is no regular file may have nothing to flush, which EINVAL tells.
bool Flush(const FileDescriptor& file) {
  if (fsync(file.Get()) == 0) return true;
  struct stat status = {};
  const bool may_be_special = errno == EINVAL && fstat(file.Get(), &status) == 0;
  return (may_be_special && !S_ISREG(status.st_mode)) || Fail(EIO);
}

// Access control lists and other attributes, which a new file would lack or have inherited. The
// labels of security modules do not count: the kernel gives each file its own.
bool HasNoAttributes(const FileDescriptor& file) {
  std::array<char, 4096> names;
  const ssize_t length = flistxattr(file.Get(), names.data(), names.size());
  if (length < 0 && errno == ERANGE) return Fail(ENOTSUP);  // there are more
  if (length < 0) return errno == ENOTSUP || errno == ENOSYS;
  for (size_t i = 0; i < static_cast<size_t>(length); i += std::strlen(&names[i]) + 1) {
    if (std::strncmp(&names[i], "security.", 9) != 0) return Fail(ENOTSUP);
  }
  return true;
}

// Gives the new file the owner and the mode of the target, where it has others.
bool TakeOver(const FileDescriptor& file, const struct stat& former) {
  struct stat status = {};
  if (fstat(file.Get(), &status) != 0) return false;
  const bool is_owned = status.st_uid == former.st_uid && status.st_gid == former.st_gid;
  if (!is_owned && fchown(file.Get(), former.st_uid, former.st_gid) != 0) return false;
  return status.st_mode == former.st_mode || fchmod(file.Get(), former.st_mode & 07777) == 0;
}

// Makes the new file all that the target shall be; `former` is what the target is, if it is open.
bool Fill(const FileDescriptor& file, const FileDescriptor& target, const struct stat& former,
          const std::string& content) {
  if (!target.IsOpen()) return Write(file, content) && Flush(file);
  return HasNoAttributes(target) && HasNoAttributes(file) && Write(file, content) &&
         TakeOver(file, former) && Flush(file);
}

bool Replace(const Location& location, const FileDescriptor& target, const struct stat& former,
             const std::string& content) {
  const int directory = location.directory.Get();
  const mode_t mode = target.IsOpen() ? 0600 : 0666;
  const int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;
  const FileDescriptor file(openat(directory, location.sibling.c_str(), flags, mode));
  if (!file.IsOpen()) return false;
  if (Fill(file, target, former, content) && IsNamed(directory, location.sibling, file) &&
      IsNamed(directory, location.name, target) &&
      renameat(directory, location.sibling.c_str(), directory, location.name.c_str()) == 0) {
    return Flush(location.directory) && Flush(file);  // vfat keeps the name with the file
  }
  const int error = errno;
  if (IsNamed(directory, location.sibling, file)) unlinkat(directory, location.sibling.c_str(), 0);
  return Fail(error);
}

bool TrySave(const std::string& path, const std::string& content) {
  const Location location(path);
  const bool has_place = location.directory.IsOpen() && RemoveLeftOver(location);
  if (!has_place && !IsRuleOfPlace(errno)) return false;

  // Opened even where it will be replaced: a file that may not be written must stay as it is.
  FileDescriptor target(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  const bool exists = target.IsOpen();
  struct stat former = {};
  if (exists ? fstat(target.Get(), &former) != 0 : errno != ENOENT) return false;
  if (Holds(path, former, content) && futimens(target.Get(), nullptr) == 0) return true;
  const bool is_file = S_ISREG(former.st_mode);
  if (has_place && (!exists || (is_file && former.st_nlink <= 1))) {
    if (Replace(location, target, former, content)) return true;
    if (!IsRuleOfPlace(errno)) return false;
  }
  if (!exists) target.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (is_file && ftruncate(target.Get(), 0) != 0) return false;
  return Write(target, content) && Flush(target);
}

}  // namespace

class FileSaverImpl : public IFileSaver {
 public:
  void Save(const std::string& path, const std::string& content,
            std::function<void(const std::string&)> on_error) override {
    bool saved = false;
    try {
      for (int attempts = 0; !saved && attempts < 5; ++attempts) {
        saved = TrySave(path, content);
        if (errno != EEXIST && errno != ESTALE) break;  // no other save or change came first
      }
    } catch (...) {
      saved = false;  // memory ran out before anything was written
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
