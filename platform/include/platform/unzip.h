#pragma once
// Unpacking of archives that nobody vouches for.

/// Unpacks the zip archive (APPNOTE 6.3.x: stored and deflated entries) of at most 24 MiB at `zipFile` into the existing
/// directory `destDir`. A first pass judges every entry before a second writes any: names are valid UTF-8, relative, at most 512
/// bytes and 16 levels, without "..", ".", empty parts, backslash, colon or control characters, unique without regard
/// to case, none both file and directory; only regular files and directories; the bytes produced equal those declared;
/// 64 MiB and 1024 entries in all at most. Files are made 0600 and directories 0700, whatever the archive says, each
/// under a temporary name that is then renamed, and no symbolic link below `destDir` is followed. Returns 0, or -1 for
/// anything that is not a complete, readable, harmless archive; nothing of it is then left in `destDir`.
int NsUnzip(const char* zipFile, const char* destDir);
