#include "forward/Forward.h"

#include <iostream>

int main(int argc, char** argv)
{
    return RunForward({argv + 1, argv + argc}, std::cout, std::cerr);
}
