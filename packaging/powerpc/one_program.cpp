// keltconfig and keltcheck as one program, which does what the name asks for that it is started by (KELT_SMALL).

#include <string_view>

// The functions main of the two, under these names here.
int keltcheckMain(int argc, char** argv);
int keltconfigMain(int argc, char** argv);

int main(int argc, char** argv) {
  const std::string_view path = argc > 0 ? argv[0] : "";
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name == "keltcheck" ? keltcheckMain(argc, argv) : keltconfigMain(argc, argv);
}
