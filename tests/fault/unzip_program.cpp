// kelt_unzip_program ARCHIVE DIRECTORY: unpacks. Status 0 when that is done, 1 when it failed.

#include "platform/unzip.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  return NsUnzip(argv[1], argv[2]) == 0 ? 0 : 1;
}
