#include "client/Commands.h"

#include <iostream>
#include <unistd.h>

int main(int argc, char** argv)
{
    std::ios::sync_with_stdio(false);
    const EXIT_CODE enCode = RunClient({argv + 1, argv + argc}, std::cout, std::cerr, isatty(STDOUT_FILENO) == 1);
    std::cout.flush();
    return enCode;
}
