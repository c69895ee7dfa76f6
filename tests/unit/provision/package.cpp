#include "package.h"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <zip.h>

namespace kelt::tests {

std::string zipOf(const std::vector<std::pair<std::string, std::string>>& files) {
  zip_error_t error;
  zip_error_init(&error);
  zip_source_t* memory = zip_source_buffer_create(nullptr, 0, 0, &error);
  zip_source_keep(memory);
  zip_t* archive = zip_open_from_source(memory, ZIP_CREATE | ZIP_TRUNCATE, &error);
  for (const auto& [name, content] : files) {
    zip_source_t* source = zip_source_buffer(archive, content.data(), content.size(), 0);
    EXPECT_GE(zip_file_add(archive, name.c_str(), source, ZIP_FL_ENC_UTF_8), 0);
  }
  EXPECT_EQ(zip_close(archive), 0);
  EXPECT_EQ(zip_source_open(memory), 0);
  EXPECT_EQ(zip_source_seek(memory, 0, SEEK_END), 0);
  std::string bytes(static_cast<std::size_t>(zip_source_tell(memory)), '\0');
  EXPECT_EQ(zip_source_seek(memory, 0, SEEK_SET), 0);
  EXPECT_EQ(zip_source_read(memory, bytes.data(), bytes.size()), static_cast<zip_int64_t>(bytes.size()));
  zip_source_close(memory);
  zip_source_free(memory);
  return bytes;
}

std::string base64Of(const std::string& bytes) {
  std::string text(bytes.size() / 3 * 4 + 5, '\0');
  const int length =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string replyWith(const std::string& archive) {
  return "OK:\r\n" + base64Of(archive);
}

std::string siteList(const std::string& fipsMode) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><ns:SiteLists xmlns:ns="n"><SiteList FipsMode=")" + fipsMode +
         R"("/></ns:SiteLists>)";
}

}  // namespace kelt::tests
