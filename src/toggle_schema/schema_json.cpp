#include "toggle_schema/schema_json.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <utility>

namespace feature_toggle {
namespace {

// The member names in the files, for reading and writing.
constexpr char kKey[] = "key";
constexpr char kValue[] = "value";
constexpr char kOptions[] = "options";
constexpr char kDescription[] = "description";
constexpr char kVariables[] = "variables";
constexpr char kGitRevision[] = "git_revision";

// RapidJSON's default parser recurses and overflows the stack at about 130,000 levels.
rapidjson::Document Parse(const std::string& text) {
  rapidjson::Document document;
  document.Parse<rapidjson::kParseIterativeFlag>(text.c_str());
  return document;
}

// Returns the first member of that name, or null.
const rapidjson::Value* Find(const rapidjson::Value& object, const char* name) {
  const auto member = object.FindMember(name);
  return member == object.MemberEnd() ? nullptr : &member->value;
}

// Reads a member, if there is one, into `text`. Returns false if the member is not a string.
bool ReadText(const rapidjson::Value& object, const char* name, std::string& text) {
  const rapidjson::Value* member = Find(object, name);
  if (member == nullptr) return true;
  if (!member->IsString()) return false;
  text = member->GetString();
  return true;
}

void ReadVariable(const rapidjson::Value& element, ToggleSchema& schema) {
  if (!element.IsObject()) return;
  ToggleVariable variable;
  if (!ReadText(element, kKey, variable.key) || !ReadText(element, kValue, variable.value)) return;
  const rapidjson::Value* options = Find(element, kOptions);
  if (options != nullptr && options->IsArray()) {
    variable.options.reserve(options->Size());
    for (const rapidjson::Value& option : options->GetArray()) {
      if (option.IsString()) variable.options.emplace_back(option.GetString());
    }
  }
  ReadText(element, kDescription, variable.description);
  // Hint: files that the daemon wrote are sorted, so each key belongs at the end.
  schema.variables.insert_or_assign(schema.variables.end(), variable.key, std::move(variable));
}

}  // namespace

ToggleSchema ParseToggleSchema(const std::string& text) {
  ToggleSchema schema;
  const rapidjson::Document document = Parse(text);
  if (document.HasParseError()) return schema;

  const rapidjson::Value* variables = &document;
  if (document.IsObject()) {
    ReadText(document, kGitRevision, schema.git_revision);
    variables = Find(document, kVariables);
  }
  if (variables != nullptr && variables->IsArray()) {
    for (const rapidjson::Value& element : variables->GetArray()) ReadVariable(element, schema);
  }
  return schema;
}

std::string ReadGitRevision(const std::string& text) {
  std::string git_revision;
  const rapidjson::Document document = Parse(text);
  if (!document.HasParseError() && document.IsObject()) {
    ReadText(document, kGitRevision, git_revision);
  }
  return git_revision;
}

std::string SerializeToggleSchema(const ToggleSchema& schema) {
  rapidjson::Document document;
  document.SetObject();
  auto& allocator = document.GetAllocator();
  const auto copy = [&allocator](const std::string& text) {
    return rapidjson::Value(text.c_str(), allocator);
  };

  rapidjson::Value variables(rapidjson::kArrayType);
  for (const auto& [key, variable] : schema.variables) {
    rapidjson::Value element(rapidjson::kObjectType);
    element.AddMember(kKey, copy(variable.key), allocator);
    element.AddMember(kValue, copy(variable.value), allocator);
    element.AddMember(kDescription, copy(variable.description), allocator);
    rapidjson::Value options(rapidjson::kArrayType);
    for (const std::string& option : variable.options) options.PushBack(copy(option), allocator);
    element.AddMember(kOptions, options, allocator);
    variables.PushBack(element, allocator);
  }
  document.AddMember(kGitRevision, copy(schema.git_revision), allocator);
  document.AddMember(kVariables, variables, allocator);

  rapidjson::StringBuffer buffer;
  rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
  document.Accept(writer);
  return {buffer.GetString(), buffer.GetSize()};
}

}  // namespace feature_toggle
