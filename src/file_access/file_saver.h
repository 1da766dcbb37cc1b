#pragma once

#include <functional>
#include <memory>
#include <string>

namespace file_utils {

/// Replaces whole files. Keeps nothing between calls; may be used from any thread. It locks nothing
/// and waits for nobody: of several saves of one file at the same time one counts, and others may
/// fail, unless their callers keep them apart (`DirectoryLock`).
class IFileSaver {
 public:
  IFileSaver() = default;
  IFileSaver(const IFileSaver&) = delete;
  IFileSaver& operator=(const IFileSaver&) = delete;
  virtual ~IFileSaver() = default;

  /// Makes the file at `path` hold exactly `content`, or hands "Error writing file." to `on_error`
  /// (unless that is empty), on the calling thread. Raises nothing but what `on_error` raises.
  ///
  /// Except where the file is written in place (below), a sibling is written, flushed (fsync(2)),
  /// and renamed over it, and the directory is flushed: at any moment the file holds what it held,
  /// or `content`, whole. Once `Save` has succeeded, `content` withstands a power cut; once it has
  /// failed, the file holds what it held, or, if its name could not be flushed, `content`. A
  /// symbolic link stays, and the file that it names is the one replaced or created.
  ///
  /// A new file is created with mode 0666 less the umask; an existing one keeps its owner and mode.
  /// Not carried over are its inode flags (chattr(1)), security labels set by hand, and what the
  /// process lacks the capabilities for: a set-group-ID bit, attributes in "trusted.".
  ///
  /// A regular file that holds `content` already only gets the time of this save. It is not
  /// flushed: whoever wrote it has to see to that.
  ///
  /// The sibling of NAME is ".NAME.new", cut to 255 bytes; what has that name is removed first. A
  /// power cut or a kill leaves it until the next save of the file, and it stays in a directory
  /// that can only be appended to.
  ///
  /// Written in place, so that a failure midway leaves it cut short, is what a replacement would
  /// harm, or what cannot be replaced: special files, open files named through /proc, files with
  /// several hard links, access control lists or other extended attributes, mount points, files
  /// whose owner or mode could not be kept, whose directory may not be read or changed, or whose
  /// sibling is a directory. After an error that tells of none of these, the old content is kept.
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
