// Takes the place of libstdc++'s word on an exception that nobody caught, which needs all that makes a readable name of
// a symbol: a twelfth of the program, in each of its parts. Such an exception ends the process all the same.

#include <cstdlib>

namespace __gnu_cxx {

void __verbose_terminate_handler();  // NOLINT(bugprone-reserved-identifier): the library's name

void __verbose_terminate_handler() {  // NOLINT(bugprone-reserved-identifier)
  std::abort();
}

}  // namespace __gnu_cxx
