#pragma once
// Files and paths of the agent's toolkit. Every operation takes wide paths, narrowed as UTF-8.

#include <cstdint>

#include "base/unique_fd.h"
#include "platform/abuffer.h"
#include "platform/astring.h"

/// A directory and a name joined with exactly one "/", whatever stands at the end of the one and the start of the
/// other.
class APath {
 public:
  /// Joins the two; nothing is looked up, and "." and ".." stay as they are.
  APath(const AString& directory, const AString& name);

  /// The path, for the operations that take one; valid as long as the object lives.
  operator const AString&() const { return m_path; }  // NOLINT(google-explicit-constructor)
  operator const wchar_t*() const { return m_path; }  // NOLINT(google-explicit-constructor)
  [[nodiscard]] const std::wstring& str() const { return m_path.str(); }

 private:
  AString m_path;
};

/// Questions about files, and operations on whole files. None throws: want of memory is a failure like any other.
class AFiler {
 public:
  /// The ways of using a file that can be asked about; the numbers are the toolkit's.
  enum AFileAccess : int {
    kExistence = 0,  ///< is there at all
    kRead = 1,       ///< readable by this process
    kWrite = 2,      ///< writable by this process
  };

  /// Whether `path` can be used in the given way; directories count. Absent, or there but not accessible that way: true
  /// with `exists` false. There and accessible: true with `exists` true. Any other failure to examine it (EACCES on a
  /// parent, ELOOP, ENAMETOOLONG, EIO): false, with `exists` unchanged.
  [[nodiscard]] static bool getFileAccessibility(const AString& path, AFileAccess access, bool& exists);

  /// The same with both facts told apart: `exists` whether it is there, `accessible` whether in the given way.
  /// Both are unchanged when the result is false.
  [[nodiscard]] static bool getFileAccessibility(const AString& path, AFileAccess access, bool& accessible,
                                                 bool& exists);

  /// Size in bytes of a regular file. False, with `size` unchanged, for anything else or a missing file.
  [[nodiscard]] static bool tryGetFileSize(const AString& path, std::uint64_t& size);

  /// Removes a file or a symbolic link. False when there is nothing to remove, for a directory, and on any other error.
  [[nodiscard]] static bool deleteFile(const AString& path);

  /// Replaces `to` by the content of the regular file `from` (see base/file_replace.h). An existing `to` keeps owner
  /// and mode, a new one gets the permission bits of `from`. Where both are one file, that is done already. False on
  /// any failure, want of memory included; `to` is then as it was, with the exceptions told there: the last step, which
  /// makes the change last, failed, or the file had to be written in place.
  [[nodiscard]] static bool copyFile(const AString& from, const AString& to);
};

/// One file, and whole files at once. Nothing here throws either.
class AFile {
 public:
  /// No file is open.
  AFile() = default;

  /// Reads a whole regular file into `content`. The two names are the toolkit's; they do the same. False, with
  /// `content` unchanged, when there is no such file or it cannot be read.
  [[nodiscard]] static bool readExisting(const AString& path, ABuffer& content);
  [[nodiscard]] static bool tryRead(const AString& path, ABuffer& content);

  /// Replaces the file at `path` by `content` (see base/file_replace.h); a new one is made 0600. False on any failure;
  /// the file is then as it was, with the exceptions told at AFiler::copyFile.
  [[nodiscard]] static bool write(const AString& path, const ABuffer& content);

  /// Opens for writing, creating the file (0600) if it is missing. What is there is kept, or cut off when `truncate`. A
  /// symbolic link is not followed, only a regular file is taken. Returns true when the file is open.
  [[nodiscard]] bool openWrite(const AString& path, bool truncate);

  /// openWrite(path, false).
  [[nodiscard]] bool openAlways(const AString& path);

  /// Closes the file, if one is open; so do the destructor and the opening of another.
  void close();

 private:
  kelt::base::UniqueFd m_fd;
};
