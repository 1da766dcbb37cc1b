#include "file_access/file_saver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>
#include <set>
#include <stdexcept>
#include <string_view>
#include <tuple>
#include <utility>

#include "file_access/file_descriptor.h"
#include "file_access/file_loader.h"
#include "file_access/location.h"

namespace file_utils {
namespace {

constexpr int kMaxAttempts = 5;
constexpr std::string_view kSiblingPrefix = ".";
constexpr std::string_view kSiblingSuffix = ".new";
constexpr int kCreateNew = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC;

using Status = struct stat;

// Ends the save. No caller can use the reason.
[[noreturn]] void Fail() { throw std::runtime_error("save"); }

enum class Replacement {
  kDone,
  kNotPossible,       // for this file, or in this directory: it must be written in place
  kChangedMeanwhile,  // by another save or a user: the save must start over
};

// Returns what an error of a system call means for a replacement. Any other error ends the save:
// writing in place would probably fail too, and lose the old content.
Replacement Classify(int error) {
  static const std::set<int> changes = {EEXIST, ENOENT, ESTALE};
  static const std::set<int> obstacles = {
      EACCES, EPERM,        EROFS,            // The directory cannot be changed.
      EBUSY,  EXDEV,                          // The file is a mount point.
      EISDIR, ELOOP,                          // .NAME.new is a directory; the path leads to /proc.
      EINVAL, ENAMETOOLONG, ENOSYS, ENOTSUP,  // The file system lacks something.
  };
  if (changes.count(error) > 0) return Replacement::kChangedMeanwhile;
  if (obstacles.count(error) > 0) return Replacement::kNotPossible;
  Fail();
}

void Write(const FileDescriptor& file, const std::string& content) {
  for (size_t written = 0; written < content.size();) {
    const ssize_t count = write(file.Get(), content.data() + written, content.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) Fail();
    written += static_cast<size_t>(count);
  }
}

Status StatusOf(const FileDescriptor& file) {
  Status status;
  if (fstat(file.Get(), &status) != 0) Fail();
  return status;
}

void Flush(const FileDescriptor& file) {
  if (fsync(file.Get()) == 0) return;
  // Special files, and directories of some file systems, have nothing to flush.
  if (errno != EINVAL || S_ISREG(StatusOf(file).st_mode)) Fail();
}

// Whether a replacement would lose, or has inherited, an access control list or another extended
// attribute. Those in "security." do not count: the kernel gives each file its own label.
bool HasAttributes(const FileDescriptor& file) {
  std::array<char, 4096> names;
  const ssize_t length = flistxattr(file.Get(), names.data(), names.size());
  if (length < 0 && (errno == ENOTSUP || errno == ENOSYS)) return false;
  if (length < 0 && errno != ERANGE) Classify(errno);  // This may end the save.
  if (length < 0) return true;                         // There may be some.
  for (size_t i = 0; i < static_cast<size_t>(length); i += std::strlen(&names[i]) + 1) {
    if (std::strncmp(&names[i], "security.", 9) != 0) return true;
  }
  return false;
}

// Whether the name still refers to the file of this status, or to nothing if there is no status.
bool StillNames(const Location& location, const std::string& name,
                const std::optional<Status>& status) {
  Status named;
  if (fstatat(location.directory.Get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) Fail();
    return !status;
  }
  const auto identity = [](const Status& s) {
    return std::tie(s.st_dev, s.st_ino, s.st_uid, s.st_gid, s.st_mode, s.st_nlink);
  };
  return status && identity(*status) == identity(named);
}

// The file to be saved, with its status, or without if it is missing. It is opened even if it will
// be replaced, because a file that may not be written must stay. Only a plain one can be replaced.
struct Target {
  explicit Target(const std::string& path) : file(open(path.c_str(), O_WRONLY | O_CLOEXEC)) {
    if (!file.IsOpen() && errno != ENOENT) Fail();
    if (file.IsOpen()) status = StatusOf(file);
  }

  bool IsPlain() const { return !status || (S_ISREG(status->st_mode) && status->st_nlink <= 1); }

  FileDescriptor file;
  std::optional<Status> status;
};

// The file that is written beside the target and then renamed over it. If it is not renamed, the
// destructor removes it. The functions return false on failure, with the reason in errno.
struct Sibling {
  explicit Sibling(const Location& place) : location(place), name(kSiblingPrefix) {
    name.append(location.name, 0, NAME_MAX - kSiblingPrefix.size() - kSiblingSuffix.size());
    name.append(kSiblingSuffix);
  }
  Sibling(const Sibling&) = delete;
  Sibling& operator=(const Sibling&) = delete;
  ~Sibling() {
    if (file.IsOpen() && !is_renamed) RemoveStale();
  }

  // Removes whatever has the name, except for a directory.
  bool RemoveStale() const {
    return unlinkat(location.directory.Get(), name.c_str(), 0) == 0 || errno == ENOENT;
  }

  bool Create(mode_t mode) {
    file = FileDescriptor(openat(location.directory.Get(), name.c_str(), kCreateNew, mode));
    return file.IsOpen();
  }

  bool RenameOverTarget() {
    const int directory = location.directory.Get();
    is_renamed = renameat(directory, name.c_str(), directory, location.name.c_str()) == 0;
    return is_renamed;
  }

  const Location& location;
  std::string name;
  FileDescriptor file;
  bool is_renamed = false;
};

// Whether the file holds the content already. Compares the sizes first, to avoid reading.
bool HoldsAlready(const Target& target, const std::string& path, const std::string& content) {
  bool holds = false;
  const bool is_regular = target.status && S_ISREG(target.status->st_mode);
  if (is_regular && static_cast<size_t>(target.status->st_size) == content.size()) {
    const auto compare = [&](const std::string& text) { holds = text == content; };
    FileLoader().Load(path, compare, nullptr);
  }
  return holds;
}

// Returns false on failure, with the reason in errno.
bool CopyOwnerAndMode(const Status& from, const FileDescriptor& to) {
  const Status status = StatusOf(to);
  const bool has_owner = status.st_uid == from.st_uid && status.st_gid == from.st_gid;
  if (!has_owner && fchown(to.Get(), from.st_uid, from.st_gid) != 0) return false;
  return status.st_mode == from.st_mode || fchmod(to.Get(), from.st_mode & 07777) == 0;
}

Replacement Replace(const Target& target, const Location& location, const std::string& content) {
  if (location.error == ENOENT) Fail();  // The directory is missing.
  if (location.error != 0) return Classify(location.error);
  Sibling sibling(location);
  if (!sibling.RemoveStale()) return Classify(errno);
  const bool exists = target.status.has_value();
  if (!target.IsPlain()) return Replacement::kNotPossible;
  // A new file stays private until it has the owner and mode of the target.
  if (!sibling.Create(exists ? 0600 : 0666)) return Classify(errno);
  if (exists && (HasAttributes(target.file) || HasAttributes(sibling.file))) {
    return Replacement::kNotPossible;
  }
  Write(sibling.file, content);
  // The mode comes after the content, because a write may clear the set-user-ID bit.
  if (exists && !CopyOwnerAndMode(*target.status, sibling.file)) return Classify(errno);
  Flush(sibling.file);

  if (!StillNames(location, sibling.name, StatusOf(sibling.file)) ||
      !StillNames(location, location.name, target.status)) {
    return Replacement::kChangedMeanwhile;
  }
  if (!sibling.RenameOverTarget()) return Classify(errno);
  Flush(location.directory);
  Flush(sibling.file);  // On vfat the rename is flushed with the file, not the directory.
  return Replacement::kDone;
}

void WriteInPlace(Target& target, const Location& location, const std::string& content) {
  if (!target.status) {
    target.file =
        FileDescriptor(openat(location.directory.Get(), location.name.c_str(), kCreateNew, 0666));
    if (!target.file.IsOpen()) Fail();
  } else if (S_ISREG(target.status->st_mode) && ftruncate(target.file.Get(), 0) != 0) {
    Fail();
  }
  Write(target.file, content);
  Flush(target.file);
  if (!target.status && location.directory.IsOpen()) Flush(location.directory);
}

// Returns false if the save must start over.
bool SaveOnce(const std::string& path, const std::string& content) {
  const Location location = Locate(path);
  Target target(path);
  // Updates the modification time even if nothing is written: DirectoryLock watches it.
  if (HoldsAlready(target, path, content) && futimens(target.file.Get(), nullptr) == 0) {
    if (location.directory.IsOpen()) Sibling(location).RemoveStale();
    return true;
  }
  const Replacement replacement = Replace(target, location, content);
  if (replacement == Replacement::kNotPossible) WriteInPlace(target, location, content);
  return replacement != Replacement::kChangedMeanwhile;
}

}  // namespace

class FileSaverImpl : public IFileSaver {
 public:
  void Save(const std::string& path, const std::string& content,
            std::function<void(const std::string&)> on_error) override {
    bool is_saved = false;
    try {
      for (int attempts = 0; !is_saved && attempts < kMaxAttempts; ++attempts) {
        is_saved = SaveOnce(path, content);
      }
    } catch (const std::exception&) {
      is_saved = false;  // A step has failed, or memory has run out.
    }
    if (!is_saved && on_error) on_error("Error writing file.");
  }
};

FileSaver::FileSaver() : impl_(std::make_unique<FileSaverImpl>()) {}

void FileSaver::Save(const std::string& path, const std::string& content,
                     std::function<void(const std::string&)> on_error) {
  impl_->Save(path, content, std::move(on_error));
}

}  // namespace file_utils
