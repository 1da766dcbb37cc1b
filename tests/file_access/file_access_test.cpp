#include <gtest/gtest.h>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

namespace {

// What no run of the program shows: the messages, and what becomes of exceptions. In turn, a call
// back raises a stream failure ("s") or another exception ("o"); "!" is one that comes out.
TEST(FileAccess, TellsWhatFailed) {
  const std::string file = "/proc/sys/kernel/ostype";  // a size of 0 is given for it
  const struct {
    std::string path, raises, told;
  } rows[] = {{"/no", "", "[File does not exist.]"},
              {"/no", "s", "[File does not exist.][File read error.]"},
              {"/no", "o", "[File does not exist.][Unknown error.]"},
              {"/", "", "[File read error.]"},
              {file, "", "[Linux\n]"},
              {file, "s", "[Linux\n][File read error.]"},
              {file, "oo", "[Linux\n][Unknown error.]!"}};
  for (auto [path, raises, expected] : rows) {
    std::string told;
    const auto tell = [&told, &raises = raises](const std::string& text) {
      told += "[" + text + "]";
      const std::string kind = raises.substr(0, 1);
      raises.erase(0, 1);
      if (kind == "s") throw std::ios_base::failure("");
      if (kind == "o") throw std::runtime_error("");
    };
    try {
      file_utils::FileLoader().Load(path, nullptr, tell);
      file_utils::FileLoader().Load(path, tell, tell);
    } catch (const std::runtime_error&) {
      told += "!";
    }
    EXPECT_EQ(told, expected);
    file_utils::FileLoader().Load(
        path, [](const std::string&) {}, nullptr);
    file_utils::FileSaver().Save("/no/directory", "", nullptr);
    file_utils::FileSaver().Save("/dev/full", "text", [&](const auto& text) { told = text; });
    EXPECT_EQ(told, "Error writing file.");
  }
}

}  // namespace
