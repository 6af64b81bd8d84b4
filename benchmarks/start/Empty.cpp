// What every C++ program starts with.

#include <iostream>

int main()
{
    return std::cout ? 0 : 1;
}
