#pragma once
// A report for programs.

#include <string>

#include "check/check.h"

namespace kelt::check {

/// The number of the schema (packaging/keltcheck.schema.json): members are added under it, and never change their
/// meaning.
inline constexpr int kSchema = 1;

/// The report as one JSON object (RFC 8259) in UTF-8 and a line end. What is no text is shown as readable() does.
/// Throws std::bad_alloc.
[[nodiscard]] std::string jsonReport(const Report& report);

}  // namespace kelt::check
