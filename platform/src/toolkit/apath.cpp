#include <string_view>

#include "platform/afile.h"

namespace {

/// Joins the two by one slash, however many they bring: a path that is shown has one form.
std::wstring join(std::wstring_view directory, std::wstring_view name) {
  while (!directory.empty() && directory.back() == L'/')
    directory.remove_suffix(1);
  while (!name.empty() && name.front() == L'/')
    name.remove_prefix(1);
  std::wstring path(directory);
  path.append(L"/").append(name);
  return path;
}

}  // namespace

APath::APath(const AString& directory, const AString& name) : m_path(join(directory.str(), name.str())) {}
