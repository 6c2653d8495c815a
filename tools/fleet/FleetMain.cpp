#include "fleet/Fleet.h"

#include <iostream>
#include <unistd.h>

int main(int argc, char** argv)
{
    std::ios::sync_with_stdio(false);
    const EXIT_CODE enCode = RunFleet({argv + 1, argv + argc}, std::cout, std::cerr, isatty(STDERR_FILENO) == 1);
    nats_Close();
    return enCode;
}
