// The floor: reads and parses the daemon's three files with the daemon's JSON library, and does
// nothing with them. Usage: floor FILE...
#include <rapidjson/document.h>

#include <array>
#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::FILE* file = std::fopen(argv[i], "r");
    if (file == nullptr) return 1;
    std::string text;
    std::array<char, 65536> buffer;
    while (const size_t count = std::fread(buffer.data(), 1, buffer.size(), file)) {
      text.append(buffer.data(), count);
    }
    std::fclose(file);
    rapidjson::Document document;
    document.Parse(text.c_str());
    if (document.HasParseError()) return 1;
  }
  return 0;
}
