#pragma once
// Where the checks put what they find.

#include <cstddef>
#include <string>

#include "check/check.h"

#include "base/result.h"

namespace kelt::check {

/// Takes findings and facts as they come.
class Findings {
 public:
  Findings() = default;
  Findings(const Findings&) = delete;
  Findings& operator=(const Findings&) = delete;
  virtual ~Findings() = default;

  /// Takes one finding as it is. Those below make its texts sentences first.
  virtual void take(Check check) = 0;
  /// Takes one value of a fact: of several values, each comes by a call of its own, in their order.
  virtual void takeFact(const std::string& name, const std::string& value) = 0;
  /// What is looked at from here on: an identifier and, for what waits for others, what it waits for. Should the run be
  /// ended before the next call of any kind, that is told.
  virtual void begin(const std::string& id, const std::string& waitsFor) = 0;

  /// Tells one finding each: `id` is the question, `fact` the answer and `remedy` what to do about it, both made
  /// sentences; `subject` tells findings of one identifier apart. An ok finding has no remedy, whatever is given.
  void ok(const std::string& id, const std::string& fact, const std::string& subject = {});
  void warning(const std::string& id, const std::string& fact, const std::string& remedy,
               const std::string& subject = {});
  void problem(const std::string& id, const std::string& fact, const std::string& remedy,
               const std::string& subject = {});
  void unknown(const std::string& id, const std::string& fact, const std::string& remedy,
               const std::string& subject = {});
  void put(State state, const std::string& id, const std::string& fact, const std::string& remedy,
           const std::string& subject = {});

  /// Puts the message of `error` as the fact: unknown, where only another user could have found it out or the system
  /// had no means for it, else `otherwise`.
  void failure(State otherwise, const std::string& id, const Error& error, const std::string& remedy,
               const std::string& subject = {});
};

/// Whether `error` says nothing about the thing itself: this user may not look, or the system had no means.
/// A check that took it for an answer would call a device broken that is only not its to see.
[[nodiscard]] bool bNotSeen(const Error& error);
[[nodiscard]] bool bNotSeen(int sysErrno);

/// What to do where this user may not look.
inline constexpr const char* kLookAsRoot = "Run keltcheck as root to find it out.";
/// And where the system had no means.
inline constexpr const char* kFreeMeans = "Free memory and descriptors, and run it again.";

/// `text`, or its beginning, of `most` bytes and no half character, with " ..." after it.
[[nodiscard]] std::string shortened(std::string text, std::size_t most);

/// A text as a sentence: without line ends, with a full stop, of 2000 bytes at most.
[[nodiscard]] std::string sentence(std::string text);

}  // namespace kelt::check
