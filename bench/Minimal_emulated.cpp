// The baseline of the host benchmark: a C++ program that prints one number.
#include <iostream>

int main()
{
    std::cout << 10 << std::endl;
    return 0;
}
