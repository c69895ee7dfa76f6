#include "check/elf_file.h"

#include <cstdint>
#include <cstring>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/retry.h"
#include "base/unique_fd.h"

namespace kelt::check {
namespace {

using Header = ElfW(Ehdr);

bool bRead(int fd, Header& header) {
  return base::retryInterrupted([&] { return ::pread(fd, &header, sizeof header, 0); }) ==
         static_cast<ssize_t>(sizeof header);
}

/// Whether both are for one processor, of one width and byte order.
bool bOneMachine(const Header& header, const Header& own) {
  return header.e_machine == own.e_machine && header.e_ident[EI_CLASS] == own.e_ident[EI_CLASS] &&
         header.e_ident[EI_DATA] == own.e_ident[EI_DATA];
}

/// Whether the file is long enough for what its header speaks of. Section headers come last.
bool bWhole(int fd, const Header& header) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return false;
  const auto sections = std::uint64_t{header.e_shoff} + std::uint64_t{header.e_shentsize} * header.e_shnum;
  const auto programs = std::uint64_t{header.e_phoff} + std::uint64_t{header.e_phentsize} * header.e_phnum;
  const auto size = static_cast<std::uint64_t>(info.st_size);
  return sections <= size && programs <= size;
}

}  // namespace

const char* whyNoSharedObject(int fd) {
  Header header{};
  Header own{};
  if (!bRead(fd, header) || std::memcmp(&header.e_ident[0], ELFMAG, SELFMAG) != 0 || header.e_type != ET_DYN)
    return "is no shared object";
  const base::UniqueFd self(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  if (self && bRead(self.get(), own) && !bOneMachine(header, own)) return "is a shared object for another machine";
  if (!bWhole(fd, header)) return "is not complete";
  return nullptr;
}

}  // namespace kelt::check
