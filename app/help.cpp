#include "app/help.h"

#include "base/console.h"

namespace kelt::app {
namespace {

// In one piece, and so in one write, for no other output to come between its lines.
constexpr const char* kHelpText =
    "keltconfig    [-m -d path [ -z [-e zentorserver[:port] -U user -P password] ] [-nostart] ]\n"
    "             [-u [-nostart]] [-CustomProps1] [-CustomProps2] [-CustomProps3] [-CustomProps4] \n"
    "\n"
    "     -m        Switch from Unmanaged to Managed mode.\n"
    "     -d        Directory path where SiteList.xml, sr(2048)pubkey.bin, req(2048)seckey.bin and agentfipsmode are "
    "present\n"
    "                 Ex: -d /tmp or c:\\temp\n"
    "\n"
    "     -z        Provision to an Zentor server by fetching keys/sitelist from it.\n"
    "                 (files will be unzipped to path specified by -d argument and then removed)\n"
    "     -e        Optional ZENTOR server (IP or hostname w/optional port(8443)).  Used with -z argument.\n"
    "     -U        Optional user name of Zentor admin specified by -e argument.  Used with -z argument.\n"
    "     -P        Optional password of Zentor admin specified by -e argument.  Used with -z argument.\n"
    "\n"
    "               Note: If -z is specified and if any of -e, -U, or -P are not, then\n"
    "                     any missing argument will be prompted for using stdin/stdout.\n"
    "\n"
    "     -nostart  QV will not be restarted after changing mode.\n"
    "     -u        Switch from Managed to Unmanaged mode.\n"
    "     -CustomProps1   Pass custom property value Ex:-CustomProps1 \"Prop 1\" \n"
    "     -CustomProps2   Pass custom property value Ex:-CustomProps2 \"Prop 2\" \n"
    "     -CustomProps3   Pass custom property value Ex:-CustomProps3 \"Prop 3\" \n"
    "     -CustomProps4   Pass custom property value Ex:-CustomProps4 \"Prop 4\" \n";

}  // namespace

void DisplayHelp() {
  base::print(kHelpText);
}

}  // namespace kelt::app
