#include <cerrno>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>

#include "xml/document.h"

namespace kelt::platform {
namespace {

/// Lets the allocations of pugixml fail from the `n`-th on while it lives; 1 is the first.
class FailingPugixml {
 public:
  explicit FailingPugixml(int n) {
    s_left = n;
    pugi::set_memory_management_functions(allocate, std::free);
  }
  FailingPugixml(const FailingPugixml&) = delete;
  FailingPugixml& operator=(const FailingPugixml&) = delete;
  ~FailingPugixml() { pugi::set_memory_management_functions(std::malloc, std::free); }

 private:
  static void* allocate(std::size_t size) { return s_left > 0 && --s_left > 0 ? std::malloc(size) : nullptr; }
  static inline int s_left = 0;
};

base::Result<std::unique_ptr<XmlDocument>> load(const std::string& text) {
  return XmlDocument::load({reinterpret_cast<const unsigned char*>(text.data()), text.size()}, "r");
}

/// More than pugixml takes at once.
const std::string kLong(100000, 'x');

TEST(XmlMemory, IsNoFaultOfADocumentThatItDoesNotHold) {
  const std::string text = "<r><a></a></r>";
  int n = 1;
  for (bool bLoaded = false; !bLoaded; ++n) {
    const FailingPugixml failing(n);
    try {
      const auto document = load(text);
      bLoaded = document.ok();
      if (bLoaded) continue;
      EXPECT_EQ(document.error().kind, base::ErrorKind::kSystem);
      EXPECT_EQ(document.error().sysErrno, ENOMEM);
    } catch (const std::bad_alloc&) {
      continue;
    }
  }
  EXPECT_GT(n, 2);
}

TEST(XmlMemory, IsToldWhereAChangeTakesMoreThanThereIs) {
  const auto document = load("<r><a/></r>");
  ASSERT_TRUE(document.ok());
  XmlDocument& held = *document.value();
  const FailingPugixml failing(1);
  EXPECT_THROW(held.addChild(held.root(), kLong, {}), std::bad_alloc);
  EXPECT_THROW(held.addChild(held.root(), "b", kLong), std::bad_alloc);
  EXPECT_THROW(held.setAttribute(held.root(), kLong, "v"), std::bad_alloc);
  EXPECT_THROW(held.setAttribute(held.root(), "n", kLong), std::bad_alloc);
  EXPECT_THROW(held.setText(held.root(), kLong), std::bad_alloc);
  EXPECT_THROW(static_cast<void>(XmlDocument::create(kLong)), std::bad_alloc);
}

}  // namespace
}  // namespace kelt::platform
