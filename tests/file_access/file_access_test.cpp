#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

namespace {

using std::filesystem::path;
const path kDirectory = testing::TempDir() + "file_access_test." + std::to_string(getpid());
const path kFile = kDirectory / std::string(255, 'f');  // as long as a name can be

// All that a load tells its callbacks, which raise what they are told to.
std::string Load(const path& file, const std::string& on_success_raises = "",
                 std::string on_error_raises = "") {
  std::ostringstream told;
  const auto tell = [&told](const std::string& what, const std::string& raise) {
    told << what;
    if (raise == "stream failure") throw std::ios_base::failure("");
    if (raise == "other") throw std::runtime_error("");
  };
  file_utils::FileLoader loader;
  loader.Load(
      file, [&](const std::string& text) { tell("[" + text + "]", on_success_raises); },
      [&](const std::string& message) { tell(message, std::exchange(on_error_raises, "")); });
  loader.Load(
      file, [](const std::string&) {}, nullptr);
  loader.Load(file, nullptr, [&](const std::string& message) { told << message; });
  return told.str();
}

std::string Save(const path& file, const std::string& text) {
  std::string told;
  file_utils::FileSaver().Save(file, text, nullptr);
  file_utils::FileSaver().Save(file, text, [&](const std::string& message) { told += message; });
  return told;
}

TEST(FileAccess, MovesEveryByteOrSaysWhatFailed) {
  create_directory(kDirectory);
  EXPECT_EQ(Load(kFile), "File does not exist.");
  EXPECT_EQ(Load(kFile, "", "stream failure"), "File does not exist.File read error.");
  EXPECT_EQ(Load(kFile, "", "other"), "File does not exist.Unknown error.");
  EXPECT_EQ(Load(kDirectory), "File read error.");
  EXPECT_EQ(Load("/proc/sys/kernel/ostype"), "[Linux\n]");  // a size of 0 is given for it
  for (const std::string& text : {std::string(), std::string("a\r\n\0\xFF", 5),
                                  std::string(200'000, 'x'), std::string("b")}) {
    EXPECT_EQ(Save(kFile, text), "");
    EXPECT_EQ(Load(kFile), "[" + text + "]");
  }
  EXPECT_EQ(Load(kFile, "stream failure"), "[b]File read error.");
  EXPECT_EQ(Load(kFile, "other"), "[b]Unknown error.");
  EXPECT_THROW(Load(kFile, "other", "other"), std::runtime_error);
  for (const path& file : {kDirectory, kDirectory / "no/directory",
                           kDirectory / std::string(256, 'f'), path("/dev/full"), path()}) {
    EXPECT_EQ(Save(file, "text"), "Error writing file.") << file;
  }
  EXPECT_EQ(remove_all(kDirectory), 2U);  // the directory and the one file: no sibling is left
}

}  // namespace
