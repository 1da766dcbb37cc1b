#include <gtest/gtest.h>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

using Callback = std::function<void(const std::string&)>;

// Loads a file with one function for both callbacks, whose first call also does `then`. Returns the
// texts that it was called with.
std::string Load(const std::string& path, const Callback& then) {
  std::string calls;
  const auto callback = [&](const std::string& text) {
    calls += "[" + text + "]";
    if (calls == "[" + text + "]") then(text);
  };
  file_utils::FileLoader().Load(path, callback, callback);
  return calls;
}

TEST(FileLoader, ReportsWhatFailed) {
  const std::string file = "/proc/sys/kernel/ostype";  // stat(2) says that its size is 0
  const Callback nothing = [](const std::string&) {};
  const Callback stream_failure = [](const std::string&) { throw std::ios_base::failure(""); };
  const Callback number = [](const std::string&) { throw 1; };
  EXPECT_EQ(Load("/no", stream_failure), "[File does not exist.][File read error.]");
  EXPECT_EQ(Load("/", nothing), "[File read error.]");
  EXPECT_EQ(Load(file, nothing), "[Linux\n]");
  EXPECT_EQ(Load(file, stream_failure), "[Linux\n][File read error.]");
  EXPECT_EQ(Load(file, number), "[Linux\n][Unknown error.]");
  file_utils::FileLoader().Load("/no", nullptr, [](const std::string& text) { FAIL() << text; });
}

TEST(FileSaver, ReportsFailure) {
  std::string reported;
  file_utils::FileSaver().Save("/no/file", "", [&](const std::string& text) { reported += text; });
  EXPECT_EQ(reported, "Error writing file.");
}
