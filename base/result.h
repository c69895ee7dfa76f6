#pragma once
// Errors as values: a Result<T> holds either what was asked for or why there is none.

#include <cstdlib>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kelt::base {

/// What went wrong, as far as a caller may want to act on it.
enum class ErrorKind {
  kNotFound,   ///< the thing asked for is not there
  kRefused,    ///< it is there, but must not be used (wrong kind of file, wrong owner, hostile content)
  kMalformed,  ///< content that does not follow its format
  kTooLarge,   ///< over a stated limit
  kSystem,     ///< a system call failed; Error::sysErrno says how
};

/// A failure: its kind, the errno that it came with (0 where no system call was involved) and a sentence for a log.
/// The sentence never holds a secret.
struct Error {
  ErrorKind kind = ErrorKind::kSystem;
  int sysErrno = 0;
  std::string message;
};

/// An Error from errno as it stands now. ENOENT and ENOTDIR become kNotFound, all others kSystem.
/// `what` names the operation and its object, for instance "open /etc/orv.d".
[[nodiscard]] Error systemError(std::string_view what);

/// The same for an errno value kept earlier.
[[nodiscard]] Error systemError(std::string_view what, int sysErrno);

/// Either a value or an Error. Asking for the one that is not there is a programming error and ends the program
/// (std::abort), whatever exceptions somebody would catch.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : m_state(std::in_place_index<0>, std::move(value)) {}      // NOLINT(google-explicit-constructor)
  Result(Error error) : m_state(std::in_place_index<1>, std::move(error)) {}  // NOLINT(google-explicit-constructor)

  /// Whether there is a value.
  [[nodiscard]] bool ok() const { return m_state.index() == 0; }
  explicit operator bool() const { return ok(); }

  /// The value; a reference into this object, or the value itself where the object is about to go.
  [[nodiscard]] T& value() & { return held(std::get_if<0>(&m_state)); }
  [[nodiscard]] const T& value() const& { return held(std::get_if<0>(&m_state)); }
  [[nodiscard]] T&& value() && { return std::move(held(std::get_if<0>(&m_state))); }
  /// Why there is no value; a reference into this object.
  [[nodiscard]] const Error& error() const { return held(std::get_if<1>(&m_state)); }

 private:
  template <typename Held>
  static Held& held(Held* object) {
    if (object == nullptr) std::abort();
    return *object;
  }

  std::variant<T, Error> m_state;
};

/// The Result of an operation that has nothing to hand over.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(Error error) : m_state(std::in_place_index<1>, std::move(error)) {}  // NOLINT(google-explicit-constructor)

  [[nodiscard]] bool ok() const { return m_state.index() == 0; }
  explicit operator bool() const { return ok(); }
  [[nodiscard]] const Error& error() const {
    const Error* const held = std::get_if<1>(&m_state);
    if (held == nullptr) std::abort();
    return *held;
  }

 private:
  std::variant<std::monostate, Error> m_state;
};

/// Whether something was done, or why not.
using Status = Result<void>;

}  // namespace kelt::base

namespace kelt {
// Every folder speaks of failure, and does so in these words.
using base::Error;
using base::ErrorKind;
using base::Result;
using base::Status;
}  // namespace kelt
