// The least program that loads the library.

#include "text/CXTString.h"

#include <iostream>

int main()
{
    return std::cout && CXTString<char>("text").GetLength() == 4 ? 0 : 1;
}
