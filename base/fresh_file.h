#pragma once
// Files made anew, piece by piece, in a directory that others may write to.

#include <span>
#include <string>
#include <string_view>

#include "base/file_place.h"
#include "base/result.h"
#include "base/signals.h"
#include "base/temporary_file.h"

namespace kelt::base {

/// A file on its way to its name, 0600, made through base/temporary_file.h. It inherits nothing: whatever stands under
/// the name, a link that somebody planted for instance, is replaced, never followed and never written through. A file
/// that was not published is gone with its object. SIGINT, SIGTERM and SIGHUP wait as long as the object lives.
class FreshFile {
 public:
  /// Starts the file that shall be named `path`. Errors: kRefused when a directory stands there; kNotFound, kSystem.
  [[nodiscard]] static Result<FreshFile> create(const std::string& path);

  /// Appends `data`. Errors: kSystem.
  [[nodiscard]] Status write(std::span<const unsigned char> data);

  /// Makes the content durable and gives the file its name; the last thing done with the object. Errors: kSystem; what
  /// stood there is then as it was, unless only the sync of the directory failed, which comes after the renaming.
  [[nodiscard]] Status publish();

 private:
  FreshFile(DeferredSignals signals, Place place, TemporaryFile file)
      : m_signals(std::move(signals)), m_place(std::move(place)), m_file(std::move(file)) {}

  DeferredSignals m_signals;  // the first to be made and the last to go, so that they wait for all that the others do
  Place m_place;
  TemporaryFile m_file;
};

/// Makes the file at `path` in one go, with the content `text`. Errors: those of create, write and publish.
[[nodiscard]] Status makeFreshFile(const std::string& path, std::string_view text);

}  // namespace kelt::base
