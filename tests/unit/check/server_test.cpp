#include <cstdlib>

#include "collected.h"

using kelt::tests::Collected;
using kelt::tests::Trouble;

namespace {

class Server : public kelt::tests::PrivateDevice {
 protected:
  static Collected look(const std::string& server) {
    Collected findings;
    kelt::check::checkServer(server, findings);
    return findings;
  }
};

TEST_F(Server, IsReadAsTheToolReadsIt) {
  EXPECT_EQ(look("127.0.0.1:1").fact("server.address"), "The address is read as host 127.0.0.1, port 1.");
  EXPECT_EQ(look("127.0.0.1").fact("server.address"), "The address is read as host 127.0.0.1, port 8443.");
  EXPECT_EQ(look("[::1]:2").fact("server.address"), "The address is read as host [::1], port 2.");
  EXPECT_EQ(look("[::1]").fact("server.address"), "The address is read as host [::1], port 8443.");
}

TEST_F(Server, WithoutAPortAfterTheColonIsAskedAtAnother) {
  EXPECT_EQ(look("127.0.0.1:").states("server.address"), "warning");
}

TEST_F(Server, WithAPortThatIsNoNumberIsAProblem) {
  EXPECT_EQ(look("::1").states("server.address"), "ok") << "cut at its last colon, as the tool does";
  EXPECT_EQ(look("host:port").states("server.address"), "problem");
}

TEST_F(Server, ThatCannotBeReachedIsAProblem) {
  const Collected findings = look("127.0.0.1:1");
  EXPECT_EQ(findings.states("server.connection"), "problem");
  EXPECT_EQ(findings.states("server.name"), "ok");
  EXPECT_EQ(findings.begun.back(), "server.connection|the connection to 127.0.0.1");
}

TEST_F(Server, WithAUserInItsAddressIsNotAsked) {
  const Collected findings = look("admin:secret@127.0.0.1:1");
  EXPECT_EQ(findings.trouble(), Trouble{"server.address problem"});
  EXPECT_EQ(findings.fact("server.address").find("secret"), std::string::npos);
}

TEST_F(Server, ThatLooksLikeAnOptionIsTakenForOne) {
  EXPECT_EQ(look("-x").trouble(), Trouble{"server.address problem"});
}

}  // namespace
