#include "check/findings.h"

#include <cerrno>
#include <cstddef>
#include <unistd.h>
#include <utility>

namespace kelt::check {

void Findings::put(State state, const std::string& id, const std::string& fact, const std::string& remedy,
                   const std::string& subject) {
  take({id, subject, state, sentence(fact), state == State::kOk ? std::string() : sentence(remedy)});
}

void Findings::ok(const std::string& id, const std::string& fact, const std::string& subject) {
  put(State::kOk, id, fact, {}, subject);
}

void Findings::warning(const std::string& id, const std::string& fact, const std::string& remedy,
                       const std::string& subject) {
  put(State::kWarning, id, fact, remedy, subject);
}

void Findings::problem(const std::string& id, const std::string& fact, const std::string& remedy,
                       const std::string& subject) {
  put(State::kProblem, id, fact, remedy, subject);
}

void Findings::unknown(const std::string& id, const std::string& fact, const std::string& remedy,
                       const std::string& subject) {
  put(State::kUnknown, id, fact, remedy, subject);
}

void Findings::failure(State otherwise, const std::string& id, const Error& error, const std::string& remedy,
                       const std::string& subject) {
  if (!bNotSeen(error)) return put(otherwise, id, error.message, remedy, subject);
  const bool bForbidden = error.sysErrno == EACCES || error.sysErrno == EPERM;
  unknown(id, error.message, bForbidden ? kLookAsRoot : kFreeMeans, subject);
}

bool bNotSeen(int sysErrno) {
  switch (sysErrno) {
      // Root is refused by the thing itself: by an attribute, a file system or a policy.
    case EACCES:
    case EPERM:
      return ::geteuid() != 0;
      // Of these, nobody is refused because of the thing.
    case ENOMEM:
    case EMFILE:
    case ENFILE:
      return true;
    default:
      return false;
  }
}

bool bNotSeen(const Error& error) {
  return bNotSeen(error.sysErrno);
}

std::string shortened(std::string text, std::size_t most) {
  if (text.size() <= most) return text;
  // Not within a character: its further bytes are 10xxxxxx.
  while (most > 0 && (static_cast<unsigned char>(text[most]) & 0xC0U) == 0x80)
    --most;
  return text.replace(most, std::string::npos, " ...");
}

std::string sentence(std::string text) {
  constexpr std::size_t kMost = 2000;
  text = shortened(std::move(text), kMost);
  // Facts stand on one line; messages of libraries may have several.
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  while (!text.empty() && text.back() == ' ')
    text.pop_back();
  if (!text.empty() && text.back() != '.' && text.back() != '!') text += '.';
  return text;
}

}  // namespace kelt::check
