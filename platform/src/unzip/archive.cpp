#include "unzip/archive.h"

#include <algorithm>
#include <sys/stat.h>

#include "base/secret.h"

namespace kelt::platform {
namespace {

constexpr std::uint64_t kPiece = std::uint64_t{64} * 1024;
constexpr std::size_t kEndRecord = 22;  // the shortest archive: an end record and nothing else

Error malformed(std::string message) {
  return {ErrorKind::kMalformed, 0, std::move(message)};
}

struct CloseEntry {
  void operator()(zip_file_t* file) const { zip_fclose(file); }
};

/// Other methods of packing depend on how the library was built; by these two alone every device judges alike.
bool bPlain(const zip_stat_t& info) {
  if ((info.valid & ZIP_STAT_ENCRYPTION_METHOD) == 0 || info.encryption_method != ZIP_EM_NONE) return false;
  if ((info.valid & ZIP_STAT_COMP_METHOD) == 0) return false;
  return info.comp_method == ZIP_CM_STORE || info.comp_method == ZIP_CM_DEFLATE;
}

}  // namespace

Result<ZipArchive> ZipArchive::open(std::span<const unsigned char> content) {
  // The library takes an empty file for an empty archive.
  if (content.size() < kEndRecord) return malformed("too short for a zip archive");
  zip_error_t error;
  zip_error_init(&error);
  // The last argument leaves the memory to the caller, who keeps it as long as the archive is open.
  zip_source_t* source = zip_source_buffer_create(content.data(), content.size(), 0, &error);
  zip_t* archive = source == nullptr ? nullptr : zip_open_from_source(source, ZIP_RDONLY, &error);
  if (archive == nullptr) {
    Error failure = malformed(std::string("not a zip archive: ") + zip_error_strerror(&error));
    zip_error_fini(&error);
    // An archive that opened owns its source; one that did not leaves it here.
    if (source != nullptr) zip_source_free(source);
    return failure;
  }
  zip_error_fini(&error);
  return ZipArchive(archive);
}

std::uint64_t ZipArchive::count() const {
  const zip_int64_t entries = zip_get_num_entries(m_archive.get(), ZIP_FL_UNCHANGED);
  return entries < 0 ? 0 : static_cast<std::uint64_t>(entries);
}

Result<ZipEntry> ZipArchive::describe(std::uint64_t index) const {
  zip_stat_t info;
  zip_stat_init(&info);
  // As stored: the library would guess at its encoding, and what is judged must be what is made.
  const char* name = zip_get_name(m_archive.get(), index, ZIP_FL_ENC_RAW);
  if (name == nullptr || zip_stat_index(m_archive.get(), index, ZIP_FL_UNCHANGED, &info) != 0 ||
      (info.valid & ZIP_STAT_SIZE) == 0) {
    return malformed("an entry without a description");
  }
  zip_uint8_t system = 0;
  zip_uint32_t attributes = 0;
  // Of these 32 bits the upper half is the mode, where the archive was made on a system that has modes.
  if (zip_file_get_external_attributes(m_archive.get(), index, ZIP_FL_UNCHANGED, &system, &attributes) != 0) {
    return malformed("an entry without attributes");
  }
  // The mode is believed whatever system the entry claims to come from: unpacking tools differ in whom they believe.
  return ZipEntry{index, name, info.size, (attributes >> 16U) & std::uint32_t{S_IFMT}, bPlain(info)};
}

Status ZipArchive::read(const ZipEntry& entry, const ZipSink& sink) const {
  const std::unique_ptr<zip_file_t, CloseEntry> file(zip_fopen_index(m_archive.get(), entry.index, ZIP_FL_UNCHANGED));
  if (!file) return malformed("an entry that cannot be opened");
  // Room for one byte more than declared shows an entry that is longer.
  // Wiped at its end, as an entry may be a secret key.
  base::SecretBytes piece(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, entry.size + 1)));
  std::uint64_t total = 0;
  while (true) {
    const zip_int64_t got = zip_fread(file.get(), piece.data(), piece.size());
    // A wrong checksum shows only at the end, once all of the entry was read.
    if (got < 0) return malformed("an entry that is damaged");
    if (got == 0) break;
    total += static_cast<std::uint64_t>(got);
    if (total > entry.size) return malformed("an entry longer than declared");
    if (auto status = sink({piece.data(), static_cast<std::size_t>(got)}); !status) return status;
  }
  if (total != entry.size) return malformed("an entry shorter than declared");
  return {};
}

}  // namespace kelt::platform
