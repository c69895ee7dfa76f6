#include "check/elf_file.h"

#include <bit>
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

bool bElf(const Header& header) {
  return std::memcmp(&header.e_ident[0], ELFMAG, SELFMAG) == 0;
}

}  // namespace

const char* whyNoSharedObject(int fd) {
  Header header{};
  Header own{};
  if (!bRead(fd, header) || !bElf(header) || header.e_type != ET_DYN) return "is no shared object";
  // This program runs here, so its own header shows what this machine takes. Without /proc nothing is held against it.
  const base::UniqueFd self(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
  if (self && bRead(self.get(), own) && !bOneMachine(header, own)) return "is a shared object for another machine";
  return bWhole(fd, header) ? nullptr : "is not complete";
}

const char* whyNoProgram(int fd) {
  struct stat info {};
  // The shell would run it, as it does whatever the system cannot, and nothing would come of it.
  if (::fstat(fd, &info) == 0 && info.st_size == 0) return "is empty";
  Header header{};
  if (!bRead(fd, header) || !bElf(header)) return nullptr;
  // A machine may run programs of another width, or of a processor before it, but none of the other byte order.
  constexpr int kOwnOrder = std::endian::native == std::endian::big ? ELFDATA2MSB : ELFDATA2LSB;
  if (header.e_ident[EI_DATA] != kOwnOrder) return "is made for another machine";
  constexpr int kOwnClass = sizeof(void*) == 8 ? ELFCLASS64 : ELFCLASS32;
  // The header of the other width has another form.
  return header.e_ident[EI_CLASS] != kOwnClass || bWhole(fd, header) ? nullptr : "is not complete";
}

}  // namespace kelt::check
