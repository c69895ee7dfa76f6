#include "check/message.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <initializer_list>

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
/// So that no message of six fields is too long. A device may hold values of any length; nobody reads more of one.
constexpr std::size_t kMaxField = std::size_t{64} << 10U;

/// No text of ours has a zero byte; what comes after one is left out, as is what is too long.
void append(std::string& text, std::string_view field) {
  text.append(field.substr(0, std::min(field.find('\0'), kMaxField))).push_back('\0');
}

/// Puts together one message and writes it in one go, as far as the pipe takes it.
void write(int fd, std::initializer_list<std::string_view> fields) {
  // One allocation, so that little can fail.
  std::size_t most = sizeof(Length);
  for (const std::string_view field : fields)
    most += std::min(field.size(), kMaxField) + 1;
  std::string text;
  text.reserve(most);
  text.assign(sizeof(Length), '\0');
  for (const std::string_view field : fields)
    append(text, field);
  const auto length = static_cast<Length>(text.size() - sizeof(Length));
  std::memcpy(text.data(), &length, sizeof length);
  // Whoever reads may be gone; then nobody is interested.
  static_cast<void>(base::writeAll(fd, {reinterpret_cast<const unsigned char*>(text.data()), text.size()}));
}

/// The fields of a message, each up to its zero byte.
Receiver::Fields fieldsIn(std::string_view body) {
  Receiver::Fields fields;
  while (!body.empty()) {
    const std::size_t end = body.find('\0');
    if (fields.count < fields.texts.size()) fields.texts.at(fields.count) = body.substr(0, end);
    ++fields.count;
    body.remove_prefix(end == std::string_view::npos ? body.size() : end + 1);
  }
  return fields;
}

bool bState(std::string_view number) {
  return number.size() == 1 && number[0] >= '0' && number[0] <= '3';
}

}  // namespace

void PipeFindings::take(Check check) {
  const char state = static_cast<char>('0' + static_cast<int>(check.state));
  write(m_fd, {kCheck, check.id, check.subject, std::string_view(&state, 1), check.fact, check.remedy});
}

void PipeFindings::takeFact(const std::string& name, const std::string& value) {
  write(m_fd, {kFact, name, value});
}

void PipeFindings::begin(const std::string& id, const std::string& waitsFor) {
  write(m_fd, {kBegin, id, waitsFor});
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
    // The sender is our own, but one whose memory is in disorder can send anything.
    if (length > kMaxMessage) return false;
    if (rest.size() < sizeof length + length) break;
    if (!takeFields(fieldsIn(rest.substr(sizeof length, length)))) return false;
    rest.remove_prefix(sizeof length + length);
  }
  // Once for all messages that have come in together.
  m_waiting.erase(0, m_waiting.size() - rest.size());
  return true;
}

bool Receiver::takeFields(const Fields& fields) {
  const auto& [kind, first, second, third, fourth, fifth] = fields.texts;
  if (fields.count == 6 && kind == kCheck && bState(third)) {
    m_report.checks.push_back({std::string(first), std::string(second), static_cast<State>(third[0] - '0'),
                               std::string(fourth), std::string(fifth)});
    m_begun.waitsFor.clear();
  } else if (fields.count == 3 && kind == kFact) {
    m_report.facts[std::string(first)].emplace_back(second);
  } else if (fields.count == 3 && kind == kBegin) {
    m_begun = {std::string(first), std::string(second)};
  } else if (fields.count == 1 && kind == kEnd) {
    m_bComplete = true;
  } else {
    return false;
  }
  return true;
}

}  // namespace kelt::check
