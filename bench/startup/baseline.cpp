// What run-startup compares with: the least that a C++ program with a stream does.
#include <iostream>

int main() {
  std::cout << "4.6.0.2545\n";
}
