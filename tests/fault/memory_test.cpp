// Files written while memory runs out: each allocation fails once, and all fail from there on.

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <new>

#include "support/private_device.h"

#include "app/command_line_data.h"
#include "app/custom_properties.h"
#include "base/file_replace.h"
#include "base/fresh_file.h"
#include "base/sweep.h"
#include "keys/key_files.h"
#include "keys/registry_keys.h"
#include "modes/config_values.h"
#include "platform/afile.h"
#include "platform/anxml.h"
#include "platform/crypto.h"
#include "platform/unzip.h"

namespace {

std::size_t g_next = SIZE_MAX;  // how many allocations still succeed
bool g_bLasting = false;
bool g_bFailed = false;

bool bFails() {
  if (g_next == SIZE_MAX) return false;
  if (g_next > 0) {
    --g_next;
    return false;
  }
  if (!g_bLasting) g_next = SIZE_MAX;
  g_bFailed = true;
  return true;
}

}  // namespace

void* operator new(std::size_t size) {
  void* block = bFails() ? nullptr : std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw std::bad_alloc();
  return block;
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

namespace kelt::tests {
namespace {

using Names = std::vector<std::string>;

/// What became of a piece of work for which memory ran out.
enum class Outcome { kDone, kFailed, kThrew };

class FilesWithoutMemory : public PrivateDevice {
 protected:
  /// Does `work` on a device that `prepare` makes, with every allocation failing in turn; `examine` looks at the device
  /// afterwards.
  static void failEach(const std::function<void()>& prepare, const std::function<bool()>& work,
                       const std::function<void(Outcome)>& examine) {
    for (const bool bLasting : {false, true}) {
      bool bFailed = true;
      std::size_t n = 0;
      for (; bFailed; ++n) {
        prepare();
        const Outcome outcome = perform(work, n, bLasting);
        bFailed = g_bFailed;
        SCOPED_TRACE("allocation " + std::to_string(n) + (bLasting ? " and on" : ""));
        examine(outcome);
        if (!bFailed) {
          EXPECT_EQ(outcome, Outcome::kDone);
        }
      }
      EXPECT_GT(n, 1U);
    }
  }

 private:
  static Outcome perform(const std::function<bool()>& work, std::size_t n, bool bLasting) {
    g_bLasting = bLasting;
    g_bFailed = false;
    Outcome outcome = Outcome::kThrew;
    try {
      g_next = n;
      outcome = work() ? Outcome::kDone : Outcome::kFailed;
    } catch (const std::bad_alloc&) {
      outcome = Outcome::kThrew;
    }
    g_next = SIZE_MAX;
    return outcome;
  }
};

void prepareFiles() {
  resetDevice();
  putFile("/tmp/d/a file with a name that no small string holds", "old", 0640);
  putFile("/tmp/from", "new");
}

const std::string kFile = "/tmp/d/a file with a name that no small string holds";

/// The file is old or new, and nothing is beside it.
void expectWhole(Outcome outcome) {
  const std::string content = contentOf(kFile);
  EXPECT_TRUE(content == "old" || content == "new") << content;
  if (outcome == Outcome::kDone) {
    EXPECT_EQ(content, "new");
  }
  EXPECT_EQ(namesIn("/tmp/d").size(), 1U);
}

TEST_F(FilesWithoutMemory, AreReplacedOrStay) {
  failEach(
      prepareFiles, [] { return base::replaceFile(kFile, std::string_view("new")).ok(); }, expectWhole);
}

TEST_F(FilesWithoutMemory, AreCopiedOrStay) {
  failEach(
      prepareFiles, [] { return base::copyFile("/tmp/from", kFile).ok(); }, expectWhole);
}

TEST_F(FilesWithoutMemory, AreMadeAnewOrStay) {
  const auto work = [] {
    auto file = base::FreshFile::create(kFile);
    if (!file) return false;
    const std::string_view text = "new";
    if (!file.value().write({reinterpret_cast<const unsigned char*>(text.data()), text.size()})) return false;
    return file.value().publish().ok();
  };
  failEach(prepareFiles, work, expectWhole);
}

TEST_F(FilesWithoutMemory, FailWithoutAnExceptionAtTheEdgeOfThePlatform) {
  const AString from(L"/tmp/from");
  const AString to(L"/tmp/d/a file with a name that no small string holds");
  const auto examine = [](Outcome outcome) {
    EXPECT_NE(outcome, Outcome::kThrew);
    expectWhole(outcome);
  };
  failEach(
      prepareFiles, [&] { return AFiler::copyFile(from, to); }, examine);
  const std::string text = "new";
  const ABuffer content({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
  failEach(
      prepareFiles, [&] { return AFile::write(to, content); }, examine);
  const auto bAbsent = [](Outcome outcome) { EXPECT_NE(outcome, Outcome::kThrew); };
  failEach(
      prepareFiles, [&] { return AFiler::deleteFile(to); }, bAbsent);
  failEach(
      prepareFiles,
      [&] {
        ABuffer read;
        return AFile::tryRead(to, read);
      },
      bAbsent);
  failEach(
      prepareFiles,
      [&] {
        bool bExists = false;
        return AFiler::getFileAccessibility(to, AFiler::kRead, bExists);
      },
      bAbsent);
}

TEST_F(FilesWithoutMemory, AreUnpackedAllOrNone) {
  ASSERT_EQ(std::system("/usr/bin/python3 -B " KELT_TEST_DATA "/archives/make_archives.py /archives"), 0);
  const auto prepare = [] {
    resetDevice();
    putFile("/tmp/d/harmless.txt", "old");
    putDirectory("/tmp/d/keys");
  };
  const auto examine = [](Outcome outcome) {
    EXPECT_NE(outcome, Outcome::kThrew);
    const bool bDone = outcome == Outcome::kDone;
    EXPECT_EQ(contentOf("/tmp/d/harmless.txt"), bDone ? "harmless" : "old");
    EXPECT_EQ(namesIn("/tmp/d"), (Names{"harmless.txt", "keys"}));
    EXPECT_EQ(namesIn("/tmp/d/keys"), bDone ? (Names{"deep", "k.bin"}) : Names{});
  };
  failEach(
      prepare, [] { return ::NsUnzip("/archives/good/tree.zip", "/tmp/d") == 0; }, examine);
}

TEST_F(FilesWithoutMemory, AreSweptOrStay) {
  const std::string left = "/tmp/d/.a name that is long enough.kelt-abcdefgh2345";
  const auto prepare = [&] {
    resetDevice();
    putFile(left, "left");
  };
  failEach(
      prepare, [] { return base::sweepDirectory("/tmp/d").size() == 1; },
      [&](Outcome outcome) { EXPECT_TRUE(outcome == Outcome::kThrew || !exists(left)); });
}

TEST_F(FilesWithoutMemory, AreNotTakenForAbsentWhereOnlyOneAllocationFails) {
  using quorvane_com::QV::crypto::KeyConf;
  using quorvane_com::QV::crypto::Mode;
  const auto prepare = [] {
    prepareFiles();
    putFile("/tmp/marker", "1");
    putDirectory("/opt/Quorvane/orv/scratch/keystore", 0700);
    putFile("/opt/Quorvane/orv/scratch/keystore/keyconf.ini", "mode=0\nkeysize=1\n", 0600);
    putFile("/opt/Quorvane/orv/scratch/registry.ini",
            "[SOFTWARE\\Tellwick\\Zentor\\Agent]\nServerPubKeyBuffSize=dword:00000001\nServerPublicKey=hex:01\n"
            "ReqSecKeyBuffSize=dword:00000001\nReqSecretKey=hex:02\n");
  };
  const auto expectNoWrongAnswer = [](Outcome outcome) { EXPECT_TRUE(g_bLasting || outcome != Outcome::kFailed); };
  failEach(
      prepare, [] { return modes::bFileExists(L"/tmp/d/a file with a name that no small string holds"); },
      expectNoWrongAnswer);
  failEach(
      prepare, [] { return keys::bMarkerSaysFips("/tmp/marker"); }, expectNoWrongAnswer);
  failEach(
      prepare,
      [] {
        Mode mode = Mode::kNonFips;
        return KeyConf().getCryptoMode(mode) && mode == Mode::kFips;
      },
      expectNoWrongAnswer);
  failEach(
      prepare,
      [] {
        AnObjectBuffer<unsigned char> pub;
        AnObjectBuffer<unsigned char> sec;
        return keys::getServerKeys(pub, sec);
      },
      expectNoWrongAnswer);
}

TEST_F(FilesWithoutMemory, AreNotTakenForMalformed) {
  failEach([] { putFile("/tmp/d/document", "<r><a></a></r>"); },
           [] {
             AnXml document;
             return document.useExistingFile(L"/tmp/d/document", L"r", nullptr, nullptr);
           },
           [](Outcome outcome) { EXPECT_NE(outcome, Outcome::kFailed); });
}

TEST_F(FilesWithoutMemory, HoldCustomPropertiesOrAreNotThere) {
  const std::string file = "/opt/Quorvane/orv/scratch/CustomProps.xml";
  app::CommandLineData data;
  data.SetCustomProp1(L"a value that no small string holds");
  data.SetCustomProp2(L"another value that no small string holds");
  const auto prepare = [&] {
    resetDevice();
    putFile(file, "<CustomProperties><CustomProps1 value=\"old\"/></CustomProperties>");
  };
  const auto work = [&] {
    replaceCustomProperties(data);
    return true;
  };
  failEach(prepare, work, [&](Outcome /*outcome*/) {
    if (exists(file)) {
      const std::string content = contentOf(file);
      EXPECT_NE(content.find("value=\""), std::string::npos) << content;
      const bool bOld = content.find("\"old\"") != std::string::npos;
      EXPECT_TRUE(g_bLasting || !bOld || content.find("small string") == std::string::npos) << content;
    }
  });
}

}  // namespace
}  // namespace kelt::tests
