#include "core/InvalidParameter.h"
#include <TevTools.h>

// Uses the library as a program outside this tree does: through the installed headers and exported symbols alone.
int main()
{
    char copy[6];
    return XStrCopy(copy, sizeof copy, "parts") == 0 && copy[4] == 's' ? 0 : 1;
}
