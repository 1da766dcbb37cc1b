#pragma once

#include <functional>
#include <memory>
#include <string>

namespace file_utils {

/// Replaces whole files. Keeps nothing between calls; may be used from any thread.
///
/// A save takes no lock. If saves of one file overlap, one of them wins and the others may fail. In
/// the moment between its last check and rename(2), a save may even rename the unfinished
/// ".NAME.new" of another one. Callers prevent both by holding a `DirectoryLock`.
class IFileSaver {
 public:
  IFileSaver() = default;
  IFileSaver(const IFileSaver&) = delete;
  IFileSaver& operator=(const IFileSaver&) = delete;
  virtual ~IFileSaver() = default;

  /// Makes the file at `path` hold exactly `content`, or calls `on_error` with "Error writing
  /// file." (unless it is empty), on the calling thread. Throws only what `on_error` throws.
  ///
  /// The new content is written to ".NAME.new" beside the file and flushed (fsync(2)). That file is
  /// renamed over the old one, and the directory is flushed. At every moment the file holds the
  /// complete old or the complete new content. Once a save has written the file and succeeded, the
  /// new content survives a power cut. After a failure the file holds the old content, or the new
  /// one if only a flush after the rename has failed. A symbolic link stays; the file it leads to
  /// is replaced or created.
  ///
  /// Some files are written in place, so a failure can truncate them: special files, open files
  /// named through /proc, files with several hard links, access control lists or other extended
  /// attributes, mount points, files whose owner or mode cannot be given to a new file, files whose
  /// directory cannot be read or changed, and files for which an old ".NAME.new" cannot be removed.
  ///
  /// A new file has mode 0666 less the umask. A replaced file keeps its owner and mode. It loses
  /// inode flags (chattr(1)), security labels set by hand, and what the process lacks the
  /// capability to set: the set-group-ID bit, attributes in "trusted.". If a regular file holds
  /// `content` already, only its modification time is updated. Its writer must flush it.
  ///
  /// A power cut or a kill may leave ".NAME.new". A save removes anything of that name, except a
  /// directory, and except in an append-only directory. NAME is cut to make it fit.
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
