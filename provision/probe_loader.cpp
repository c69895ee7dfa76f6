#include "base/module_loader.h"
#include "provision/probe.h"
#include "provision/probe_entry.h"

namespace kelt::provision {
namespace {

Status probe(const char* server, const ProbeFacts& take) {
  const auto entry = base::loadModuleSymbol("provision", kProbeEntry);
  if (!entry) return entry.error();
  // The entry is one of C, and knows neither functions with a state nor exceptions.
  const ProbeSink sink = [](void* context, const char* name, const char* value) {
    (*static_cast<const ProbeFacts*>(context))(name, value);
  };
  reinterpret_cast<ProbeEntry>(entry.value())(server, sink, const_cast<ProbeFacts*>(&take));
  return {};
}

}  // namespace

Status probeServer(const std::string& server, const ProbeFacts& take) {
  return probe(server.c_str(), take);
}

Status probeLibraries(const ProbeFacts& take) {
  return probe(nullptr, take);
}

}  // namespace kelt::provision
