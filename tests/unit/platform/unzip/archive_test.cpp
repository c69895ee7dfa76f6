#include "unzip/archive.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/stat.h>

#include "unzip/unpacking.h"

#include "base/file_read.h"

namespace kelt::platform {
namespace {

/// An archive of the tests, open.
class OpenedArchive {
 public:
  explicit OpenedArchive(const std::string& name)
      : m_content(base::readFile(tests::archives() + "/" + name + ".zip").value()),
        m_archive(ZipArchive::open(m_content).value()) {}

  const ZipArchive& operator*() const { return m_archive; }
  const ZipArchive* operator->() const { return &m_archive; }

  /// The description of the entry `name`.
  [[nodiscard]] ZipEntry entry(const std::string& name) const {
    for (std::uint64_t index = 0; index < m_archive.count(); ++index) {
      const auto entry = m_archive.describe(index);
      if (entry && entry.value().name == name) return entry.value();
    }
    ADD_FAILURE() << "no entry " << name;
    return {};
  }

  /// The entry that makes a hostile archive one.
  [[nodiscard]] ZipEntry last() const { return m_archive.describe(m_archive.count() - 1).value(); }

  /// The content of the last entry, or why it cannot be read.
  [[nodiscard]] std::string lastContent() const {
    std::string content;
    const ZipSink sink = [&](std::span<const unsigned char> piece) {
      content.append(piece.begin(), piece.end());
      return Status();
    };
    const Status read = m_archive.read(last(), sink);
    return read ? content : read.error().message;
  }

 private:
  base::SecretBytes m_content;
  ZipArchive m_archive;
};

TEST(ZipArchive, DescribesItsEntriesAsTheyAreStored) {
  const OpenedArchive tree("good/tree");
  EXPECT_EQ(tree->count(), 4U);
  EXPECT_EQ(tree.entry("harmless.txt").size, 8U);
  EXPECT_TRUE(tree.entry("harmless.txt").bPlain);
  EXPECT_EQ(tree.entry("keys/deep/er/k.bin").size, 4U);
}

TEST(ZipArchive, TellsTheKindOfAnEntry) {
  EXPECT_EQ(OpenedArchive("hostile/link").last().type, std::uint32_t{S_IFLNK});
  EXPECT_EQ(OpenedArchive("hostile/fifo").last().type, std::uint32_t{S_IFIFO});
  for (const char* name : {"hostile/encrypted", "hostile/bzip2", "hostile/lzma"})
    EXPECT_FALSE(OpenedArchive(name).last().bPlain) << name;
}

TEST(ZipArchive, HasNoEntryBeyondItsCount) {
  const OpenedArchive tree("good/tree");
  const auto entry = tree->describe(tree->count());
  ASSERT_FALSE(entry.ok());
  EXPECT_EQ(entry.error().kind, ErrorKind::kMalformed);
}

TEST(ZipArchive, UnpacksNoMoreAndNoLessThanDeclared) {
  EXPECT_EQ(OpenedArchive("hostile/understated").lastContent(), "an entry longer than declared");
  EXPECT_EQ(OpenedArchive("hostile/overstated").lastContent(), "an entry shorter than declared");
  EXPECT_EQ(OpenedArchive("hostile/wrong_checksum").lastContent(), "an entry that is damaged");
}

TEST(ZipArchive, EndsWhereTheSinkReportsAnError) {
  const OpenedArchive tree("good/tree");
  const ZipSink full = [](std::span<const unsigned char>) { return Error{ErrorKind::kSystem, ENOSPC, "full"}; };
  const Status read = tree->read(tree.entry("harmless.txt"), full);
  ASSERT_FALSE(read.ok());
  EXPECT_EQ(read.error().message, "full");
}

TEST(ZipArchive, IsNotOpenedFromWhatDoesNotEndAsOne) {
  for (const std::string& content : {std::string(), std::string(21, 'x'), std::string(4096, 'x')}) {
    const auto archive = ZipArchive::open({reinterpret_cast<const unsigned char*>(content.data()), content.size()});
    ASSERT_FALSE(archive.ok()) << content.size();
    EXPECT_EQ(archive.error().kind, ErrorKind::kMalformed);
  }
}

}  // namespace
}  // namespace kelt::platform
