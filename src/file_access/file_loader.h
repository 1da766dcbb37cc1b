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

  /// Hands the bytes of the file at `path` to `on_success`, or a message to `on_error`: "File does
  /// not exist." if it cannot be opened, "File read error." if reading fails (as for a directory)
  /// or a callback raises a stream failure, "Unknown error." if anything else is raised. The
  /// callbacks run on the calling thread, the file is closed before a message is delivered, and
  /// an empty `on_error` is not called. Nothing at all happens if `on_success` is empty.
  ///
  /// Nothing is raised but what `on_error` raises; if it does so while it is told that the file
  /// does not exist, it is called once more, with what that exception amounts to.
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
