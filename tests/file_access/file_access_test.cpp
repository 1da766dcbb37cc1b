#include <gtest/gtest.h>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

// What no run of the program shows: the messages, and what becomes of exceptions. In turn, a call
// back raises a stream failure ("s") or another exception ("o"); "!" is one that comes out.
TEST(FileAccess, TellsWhatFailed) {
  const std::string file = "/proc/sys/kernel/ostype";  // a size of 0 is given for it
  const std::string rows[][3] = {{"/no", "", "[File does not exist.]"},
                                 {"/no", "s", "[File does not exist.][File read error.]"},
                                 {"/no", "o", "[File does not exist.][Unknown error.]"},
                                 {"/", "", "[File read error.]"},
                                 {file, "", "[Linux\n]"},
                                 {file, "s", "[Linux\n][File read error.]"},
                                 {file, "oo", "[Linux\n][Unknown error.]!"}};
  for (const auto& [path, raises, expected] : rows) {
    std::string told, letters = raises + "..";
    const auto tell = [&](const std::string& text) {
      told += "[" + text + "]";
      const std::string letter = std::exchange(letters, letters.substr(1)).substr(0, 1);
      if (letter == "s") throw std::ios_base::failure(text);
      if (letter == "o") throw std::runtime_error(text);
    };
    file_utils::FileLoader().Load(path, nullptr, tell);
    file_utils::FileLoader().Load(
        path, [](const std::string&) {}, nullptr);
    try {
      file_utils::FileLoader().Load(path, tell, tell);
    } catch (const std::runtime_error&) {
      told += "!";
    }
    EXPECT_EQ(told, expected);
    file_utils::FileSaver().Save("/no/directory", "", nullptr);
    file_utils::FileSaver().Save("/dev/full", "text", [&](const auto& text) { told = text; });
    EXPECT_EQ(told, "Error writing file.");
  }
}
