#pragma once
// Unpacking of archives that nobody vouches for.

/// Unpacks the zip archive (APPNOTE 6.3.x: stored and deflated entries) of at most 24 MiB at `zipFile` into the
/// existing directory `destDir`. A first pass judges every entry before a second writes any: names are valid UTF-8,
/// relative, at most 512 bytes and 16 levels, without "..", ".", empty parts, backslash, colon or control characters,
/// unique without regard to case, none both file and directory; only regular files and directories; the bytes produced
/// equal those declared; 64 MiB and 1024 entries in all at most. Files are made 0600 and directories 0700, whatever the
/// archive says; files take their names when all of them are on the disk, and no symbolic link below `destDir` is
/// followed. SIGINT, SIGTERM and SIGHUP wait while anything is written.
///
/// Returns 0, or -1 for anything that is not a complete, readable, harmless archive, and when the system refuses
/// something: nothing of it is then left in `destDir`, and what stood there under the same names is as it was. (A file
/// that cannot even be put back is told in the agent's log, and stays beside its name as ".<name>.kelt-...".) A run
/// that is killed leaves each name with its old file or its new one; base/sweep.h removes what else it leaves.
///
/// To put files back needs a file system that exchanges names or gives a file two; elsewhere an archive whose names
/// are taken is refused.
int NsUnzip(const char* zipFile, const char* destDir);
