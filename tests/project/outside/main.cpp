// Links the library as a program of somebody else does.
#include <cstdio>

int main() {
    std::puts("The program runs.");
    return 0;
}
