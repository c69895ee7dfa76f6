#pragma once
// The fixed console texts of provisioning, with the line ends that they have: a progress text has none, kDone or
// kFailed completes its line. docs/console.md says what an administrator does about each.

#include <string_view>

namespace kelt::provision::messages {

// Prompts, in their order. What is typed is not shown.
inline constexpr std::string_view kAskServer = "zentorserver:";
inline constexpr std::string_view kAskUser = "username:";
inline constexpr std::string_view kAskPassword = "password:";

// The ends of progress texts. A step that fails is the last one.
inline constexpr std::string_view kDone = " OK\n";
inline constexpr std::string_view kFailed = " ERROR\n";

// The steps, in their order.
inline constexpr std::string_view kInitializing = "Initializing CURL...\n";
inline constexpr std::string_view kInitialized = "Curl initialization OK\n";
inline constexpr std::string_view kNotInitialized = "Curl initialization ERROR\n0";
inline constexpr std::string_view kContacting = "Contacting Zentor...";
inline constexpr std::string_view kExamining = "Examining response...";
inline constexpr std::string_view kNoResponse =
    "No response from Zentor, possibly due to invalid Zentor credentials, check Zentor credentials and retry.\n";
inline constexpr std::string_view kCreatingZip = "Creating keys zip file...";
inline constexpr std::string_view kWritingZip = "Writing decoded data to zip file...";
inline constexpr std::string_view kUnzipping = "Unzipping key files...";
inline constexpr std::string_view kReadingMode = "Reading FIPS mode from sitelist...";
inline constexpr std::string_view kWritingMode = "Writing agentfipsmode file...";
inline constexpr std::string_view kRenaming = "Renaming sitelist.xml to SiteList.xml...";

// Ours: they follow the texts of a run that got no further.
inline constexpr std::string_view kNotLoadable = "Error : Provisioning is not available on this device, ";
inline constexpr std::string_view kOutOfMemory = "Error : Provisioning ran out of memory.";

}  // namespace kelt::provision::messages
