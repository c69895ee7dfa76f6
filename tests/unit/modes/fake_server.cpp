#include "fake_server.h"

#include "base/utf.h"
#include "provision/provision.h"

namespace kelt::tests {

FakeServer& fakeServer() {
  static FakeServer server;
  return server;
}

}  // namespace kelt::tests

int kelt::provision::Provision::iGetProvisionFiles(const std::wstring& dir, const std::string& server,
                                                   const std::string& user, const std::string& password) {
  tests::FakeServer& fake = tests::fakeServer();
  fake.asked.push_back(base::toUtf8(dir) + "|" + server + "|" + user + "|" + password);
  if (fake.deliver) fake.deliver();
  return fake.status;
}
