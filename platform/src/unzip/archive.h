#pragma once
// Reading zip archives from memory, without believing what they say of themselves.

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <zip.h>

#include "base/result.h"

namespace kelt::platform {

/// What an archive says about one of its entries.
struct ZipEntry {
  std::uint64_t index = 0;
  std::string name;        ///< as stored; a directory's ends in "/"
  std::uint64_t size = 0;  ///< unpacked bytes, as declared
  std::uint32_t type = 0;  ///< the S_IFMT bits of the mode, 0 where the archive tells none
  bool bPlain = false;     ///< neither encrypted nor packed otherwise than stored or deflated
};

/// Takes one piece of an entry's content, of at most 64 KiB. An error that it returns ends the reading.
using ZipSink = std::function<Status(std::span<const unsigned char>)>;

/// An open archive. It reads from the memory given to open, which must outlive it.
class ZipArchive {
 public:
  /// Opens the archive in `content`, without looking at its entries. Errors: kMalformed when `content` does not end as
  /// a zip archive does or its directory cannot be read.
  [[nodiscard]] static Result<ZipArchive> open(std::span<const unsigned char> content);

  /// How many entries the archive says it has.
  [[nodiscard]] std::uint64_t count() const;

  /// What the archive says about the entry `index`, counted from 0; nothing of it is believed yet. Errors: kMalformed
  /// when the entry has no readable description.
  [[nodiscard]] Result<ZipEntry> describe(std::uint64_t index) const;

  /// Unpacks an entry piece by piece into `sink`. Errors: kMalformed when the content is damaged, its checksum is wrong
  /// or its length is not the declared one (never more than that reaches the sink); whatever the sink reports.
  [[nodiscard]] Status read(const ZipEntry& entry, const ZipSink& sink) const;

 private:
  /// Closes it without writing anything: it is only read.
  struct Discard {
    void operator()(zip_t* archive) const { zip_discard(archive); }
  };
  explicit ZipArchive(zip_t* archive) : m_archive(archive) {}

  std::unique_ptr<zip_t, Discard> m_archive;
};

}  // namespace kelt::platform
