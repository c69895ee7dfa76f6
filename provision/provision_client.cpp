#include "provision/provision_client.h"

#include <cstdio>

#include "base/console.h"
#include "base/file_place.h"
#include "base/fresh_file.h"
#include "base/sweep.h"
#include "platform/afile.h"
#include "platform/logger.h"
#include "platform/sites_helper.h"
#include "platform/unzip.h"
#include "provision/messages.h"
#include "provision/received_files.h"
#include "provision/reply_archive.h"
#include "provision/server_address.h"
#include "provision/terminal_prompts.h"
#include "provision/transfer.h"

namespace kelt::provision {

boost::mutex mtxProvision;

namespace {

using base::FreshFile;
using quorvane_com::orv::tellcomn_ansi_to_wide;
using quorvane_com::orv::tellcomn_wide_to_ansi;

constexpr std::string_view kSuccessMark = "OK:\r\n";
constexpr std::string_view kDefaultPort = "8443";

/// Completes the line of a progress text, and passes on what the step came to.
Status completed(bool done, Status failure) {
  base::print(done ? messages::kDone : messages::kFailed);
  return done ? kSuccess : failure;
}

/// All that needs the password, the one copy of which goes with this scope.
Status fetch(std::string_view server, std::string_view user, std::string_view password) {
  ServerAccess access(server, user, password);
  askForMissing(access);
  std::string host;
  std::string port;
  if (!split_host_and_port(access.server, host, port)) {
    // Spelled out: without it libcurl would take the port of HTTPS, 443.
    port = kDefaultPort;
    access.server.append(":").append(kDefaultPort);
  }
  return fetchPackage(access, host, port);
}

/// Whether the reply is whole and says that it is a package. None at all gets a hint at the likeliest reason.
Status examineReply(const Reply& reply) {
  base::print(messages::kExamining);
  const Status status = completed(reply.text().starts_with(kSuccessMark) && !reply.bCut(), kBadReply);
  if (status != kSuccess && reply.text().empty() && !reply.bCut()) base::print(messages::kNoResponse);
  return status;
}

/// Fills and publishes the file of the archive in the reply, which is empty where the reply is no base64. Returns
/// whether that was possible.
bool writeArchive(FreshFile& zip, const std::string& path) {
  // examineReply has seen the mark there.
  const std::string_view base64 = std::string_view(serverReply.text()).substr(kSuccessMark.size());
  const auto write = [&zip](std::span<const unsigned char> piece) { return zip.write(piece).ok(); };
  switch (decodeInPieces(base64, write)) {
    case Decoding::kDone:
      return zip.publish().ok();
    case Decoding::kNoBase64:
      // Told by the step that follows, which finds no archive in it.
      return base::makeFreshFile(path, {}).ok();
    default:
      return false;
  }
}

Status writeZip(const std::string& path) {
  base::print(messages::kCreatingZip);
  auto zip = FreshFile::create(path);
  if (const Status status = completed(zip.ok(), kZipNotCreated); status != kSuccess) return status;
  base::print(messages::kWritingZip);
  return completed(writeArchive(zip.value(), path), kZipNotWritten);
}

Status unzip(const std::string& zip, const std::string& directory) {
  base::print(messages::kUnzipping);
  const Status status = completed(NsUnzip(zip.c_str(), directory.c_str()) != -1, kNotUnzipped);
  // It has the keys in it a second time. What cannot be unzipped stays, for whoever wants to know why.
  if (status == kSuccess) (void)AFiler::deleteFile(tellcomn_ansi_to_wide(zip));
  return status;
}

Status readMode(const std::string& directory, std::string& mode) {
  base::print(messages::kReadingMode);
  const std::wstring path = tellcomn_ansi_to_wide(directory + "/sitelist.xml");
  std::wstring read;
  // What the package does not bring must not come from somebody else.
  const bool bAllOurs = removeStrangers(directory);
  const bool bRead = bAllOurs && sitehlp::CSitesHelper(path).GetSitelistFipsMode(path, read) == 0;
  mode = tellcomn_wide_to_ansi(read);
  return completed(bRead, kModeNotRead);
}

Status writeMode(const std::string& path, const std::string& mode) {
  base::print(messages::kWritingMode);
  return completed(base::makeFreshFile(path, mode).ok(), kModeNotWritten);
}

Status renameSiteList(const std::string& directory) {
  base::print(messages::kRenaming);
  const std::string from = directory + "/sitelist.xml";
  const std::string to = directory + "/SiteList.xml";
  // Synced, so that a power cut does not leave the switch without the name that it looks for.
  return completed(std::rename(from.c_str(), to.c_str()) == 0 && base::syncDirectory(directory).ok(), kNotRenamed);
}

/// What an earlier run left in the directory when it was cut off.
void sweep(const std::string& directory) {
  for (const std::string& path : base::sweepDirectory(directory))
    logInfo(L"keltcfg", tellcomn_ansi_to_wide("Removed what an interrupted run left, " + path).c_str());
}

Status unpackReply(const std::string& directory) {
  // Only now: a directory that nothing comes into is left as it is.
  sweep(directory);
  const std::string zip = directory + "/keltconfig_keystemp.zip";
  if (const Status status = writeZip(zip); status != kSuccess) return status;
  return unzip(zip, directory);
}

}  // namespace

Status provisionFiles(const std::string& directory, std::string_view server, std::string_view user,
                      std::string_view password) {
  // The reply is the process's: two exchanges at once would mix theirs.
  const boost::mutex::scoped_lock lock(mtxProvision);
  if (const Status status = fetch(server, user, password); status != kSuccess) return status;
  if (const Status status = examineReply(serverReply); status != kSuccess) return status;
  if (const Status status = unpackReply(directory); status != kSuccess) return status;
  std::string mode;
  if (const Status status = readMode(directory, mode); status != kSuccess) return status;
  claimLegacyNames(directory);
  if (const Status status = writeMode(directory + "/agentfipsmode", mode); status != kSuccess) return status;
  // Last: no switch takes a directory without SiteList.xml, so one that was filled for the first time is complete then.
  return renameSiteList(directory);
}

}  // namespace kelt::provision
