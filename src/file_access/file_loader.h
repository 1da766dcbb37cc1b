#pragma once

#include <functional>
#include <memory>
#include <string>

namespace file_utils {

/// Reads whole files. Keeps nothing between calls; may be used from any thread.
class IFileLoader {
 public:
  IFileLoader() = default;
  IFileLoader(const IFileLoader&) = delete;
  IFileLoader& operator=(const IFileLoader&) = delete;
  virtual ~IFileLoader() = default;

  /// Calls `on_success` with the bytes of the file at `path`, or `on_error` with a message: "File
  /// does not exist." if the file cannot be opened, "File read error." if reading fails (as for a
  /// directory) or `on_success` throws a std::ios_base::failure, "Unknown error." if anything else
  /// is thrown. The callbacks run on the calling thread. The last two messages come after the file
  /// is closed. An empty `on_error` is not called. If `on_success` is empty, nothing happens.
  ///
  /// Throws only what `on_error` throws. If `on_error` throws while reporting "File does not
  /// exist.", that is itself reported to it, as "File read error." or "Unknown error.".
  virtual void Load(const std::string& path, std::function<void(const std::string&)> on_success,
                    std::function<void(const std::string&)> on_error) = 0;
};

class FileLoader : public IFileLoader {
 public:
  FileLoader();

  void Load(const std::string& path, std::function<void(const std::string&)> on_success,
            std::function<void(const std::string&)> on_error) override;

 private:
  std::unique_ptr<IFileLoader> impl_;
};

}  // namespace file_utils
