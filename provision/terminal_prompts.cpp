#include "provision/terminal_prompts.h"

#include <unistd.h>

#include "base/console.h"
#include "provision/line_reader.h"
#include "provision/messages.h"
#include "provision/quiet_terminal.h"

namespace kelt::provision {
namespace {

void askIfMissing(std::string_view prompt, std::string& value, LineReader& reader) {
  if (!value.empty()) return;
  base::print(prompt);
  value = reader.next();
  base::print("\n");  // the user's own line end was not echoed
}

}  // namespace

void askForMissing(ServerAccess& access) {
  // Before the terminal is touched: a job in the background that asks nothing must not stop for the foreground.
  if (!access.server.empty() && !access.user.empty() && !access.password.empty()) return;
  // One for all three: between the prompts nothing that is typed ahead shows either.
  QuietTerminal terminal(STDIN_FILENO);
  LineReader reader([&terminal](std::span<char> buffer) { return terminal.read(buffer); });
  askIfMissing(messages::kAskServer, access.server, reader);
  askIfMissing(messages::kAskUser, access.user, reader);
  askIfMissing(messages::kAskPassword, access.password, reader);
}

}  // namespace kelt::provision
