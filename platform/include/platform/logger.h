#pragma once
// The agent's log: "logs/keltcfg.log" in the agent's data directory.

/// Appends one line: UTC time, "I", process id, source, text, tab-separated, control characters escaped, in one write.
/// The file is 0600 and rotated to ".1" past 1 MiB, when no other process is just writing to it. A log that cannot be
/// written, for want of memory too, changes nothing else. Null texts count as empty. errno stays as it is.
void logInfo(const wchar_t* source, const wchar_t* message);

/// The same, marked "E".
void logError(const wchar_t* source, const wchar_t* message);

/// From here on nothing is logged in this process: for a program that is to change nothing.
void closeLog();
