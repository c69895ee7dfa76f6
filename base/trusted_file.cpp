#include "base/trusted_file.h"

#include <fcntl.h>
#include <optional>
#include <utility>

#include "base/file_place.h"
#include "base/retry.h"

namespace kelt::base {
namespace {

Error refused(const std::string& path, const char* why) {
  return {ErrorKind::kRefused, 0, path + ": " + why};
}

/// Who may write to a directory decides what stands in it, whatever the file's own permissions are.
Status judgeDirectoryOf(const Place& place, const Trust& trust) {
  struct stat info {};
  const std::string path = directoryOf(place.path);
  if (::fstat(place.directory.get(), &info) != 0) return systemError("examine " + path);
  if (const char* why = whyNotTrusted(info, trust)) return refused(path, why);
  return {};
}

Result<OpenedFile> openHere(Place place, const Trust& trust) {
  // The directory was judged, so only those who are trusted can have put another file there since; it is judged as
  // opened all the same, which costs nothing.
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  UniqueFd file(retryInterrupted([&] { return ::openat(place.directory.get(), place.name.c_str(), kFlags); }));
  if (!file) return systemError("open " + place.path);
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) return systemError("examine " + place.path);
  if (!S_ISREG(info.st_mode)) return refused(place.path, "is not a regular file");
  if (const char* why = whyNotTrusted(info, trust)) return refused(place.path, why);
  return OpenedFile{std::move(file), std::move(place.directory), std::move(place.name), std::move(place.path)};
}

}  // namespace

const char* whyNotTrusted(const struct stat& info, const Trust& trust) {
  if (!trust.bJudgesAnything) return nullptr;
  // Root is trusted always: it could change the judge as well.
  if (info.st_uid != 0 && info.st_uid != trust.owner) return "belongs to somebody else";
  const bool bGroupOfOthers = trust.bJudgesGroup && info.st_gid != info.st_uid;
  const mode_t others = bGroupOfOthers ? S_IWGRP | S_IWOTH : S_IWOTH;
  return (info.st_mode & others) != 0 ? "can be written by others" : nullptr;
}

Result<OpenedFile> openTrusted(int from, const std::string& fromPath, const std::string& path, const Trust& trust) {
  auto place = openPlace(from, fromPath, path);
  if (!place) return place.error();
  const std::string firstPath = place.value().path;
  for (int links = 0; links <= kMostLinks; ++links) {
    Place& here = place.value();
    // Looked at before it is opened: merely opening a FIFO or a device can have an effect.
    struct stat info {};
    if (::fstatat(here.directory.get(), here.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
      return systemError("open " + here.path);
    }
    // After the look: what is missing is missing, whoever may write there.
    if (const Status judged = judgeDirectoryOf(here, trust); !judged) return judged.error();
    if (S_ISREG(info.st_mode)) return openHere(std::move(here), trust);
    // From here on only those who are trusted can exchange the link for another.
    auto next = followLink(here);
    if (!next) return next.error();
    if (!next.value()) return refused(here.path, "is not a regular file");
    place = std::move(*next.value());
  }
  return refused(firstPath, "is behind too many symbolic links");
}

}  // namespace kelt::base
