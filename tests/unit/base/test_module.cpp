// What the tests of the module loader load.

extern "C" __attribute__((visibility("default"))) int keltTestModuleAnswer() {
  return 42;
}
