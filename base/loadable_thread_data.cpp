// Part of each loadable object (cmake/KeltFolder.cmake).

namespace {

/// What is thread-local in an object that is loaded late, the state of exceptions in the C++ library that is linked
/// into it for instance, takes memory at its first use, and where that is refused, the dynamic loader ends the process.
/// One variable of this model makes the loader find a place for all of it while it loads the object, and refuse the
/// object where it finds none. Volatile, as the optimizer takes away a variable that nobody reads.
[[gnu::tls_model("initial-exec")]] thread_local volatile char t_placed = 0;

[[gnu::constructor]] void useThreadData() {
  t_placed = 1;
}

}  // namespace
