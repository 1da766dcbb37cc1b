#include <gtest/gtest.h>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

using Callback = std::function<void(const std::string&)>;

// What a load tells its callbacks in turn, of which the first then does `next`.
std::string Load(const std::string& path, const Callback& next) {
  std::string told;
  const auto tell = [&](const std::string& text) {
    told += "[" + text + "]";
    if (told == "[" + text + "]") next(text);
  };
  file_utils::FileLoader().Load(path, tell, tell);
  return told;
}

TEST(FileLoader, TellsWhatFailed) {
  const std::string file = "/proc/sys/kernel/ostype";  // a size of 0 is given for it
  const Callback nothing = [](const std::string&) {};
  const Callback stream_failure = [](const std::string&) { throw std::ios_base::failure(""); };
  const Callback number = [](const std::string&) { throw 1; };
  EXPECT_EQ(Load("/no", stream_failure), "[File does not exist.][File read error.]");
  EXPECT_EQ(Load("/", nothing), "[File read error.]");
  EXPECT_EQ(Load(file, nothing), "[Linux\n]");
  EXPECT_EQ(Load(file, stream_failure), "[Linux\n][File read error.]");
  EXPECT_EQ(Load(file, number), "[Linux\n][Unknown error.]");
}

TEST(FileSaver, TellsOfFailure) {
  std::string told;
  file_utils::FileSaver().Save("/no/file", "", [&told](const std::string& text) { told = text; });
  EXPECT_EQ(told, "Error writing file.");
}
