#pragma once
// The two halves of the rehearsal of a switch to managed mode.

#include <string>

#include "check/device.h"

namespace kelt::check {

/// Rehearses what a switch does with the site list in `directory`, the place that it takes.
/// Nothing is written: a list that would be converted is converted in memory.
void checkSourceSiteList(const std::string& directory, Findings& findings);

/// Rehearses what the import does with the key files there, once they are copied.
void checkSourceKeys(const Device& device, const std::string& directory, Findings& findings);

}  // namespace kelt::check
