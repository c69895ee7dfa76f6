#include "check/report_json.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <rapidjson/allocators.h>
#include <rapidjson/prettywriter.h>
#include <string_view>
#include <utility>

#include "check/readable.h"
#include "check/verdict.h"

namespace kelt::check {
namespace {

/// A stream of RapidJSON's into a string: without memory it throws, where the library's own would write to nowhere.
class Text {
 public:
  using Ch = char;
  // NOLINTBEGIN(readability-identifier-naming): names that the library calls
  void Put(char c) { m_text += c; }
  void Flush() {}
  // NOLINTEND(readability-identifier-naming)
  [[nodiscard]] std::string take() { return std::move(m_text); }

 private:
  std::string m_text;
};

/// What the writer keeps of the levels that it is in. It asks for memory once, and does not look at what it gets; so
/// that memory is there before, for more levels than the report has.
using Levels = rapidjson::MemoryPoolAllocator<>;
constexpr std::size_t kLevels = 8;
constexpr std::size_t kLevelsSize = 1024;

using Writer = rapidjson::PrettyWriter<Text, rapidjson::UTF8<>, rapidjson::UTF8<>, Levels>;

enum class Kind { kText, kNumber, kList };

struct Member {
  const char* name;
  Kind kind;
};

/// The facts of a device, in their order.
constexpr std::array kDeviceFacts{
    Member{"mode", Kind::kText},
    Member{"servers", Kind::kList},
    Member{"server_key_sha256", Kind::kText},
    Member{"server_key_bits", Kind::kNumber},
    Member{"binsphash", Kind::kText},
    Member{"crypto_mode", Kind::kText},
    Member{"key_size", Kind::kNumber},
    Member{"agent_directory", Kind::kText},
    Member{"agent_version", Kind::kText},
    Member{"certificate_sha256", Kind::kText},
};

constexpr std::array kVersions{Member{"keltcheck", Kind::kText}, Member{"openssl", Kind::kText},
                               Member{"libcurl", Kind::kText}};

/// A value; JSON has to be UTF-8, which names on a device need not be.
void put(Writer& writer, std::string_view text) {
  const std::string shown = readable(text);
  writer.String(shown.data(), static_cast<rapidjson::SizeType>(shown.size()));
}

/// A member of text.
void put(Writer& writer, const char* name, std::string_view text) {
  writer.Key(name);
  put(writer, text);
}

/// A fact as the schema has it. Numbers are our own, in decimal.
void putMember(Writer& writer, const Member& member, const std::vector<std::string>& values) {
  writer.Key(member.name);
  switch (member.kind) {
    case Kind::kText:
      return put(writer, values.front());
    case Kind::kNumber:
      writer.Uint(static_cast<unsigned>(std::strtoul(values.front().c_str(), nullptr, 10)));
      return;
    case Kind::kList:
      writer.StartArray();
      for (const std::string& value : values)
        put(writer, value);
      writer.EndArray();
      return;
  }
}

/// Those of the facts that were found out; the others have no member, rather than an empty one.
template <typename Members>
void putFacts(Writer& writer, const Members& members, const Facts& facts) {
  for (const Member& member : members) {
    const auto found = facts.find(member.name);
    if (found != facts.end() && !found->second.empty()) putMember(writer, member, found->second);
  }
}

/// One finding. Members that would be empty are left out.
void putCheck(Writer& writer, const Check& check) {
  writer.StartObject();
  put(writer, "id", check.id);
  put(writer, "group", groupOf(check.id));
  if (!check.subject.empty()) put(writer, "subject", check.subject);
  put(writer, "state", nameOf(check.state));
  put(writer, "fact", check.fact);
  if (!check.remedy.empty()) put(writer, "remedy", check.remedy);
  writer.EndObject();
}

}  // namespace

std::string jsonReport(const Report& report) {
  alignas(std::max_align_t) std::array<char, kLevelsSize> memory{};
  Levels levels(memory.data(), memory.size());
  Text text;
  Writer writer(text, &levels, kLevels);
  writer.SetIndent(' ', 2);
  writer.StartObject();
  writer.Key("schema");
  writer.Int(kSchema);
  put(writer, "verdict", nameOf(verdictOf(report)));
  put(writer, "summary", summaryOf(report));
  writer.Key("facts");
  writer.StartObject();
  putFacts(writer, kDeviceFacts, report.facts);
  writer.Key("versions");
  writer.StartObject();
  putFacts(writer, kVersions, report.facts);
  writer.EndObject();
  writer.EndObject();
  writer.Key("checks");
  writer.StartArray();
  for (const Check& check : report.checks)
    putCheck(writer, check);
  writer.EndArray();
  writer.EndObject();
  text.Put('\n');
  return text.take();
}

}  // namespace kelt::check
