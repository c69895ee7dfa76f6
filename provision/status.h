#pragma once

namespace kelt::provision {

/// What Provision::iGetProvisionFiles returns. The numbers reach the exit status of the run; 7 is not used.
enum Status : int {
  kSuccess = 0,
  kNoCurl = 1,
  kTransferFailed = 2,
  kZipNotCreated = 3,
  kZipNotWritten = 4,
  kNotUnzipped = 5,
  kModeNotWritten = 6,
  kModeNotRead = 8,
  kNotRenamed = 9,
  kBadReply = 10,
};

}  // namespace kelt::provision
