#include "capture/Capture.h"

#include <iostream>
#include <unistd.h>

int main(int argc, char** argv)
{
    return RunCapture({argv + 1, argv + argc}, std::cout, std::cerr, isatty(STDERR_FILENO) == 1);
}
