#include <gtest/gtest.h>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

namespace {

// All that a load tells its callbacks, which raise in turn what `raises` has a letter for.
std::string Load(const std::string& path, std::string raises = "") {
  std::string told;
  const auto tell = [&](const std::string& text) {
    told += "[" + text + "]";
    const std::string kind = raises.substr(0, 1);
    raises.erase(0, 1);
    if (kind == "s") throw std::ios_base::failure("stream failure");
    if (kind == "o") throw std::runtime_error("other");
  };
  file_utils::FileLoader().Load(path, tell, tell);
  file_utils::FileLoader().Load(path, nullptr, tell);  // tells nothing
  return told;
}

TEST(FileAccess, MovesEveryByteOrSaysWhatFailed) {
  const std::string file = testing::TempDir() + "file_access_test." + std::to_string(getpid());
  EXPECT_EQ(Load(file), "[File does not exist.]");
  EXPECT_EQ(Load(file, "s"), "[File does not exist.][File read error.]");
  EXPECT_EQ(Load(file, "o"), "[File does not exist.][Unknown error.]");
  EXPECT_EQ(Load("/"), "[File read error.]");
  EXPECT_EQ(Load("/proc/sys/kernel/ostype"), "[Linux\n]");  // a size of 0 is given for it
  file_utils::FileSaver saver;
  std::string told;
  const auto on_error = [&told](const std::string& message) { told += message; };
  for (const std::string& text : {std::string(200'000, 'x'), std::string("\r\n\0\xFF", 4)}) {
    saver.Save(file, text, on_error);
    EXPECT_EQ(Load(file) + told, "[" + text + "]");
  }
  saver.Save(file, "", nullptr);
  EXPECT_EQ(Load(file, "s"), "[][File read error.]");
  EXPECT_EQ(Load(file, "o"), "[][Unknown error.]");
  EXPECT_THROW(Load(file, "oo"), std::runtime_error);
  for (const char* path : {"/", "/dev/full", "/no/directory"}) {
    saver.Save(path, "text", nullptr);
    saver.Save(path, "text", on_error);
    EXPECT_EQ(std::exchange(told, ""), "Error writing file.");
  }
  std::remove(file.c_str());
}

}  // namespace
