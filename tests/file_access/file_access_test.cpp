#include <gtest/gtest.h>

#include "file_access/file_loader.h"
#include "file_access/file_saver.h"

namespace {

using Callback = std::function<void(const std::string&)>;

void Accept(const std::string&) {}
void RaiseStreamFailure(const std::string& text) { throw std::ios_base::failure(text); }
void RaiseException(const std::string& text) { throw std::runtime_error(text); }
void RaiseNumber(const std::string&) { throw 1; }

// What the callbacks of a load are told in turn, before each does what is given here.
std::string Load(const std::string& path, Callback on_success, Callback on_error) {
  std::string told;
  const auto tell = [&told](const Callback& callback) {
    return [&told, callback](const std::string& text) {
      told += "[" + text + "]";
      callback(text);
    };
  };
  try {
    file_utils::FileLoader().Load(path, tell(on_success), tell(on_error));
  } catch (...) {
    told += " escaped";
  }
  return told;
}

TEST(FileLoader, TellsWhatFailed) {
  const std::string file = "/proc/sys/kernel/ostype";  // a size of 0 is given for it
  EXPECT_EQ(Load("/no", Accept, Accept), "[File does not exist.]");
  EXPECT_EQ(Load("/no", Accept, RaiseStreamFailure),
            "[File does not exist.][File read error.] escaped");
  EXPECT_EQ(Load("/no", Accept, RaiseNumber), "[File does not exist.][Unknown error.] escaped");
  EXPECT_EQ(Load("/", Accept, Accept), "[File read error.]");
  EXPECT_EQ(Load(file, Accept, Accept), "[Linux\n]");
  EXPECT_EQ(Load(file, RaiseStreamFailure, Accept), "[Linux\n][File read error.]");
  EXPECT_EQ(Load(file, RaiseException, Accept), "[Linux\n][Unknown error.]");
  EXPECT_EQ(Load(file, RaiseNumber, Accept), "[Linux\n][Unknown error.]");
}

TEST(FileLoader, NeedsNoCallback) {
  file_utils::FileLoader().Load("/no", nullptr, RaiseException);
  file_utils::FileLoader().Load("/", Accept, nullptr);
}

TEST(FileSaver, TellsOnlyOfFailure) {
  const std::string bytes("\r\n\0", 3);
  file_utils::FileSaver().Save("saved", bytes, RaiseException);
  EXPECT_EQ(Load("saved", Accept, Accept), "[" + bytes + "]");
  file_utils::FileSaver().Save("/no/directory", "", nullptr);
  std::string told;
  file_utils::FileSaver().Save("/no/directory", "", [&](const auto& text) { told += text; });
  EXPECT_EQ(told, "Error writing file.");
}

}  // namespace
