#pragma once
// How findings go from the process that looks to the one that reports.

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

#include "check/findings.h"

namespace kelt::check {

/// Writes each finding to a pipe as soon as it is there.
class PipeFindings final : public Findings {
 public:
  /// `fd` is the pipe's writing end, which stays the caller's.
  explicit PipeFindings(int fd) : m_fd(fd) {}

  /// Each writes one message at once. A field is cut at its first zero byte and at 64 KiB. Where nobody reads any more,
  /// nothing happens; may throw std::bad_alloc.
  void take(Check check) override;
  void takeFact(const std::string& name, const std::string& value) override;
  void begin(const std::string& id, const std::string& waitsFor) override;

 private:
  int m_fd;
};

/// What is being looked at, for the case that it comes to no end.
struct Begun {
  std::string id;        ///< the identifier whose turn it is
  std::string waitsFor;  ///< who is waited for; empty where that is only this device
};

/// Puts together what comes out of the pipe.
class Receiver {
 public:
  /// The fields of one message.
  struct Fields {
    std::array<std::string_view, 6> texts;
    std::size_t count = 0;  ///< of all there are, which may be more than fit
  };

  /// Takes the next bytes of the pipe. Returns false for what PipeFindings never writes.
  [[nodiscard]] bool take(const char* bytes, std::size_t count);

  /// What has come in until now; stays this object's.
  [[nodiscard]] Report& report() { return m_report; }
  /// What was begun last; once it has come to a finding, it waits for nothing any more.
  [[nodiscard]] const Begun& begun() const { return m_begun; }
  /// Whether it all came to its end.
  [[nodiscard]] bool bComplete() const { return m_bComplete; }

 private:
  /// Takes one whole message. Returns false for one of another kind or number of fields.
  [[nodiscard]] bool takeFields(const Fields& fields);

  // The beginning of a message whose rest is still to come.
  std::string m_waiting;
  Report m_report;
  Begun m_begun;
  bool m_bComplete = false;
};

/// The last message: that all was looked at.
/// Without it the reader takes the look for one that was cut off, whatever it has told.
void sendEnd(int fd);

}  // namespace kelt::check
