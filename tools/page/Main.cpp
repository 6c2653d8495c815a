#include "page/Page.h"

#include <iostream>

int main(int argc, char** argv)
{
    return RunPage({argv + 1, argv + argc}, std::cout, std::cerr);
}
