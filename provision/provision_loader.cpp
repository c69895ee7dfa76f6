#include "provision/provision.h"

namespace kelt::provision {

int Provision::iGetProvisionFiles(const std::wstring& /*dir*/, const std::string& /*server*/,
                                  const std::string& /*user*/, const std::string& /*password*/) {
  return 1;  // there is no transfer yet
}

}  // namespace kelt::provision
