#include "check/message.h"

#include <cstdint>
#include <cstring>
#include <span>
#include <utility>

#include "base/file_replace.h"

namespace kelt::check {
namespace {

// A message is its length, as this machine has it, and its fields, each with a zero byte after it. The first says what
// it is.
constexpr const char* kCheck = "check";
constexpr const char* kFact = "fact";
constexpr const char* kBegin = "begin";
constexpr const char* kEnd = "end";

using Length = std::uint32_t;
constexpr Length kMaxMessage = 1U << 20U;

std::string packed(const std::vector<std::string>& fields) {
  std::string body;
  for (const std::string& field : fields)
    body.append(field.c_str()).push_back('\0');  // no text of ours has a zero byte
  const auto length = static_cast<Length>(body.size());
  std::string text(sizeof length, '\0');
  std::memcpy(text.data(), &length, sizeof length);
  return text + body;
}

std::vector<std::string> fieldsIn(std::string_view body) {
  std::vector<std::string> fields;
  while (!body.empty()) {
    const std::size_t end = body.find('\0');
    fields.emplace_back(body.substr(0, end));
    body.remove_prefix(end == std::string_view::npos ? body.size() : end + 1);
  }
  return fields;
}

void write(int fd, const std::vector<std::string>& fields) {
  const std::string text = packed(fields);
  // Whoever reads may be gone; then nobody is interested.
  static_cast<void>(base::writeAll(fd, {reinterpret_cast<const unsigned char*>(text.data()), text.size()}));
}

bool bState(const std::string& number) {
  return number.size() == 1 && number[0] >= '0' && number[0] <= '3';
}

}  // namespace

void PipeFindings::take(Check check) {
  send({kCheck, check.id, check.subject, std::to_string(static_cast<int>(check.state)), check.fact, check.remedy});
}

void PipeFindings::takeFact(const std::string& name, const std::string& value) {
  send({kFact, name, value});
}

void PipeFindings::begin(const std::string& id, const std::string& waitsFor) {
  send({kBegin, id, waitsFor});
}

void PipeFindings::send(const std::vector<std::string>& fields) const {
  write(m_fd, fields);
}

void sendEnd(int fd) {
  write(fd, {kEnd});
}

bool Receiver::take(const char* bytes, std::size_t count) {
  m_waiting.append(bytes, count);
  std::string_view rest = m_waiting;
  while (rest.size() >= sizeof(Length)) {
    Length length = 0;
    std::memcpy(&length, rest.data(), sizeof length);
    if (length > kMaxMessage) return false;
    if (rest.size() < sizeof length + length) break;
    if (!takeFields(fieldsIn(rest.substr(sizeof length, length)))) return false;
    rest.remove_prefix(sizeof length + length);
  }
  m_waiting.erase(0, m_waiting.size() - rest.size());
  return true;
}

bool Receiver::takeFields(std::vector<std::string> fields) {
  if (fields.size() == 6 && fields[0] == kCheck && bState(fields[3])) {
    m_report.checks.push_back({fields[1], fields[2], static_cast<State>(fields[3][0] - '0'), fields[4], fields[5]});
    m_begun.waitsFor.clear();
  } else if (fields.size() == 3 && fields[0] == kFact) {
    m_report.facts[fields[1]].push_back(std::move(fields[2]));
  } else if (fields.size() == 3 && fields[0] == kBegin) {
    m_begun = {std::move(fields[1]), std::move(fields[2])};
  } else if (fields.size() == 1 && fields[0] == kEnd) {
    m_bComplete = true;
  } else {
    return false;
  }
  return true;
}

}  // namespace kelt::check
