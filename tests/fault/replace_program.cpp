// kelt_replace_program PATH LENGTH: replaces the file by LENGTH bytes "n". Status 0 when that is done, 1 when it
// failed.

#include <cstdlib>
#include <string>

#include "base/file_replace.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const std::string content(std::strtoul(argv[2], nullptr, 10), 'n');
  return kelt::base::replaceFile(argv[1], content).ok() ? 0 : 1;
}
