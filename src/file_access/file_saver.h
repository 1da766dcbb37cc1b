#pragma once

#include <functional>
#include <memory>
#include <string>

namespace file_utils {

/// Replaces whole files. Keeps nothing between calls; may be used from any thread.
///
/// A save takes no lock. If saves of a file overlap, one of them wins and the others may fail, and
/// in the moment between its last check and rename(2), a save can put the unfinished content of
/// another one in place. Callers prevent both with `DirectoryLock`.
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
  /// complete old or the complete new content. After a success the new content survives a power
  /// cut. After a failure the file holds the old content, or the new one if only a flush after the
  /// rename has failed. A symbolic link stays; the file it leads to is replaced or created.
  ///
  /// A failure can truncate these files, because they are written in place: special files, open
  /// files named through /proc, files with several hard links, access control lists or other
  /// extended attributes, mount points, files whose owner or mode cannot be given to a new file,
  /// files whose directory cannot be read or changed, and files for which ".NAME.new" is a
  /// directory.
  ///
  /// A new file has mode 0666 less the umask. A replaced file keeps its owner and mode. It loses
  /// inode flags (chattr(1)), security labels set by hand, and what the process lacks the
  /// capability to set: the set-group-ID bit, attributes in "trusted.". If a regular file holds
  /// `content` already, only its modification time is updated. It is not flushed: its writer must
  /// do that.
  ///
  /// The name ".NAME.new" is cut to 255 bytes. A power cut or a kill may leave that file. The next
  /// save removes it, except in an append-only directory.
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
