#pragma once

#include <functional>
#include <memory>
#include <string>

namespace file_utils {

/// Replaces whole files. Keeps nothing between calls; may be used from any thread, but two saves
/// of one file at the same time are for the callers to keep apart.
class IFileSaver {
 public:
  IFileSaver() = default;
  IFileSaver(const IFileSaver&) = delete;
  IFileSaver& operator=(const IFileSaver&) = delete;
  virtual ~IFileSaver() = default;

  /// Makes the file at `path` hold exactly `content`, or hands "Error writing file." to `on_error`
  /// (unless that is empty), on the calling thread. Raises nothing but what `on_error` raises.
  ///
  /// A new file is created with mode 0666 less the umask. An existing one keeps its mode and owner,
  /// and after a failure it holds what it held before: the content is written to a file without a
  /// name (O_TMPFILE in open(2)), which is linked beside it, as ".feature_toggled.THREAD.TIME",
  /// when it is complete, and renamed over it (rename(2) is atomic). Only a process that is killed
  /// between these two leaves the sibling behind; where a file system has no files without a name,
  /// it stands there from the start. A symbolic link stays, and the file that it names is the one
  /// replaced or created.
  ///
  /// Where a replacement would lose what the file is, or is not permitted, the file that open(2)
  /// finds is written in place, and a failure midway leaves it cut short: special files, open files
  /// named through /proc, files with several hard links, access control lists or other extended
  /// attributes, mount points, files whose owner could not be kept or whose directory may not be
  /// changed, and files that got another name while they were open.
  ///
  /// Nothing is flushed to the disk (fsync(2)), but the writing of a file without a name is started
  /// before it is linked (sync_file_range(2)).
  virtual void Save(const std::string& path, const std::string& content,
                    std::function<void(const std::string&)> on_error) = 0;
};

class FileSaver : public IFileSaver {
 public:
  FileSaver();

  void Save(const std::string& path, const std::string& content,
            std::function<void(const std::string&)> on_error) override;

 private:
  std::unique_ptr<IFileSaver> impl_;
};

}  // namespace file_utils
