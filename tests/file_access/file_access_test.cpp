#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <ios>
#include <sstream>
#include <stdexcept>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

namespace file_utils {
namespace {

namespace fs = std::filesystem;

// A directory of the test's own. Whatever a test did, no sibling of a saved file may be left in it.
class FileAccess : public testing::Test {
 protected:
  FileAccess() {
    std::string name = testing::TempDir() + "file_access.XXXXXX";
    directory_ = std::string(mkdtemp(name.data())) + "/";
  }
  ~FileAccess() override {
    for (const auto& entry : fs::directory_iterator(directory_)) {
      EXPECT_NE(entry.path().filename().string().rfind(".feature_toggled", 0), 0U) << entry;
    }
    fs::remove_all(directory_);
  }

  static void Write(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
  }
  static std::string Read(const std::string& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
  }
  // What the callbacks were told, in order.
  static std::string Load(const std::string& path) {
    std::string told;
    FileLoader().Load(
        path, [&](const std::string& text) { told += "text:" + text; },
        [&](const std::string& message) { told += message; });
    FileLoader().Load(
        path, [](const std::string&) {}, nullptr);
    return told;
  }
  static std::string Save(const std::string& path, const std::string& text) {
    std::string told;
    FileSaver().Save(path, text, [&](const std::string& message) { told += message; });
    FileSaver().Save(path, text, nullptr);
    return told;
  }

  std::string directory_;
};

TEST_F(FileAccess, LoadsEveryByteOrSaysWhatFailed) {
  const std::string file = directory_ + "file";
  EXPECT_EQ(Load(file), "File does not exist.");
  EXPECT_EQ(Load(directory_), "File read error.");
  const std::string large(200'000, 'x');
  for (const std::string& text : {std::string(), std::string("a\r\n\0\xFF", 5), large}) {
    Write(file, text);
    EXPECT_EQ(Load(file), "text:" + text);
  }
  EXPECT_GT(Load("/proc/self/status").size(), 100U);  // its size is given as 0
}

TEST_F(FileAccess, ReportsWhatTheCallbacksRaise) {
  const std::string file = directory_ + "file";
  const auto messages = [](const std::string& path, auto&& on_success, int raise_first) {
    std::string told;
    FileLoader().Load(path, on_success, [&](const std::string& message) {
      told += message;
      if (raise_first-- > 0) throw std::ios_base::failure("");
    });
    return told;
  };
  const auto stream_failure = [](const std::string&) { throw std::ios_base::failure(""); };
  const auto other_failure = [](const std::string&) { throw std::runtime_error(""); };
  EXPECT_EQ(messages(file, nullptr, 0), "");
  EXPECT_EQ(messages(file, other_failure, 1), "File does not exist.File read error.");
  Write(file, "text");
  EXPECT_EQ(messages(file, stream_failure, 0), "File read error.");
  EXPECT_EQ(messages(file, other_failure, 0), "Unknown error.");
  EXPECT_THROW(messages(file, other_failure, 1), std::ios_base::failure);
}

TEST_F(FileAccess, ReplacesWholeFilesAndKeepsModeAndLinks) {
  const mode_t umask_before = umask(027);
  const std::string file = directory_ + std::string(255, 'f');  // as long as a name can be
  for (const std::string& text : {std::string(9000, 'x'), std::string("a\0b", 3), std::string()}) {
    EXPECT_EQ(Save(file, text), "");
    EXPECT_EQ(Read(file), text);
  }
  umask(umask_before);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(0640));
  fs::permissions(file, fs::perms(04604));

  fs::create_symlink(file, directory_ + "link");
  fs::create_symlink("link", directory_ + "link to link");
  EXPECT_EQ(Save(directory_ + "link to link", "new"), "");
  EXPECT_EQ(Read(file), "new");
  EXPECT_EQ(fs::status(file).permissions(), fs::perms(04604));
  EXPECT_TRUE(fs::is_symlink(directory_ + "link"));

  fs::create_symlink("created", directory_ + "dangling");
  EXPECT_EQ(Save(directory_ + "dangling", "new"), "");
  EXPECT_EQ(Read(directory_ + "created"), "new");

  fs::create_hard_link(file, directory_ + "second name");
  EXPECT_EQ(Save(file, "both"), "");
  EXPECT_EQ(Read(directory_ + "second name"), "both");
}

TEST_F(FileAccess, ReportsAFailedSaveAndLeavesWhatWasThere) {
  fs::create_symlink("loop", directory_ + "loop");
  for (const std::string& path : {directory_ + "missing/file", directory_, directory_ + "loop",
                                  directory_ + std::string(256, 'f'), std::string()}) {
    EXPECT_EQ(Save(path, "text"), "Error writing file.") << path;
  }
  EXPECT_EQ(Save("/dev/full", "text"), "Error writing file.");
  EXPECT_EQ(Save("/dev/null", "text"), "");
  EXPECT_TRUE(fs::is_character_file("/dev/full") && fs::is_character_file("/dev/null"));
}

}  // namespace
}  // namespace file_utils
