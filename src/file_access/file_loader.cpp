#include "file_access/file_loader.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <ios>
#include <utility>

#include "file_access/file_descriptor.h"

namespace file_utils {
namespace {

// Does not ask for the size: it is 0 for files in /proc, and may change while the file is read.
std::string ReadToEnd(const FileDescriptor& file) {
  std::string text;
  std::array<char, 65536> buffer;
  for (;;) {
    const ssize_t count = read(file.Get(), buffer.data(), buffer.size());
    if (count == 0) return text;
    if (count > 0) {
      text.append(buffer.data(), static_cast<size_t>(count));
    } else if (errno != EINTR) {
      throw std::ios_base::failure("read");
    }
  }
}

}  // namespace

class FileLoaderImpl : public IFileLoader {
 public:
  void Load(const std::string& path, std::function<void(const std::string&)> on_success,
            std::function<void(const std::string&)> on_error) override {
    if (!on_success) return;
    const char* message = nullptr;
    try {
      const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
      if (file.IsOpen()) {
        on_success(ReadToEnd(file));
      } else if (on_error) {
        on_error("File does not exist.");
      }
    } catch (const std::ios_base::failure&) {
      message = "File read error.";
    } catch (...) {
      message = "Unknown error.";
    }
    if (message != nullptr && on_error) on_error(message);
  }
};

FileLoader::FileLoader() : impl_(std::make_unique<FileLoaderImpl>()) {}

void FileLoader::Load(const std::string& path, std::function<void(const std::string&)> on_success,
                      std::function<void(const std::string&)> on_error) {
  impl_->Load(path, std::move(on_success), std::move(on_error));
}

}  // namespace file_utils
