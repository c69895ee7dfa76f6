#include "check/findings.h"

#include <cerrno>
#include <cstddef>
#include <unistd.h>

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
  const bool bUnseen = bNotSeen(error);
  put(bUnseen ? State::kUnknown : otherwise, id, error.message, bUnseen ? kLookAsRoot : remedy, subject);
}

bool bNotSeen(int sysErrno) {
  switch (sysErrno) {
    case EACCES:
    case EPERM:
      return ::geteuid() != 0;
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

std::string sentence(std::string text) {
  constexpr std::size_t kMost = 2000;
  if (text.size() > kMost) text.replace(kMost, std::string::npos, " ...");
  for (char& c : text) {
    if (c == '\n' || c == '\r') c = ' ';
  }
  while (!text.empty() && text.back() == ' ')
    text.pop_back();
  if (!text.empty() && text.back() != '.' && text.back() != '!') text += '.';
  return text;
}

}  // namespace kelt::check
