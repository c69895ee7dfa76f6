#include "app/help.h"

#include "support/private_device.h"

namespace kelt::app {
namespace {

TEST(Help, IsThisTextByteForByte) {
  const tests::Output output = tests::outputOf(DisplayHelp);
  EXPECT_EQ(output.out,
            R"help(keltconfig    [-m -d path [ -z [-e zentorserver[:port] -U user -P password] ] [-nostart] ]
             [-u [-nostart]] [-CustomProps1] [-CustomProps2] [-CustomProps3] [-CustomProps4] )help"
            "\n\n"
            R"help(     -m        Switch from Unmanaged to Managed mode.
     -d        Directory path where SiteList.xml, sr(2048)pubkey.bin, req(2048)seckey.bin and agentfipsmode are present
                 Ex: -d /tmp or c:\temp

     -z        Provision to an Zentor server by fetching keys/sitelist from it.
                 (files will be unzipped to path specified by -d argument and then removed)
     -e        Optional ZENTOR server (IP or hostname w/optional port(8443)).  Used with -z argument.
     -U        Optional user name of Zentor admin specified by -e argument.  Used with -z argument.
     -P        Optional password of Zentor admin specified by -e argument.  Used with -z argument.

               Note: If -z is specified and if any of -e, -U, or -P are not, then
                     any missing argument will be prompted for using stdin/stdout.

     -nostart  QV will not be restarted after changing mode.
     -u        Switch from Managed to Unmanaged mode.
)help"
            "     -CustomProps1   Pass custom property value Ex:-CustomProps1 \"Prop 1\" \n"
            "     -CustomProps2   Pass custom property value Ex:-CustomProps2 \"Prop 2\" \n"
            "     -CustomProps3   Pass custom property value Ex:-CustomProps3 \"Prop 3\" \n"
            "     -CustomProps4   Pass custom property value Ex:-CustomProps4 \"Prop 4\" \n");
  EXPECT_EQ(output.err, "");
}

}  // namespace
}  // namespace kelt::app
