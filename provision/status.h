#pragma once
// What a provisioning comes to.

namespace kelt::provision {

/// What Provision::iGetProvisionFiles returns. The numbers reach the exit status of the run, which is 30 more; 7 is not
/// used. A failure ends the provisioning at the step that it names.
enum Status : int {
  kSuccess = 0,
  kNoCurl = 1,          ///< libcurl, or the loadable object with it, cannot be used
  kTransferFailed = 2,  ///< or there is no memory
  kZipNotCreated = 3,   ///< "keltconfig_keystemp.zip" in the directory
  kZipNotWritten = 4,   ///< that file: the disk is full, for instance
  kNotUnzipped = 5,     ///< the zip file stays
  kModeNotWritten = 6,  ///< the file "agentfipsmode"
  kModeNotRead = 8,     ///< or somebody else's files cannot be removed
  kNotRenamed = 9,      ///< of the site list
  kBadReply = 10,       ///< nothing is written of it
};

}  // namespace kelt::provision
