// Takes the place of libstdc++'s word on an exception that nobody caught, which needs all that makes a readable name of
// a symbol: a twelfth of the program, in each of its parts. Such an exception ends the process all the same.

#include <cstdlib>

namespace __gnu_cxx {

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming): its name
void __verbose_terminate_handler();

void __verbose_terminate_handler() {
  std::abort();
}
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp,readability-identifier-naming)

}  // namespace __gnu_cxx
