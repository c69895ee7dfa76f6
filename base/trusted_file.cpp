#include "base/trusted_file.h"

#include <array>
#include <climits>
#include <fcntl.h>
#include <optional>
#include <utility>

#include "base/retry.h"

namespace kelt::base {
namespace {

/// As many as the system follows in one path.
constexpr int kMaxLinks = 40;

/// A name in an open directory.
struct Place {
  UniqueFd directory;
  std::string directoryPath;
  std::string name;

  [[nodiscard]] std::string path() const { return joined(directoryPath, name); }

  static std::string joined(const std::string& directory, const std::string& name) {
    return directory.empty() || directory.back() == '/' ? directory + name : directory + "/" + name;
  }
};

Error refused(const std::string& path, const char* why) {
  return {ErrorKind::kRefused, 0, path + ": " + why};
}

Status judge(int fd, const std::string& path, const Trust& trust) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return systemError("examine " + path);
  if (const char* why = whyNotTrusted(info, trust)) return refused(path, why);
  return {};
}

/// `directory` is relative to the open directory `from`, which messages call `fromPath`.
Result<Place> openPlace(int from, const std::string& fromPath, const std::string& directory, std::string name) {
  std::string path = directory.starts_with("/") ? directory : Place::joined(fromPath, directory);
  while (path.size() > 1 && path.back() == '/')
    path.pop_back();
  UniqueFd fd(::openat(from, directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return systemError("open " + path);
  return Place{std::move(fd), path, std::move(name)};
}

/// Where the link `entry` leads to, one step.
Result<Place> follow(const Place& place, int entry) {
  std::array<char, PATH_MAX> text{};
  const ssize_t length = ::readlinkat(entry, "", text.data(), text.size());
  if (length < 0) return systemError("read the link " + place.path());
  const std::string target(text.data(), static_cast<std::size_t>(length));
  const std::size_t slash = target.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : target.substr(0, slash + 1);
  std::string name = target.substr(directory.size());
  if (name.empty()) name = ".";
  if (!directory.empty()) return openPlace(place.directory.get(), place.directoryPath, directory, std::move(name));
  UniqueFd same(::fcntl(place.directory.get(), F_DUPFD_CLOEXEC, 0));
  if (!same) return systemError("open " + place.directoryPath);
  return Place{std::move(same), place.directoryPath, std::move(name)};
}

Result<OpenedFile> openHere(Place place, const Trust& trust) {
  constexpr int kFlags = O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  const std::string path = place.path();
  UniqueFd file(retryInterrupted([&] { return ::openat(place.directory.get(), place.name.c_str(), kFlags); }));
  if (!file) return systemError("open " + path);
  struct stat info {};
  if (::fstat(file.get(), &info) != 0) return systemError("examine " + path);
  if (!S_ISREG(info.st_mode)) return refused(path, "is not a regular file");
  if (const char* why = whyNotTrusted(info, trust)) return refused(path, why);
  return OpenedFile{std::move(file), std::move(place.directory), std::move(place.name), path};
}

}  // namespace

const char* whyNotTrusted(const struct stat& info, const Trust& trust) {
  if (!trust.bJudgesAnything) return nullptr;
  if (info.st_uid != 0 && info.st_uid != trust.owner) return "belongs to somebody else";
  const bool bGroupOfOthers = trust.bJudgesGroup && info.st_gid != info.st_uid;
  const mode_t others = bGroupOfOthers ? S_IWGRP | S_IWOTH : S_IWOTH;
  return (info.st_mode & others) != 0 ? "can be written by others" : nullptr;
}

Result<OpenedFile> openTrusted(int from, const std::string& fromPath, const std::string& directory,
                               const std::string& name, const Trust& trust) {
  auto place = openPlace(from, fromPath, directory, name);
  for (int links = 0; place && links <= kMaxLinks; ++links) {
    Place& here = place.value();
    // Looked at before it is opened: merely opening a FIFO or a device can have an effect.
    const UniqueFd entry(::openat(here.directory.get(), here.name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!entry) return systemError("open " + here.path());
    if (const Status judged = judge(here.directory.get(), here.directoryPath, trust); !judged) return judged.error();
    struct stat info {};
    if (::fstat(entry.get(), &info) != 0) return systemError("examine " + here.path());
    if (S_ISREG(info.st_mode)) return openHere(std::move(here), trust);
    if (!S_ISLNK(info.st_mode)) return refused(here.path(), "is not a regular file");
    place = follow(here, entry.get());
  }
  if (!place) return place.error();
  return refused(Place::joined(Place::joined(fromPath, directory), name), "is behind too many symbolic links");
}

}  // namespace kelt::base
