#include "file_access/file_saver.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <exception>
#include <utility>

#include "file_access/file_descriptor.h"

namespace file_utils {
namespace {

enum class Outcome {
  kSaved,
  kNotPermitted,  // a replacement was refused here; the target is as it was
  kFailed,        // no room, a broken disk, ...; the target is as it was
};

// What a failed step of a replacement means. EINVAL is an owner that has no number in this user
// namespace, EBUSY a mount point.
Outcome OutcomeOf(int error) {
  switch (error) {
    case EACCES:
    case EBUSY:
    case EINVAL:
    case EPERM:
    case EROFS:
      return Outcome::kNotPermitted;
    default:
      return Outcome::kFailed;
  }
}

std::string DirectoryOf(const std::string& path) { return path.substr(0, path.rfind('/') + 1); }

// The name of the file itself, where `path` names a symbolic link. The bound is the kernel's own.
std::string FollowLinks(std::string path) {
  std::array<char, PATH_MAX> target;
  for (int links = 0; links < 40; ++links) {
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    if (length <= 0) break;
    const std::string directory = target[0] == '/' ? "" : DirectoryOf(path);
    path = directory + std::string(target.data(), static_cast<size_t>(length));
  }
  return path;
}

bool WriteAndClose(FileDescriptor& file, const std::string& content) {
  for (size_t written = 0; written < content.size();) {
    const ssize_t count = write(file.Get(), content.data() + written, content.size() - written);
    if (count > 0) {
      written += static_cast<size_t>(count);
    } else if (count == 0 || errno != EINTR) {
      return false;
    }
  }
  return file.Close();
}

// The name of a new file beside `path`: short, since a name that has room for no suffix is valid
// too, and of this thread and moment only.
std::string SiblingOf(const std::string& path) {
  const auto now = std::chrono::system_clock::now().time_since_epoch().count();
  return DirectoryOf(path) + ".feature_toggled." + std::to_string(gettid()) + "." +
         std::to_string(now);
}

// Fills the new file at `sibling` and renames it to `path`. `former` is what it replaces, or null.
Outcome FillAndRename(FileDescriptor& file, const std::string& sibling, const std::string& path,
                      const struct stat* former, const std::string& content) {
  // Mode after owner: a change of owner clears the set-user-ID bits.
  if (former != nullptr && (fchown(file.Get(), former->st_uid, former->st_gid) != 0 ||
                            fchmod(file.Get(), former->st_mode & 07777) != 0)) {
    return OutcomeOf(errno);
  }
  if (!WriteAndClose(file, content)) return Outcome::kFailed;
  return rename(sibling.c_str(), path.c_str()) == 0 ? Outcome::kSaved : OutcomeOf(errno);
}

Outcome Replace(const std::string& path, const struct stat* former, const std::string& content) {
  const std::string sibling = SiblingOf(path);
  const mode_t mode = former != nullptr ? 0600 : 0666;
  FileDescriptor file(open(sibling.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode));
  if (!file.IsOpen()) return OutcomeOf(errno);
  const Outcome outcome = FillAndRename(file, sibling, path, former, content);
  if (outcome != Outcome::kSaved) unlink(sibling.c_str());
  return outcome;
}

bool SaveFile(const std::string& path, const std::string& content) {
  // Opened even where a sibling will replace it: a file that may not be written must stay as it is.
  FileDescriptor target(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!target.IsOpen()) {
    return errno == ENOENT && Replace(FollowLinks(path), nullptr, content) == Outcome::kSaved;
  }
  struct stat former;
  if (fstat(target.Get(), &former) != 0) return false;
  const bool is_regular = S_ISREG(former.st_mode);
  if (is_regular && former.st_nlink == 1) {
    const Outcome outcome = Replace(FollowLinks(path), &former, content);
    if (outcome != Outcome::kNotPermitted) return outcome == Outcome::kSaved;
  }
  if (is_regular && ftruncate(target.Get(), 0) != 0) return false;
  return WriteAndClose(target, content);
}

}  // namespace

class FileSaverImpl : public IFileSaver {
 public:
  void Save(const std::string& path, const std::string& content,
            std::function<void(const std::string&)> on_error) override {
    bool saved = false;
    try {
      saved = SaveFile(path, content);
    } catch (const std::exception&) {
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
