#pragma once

#include <functional>
#include <memory>
#include <string>

namespace file_utils {

/// Replaces whole files. Keeps nothing between calls; may be used from any thread. Of two saves of
/// one file at the same time, in one process or two, one waits for the other; not if the file is
/// written in place.
class IFileSaver {
 public:
  IFileSaver() = default;
  IFileSaver(const IFileSaver&) = delete;
  IFileSaver& operator=(const IFileSaver&) = delete;
  virtual ~IFileSaver() = default;

  /// Makes the file at `path` hold exactly `content`, or hands "Error writing file." to `on_error`
  /// (unless that is empty), on the calling thread. Raises nothing but what `on_error` raises.
  ///
  /// A regular file that holds `content` already only gets the time of this save. Otherwise a
  /// sibling is written, flushed (fsync(2)) and renamed over the file, and the directory is
  /// flushed: once `Save` returns, `content` withstands a power cut, and at any moment before, the
  /// file holds what it held or `content`, whole. After a failure it holds what it held, or, if its
  /// name is what could not be flushed, `content`. A new file is created with mode 0666 less the
  /// umask; an existing one keeps its mode and owner. A symbolic link stays, and the file that it
  /// names is the one replaced or created.
  ///
  /// The sibling of NAME is ".NAME.new", cut to 255 bytes. Only a power cut or a kill leaves it
  /// behind, and the next save of the file removes it, unless it is being written: then it is
  /// locked (flock(2)), and waited for, up to 10 s, before it is removed.
  ///
  /// Where a replacement would lose what the file is, or is not permitted, the file is written in
  /// place, and a failure midway leaves it cut short: special files, open files named through
  /// /proc, files with several hard links, access control lists or other extended attributes, mount
  /// points, files whose owner could not be kept or whose directory may not be read or changed.
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
