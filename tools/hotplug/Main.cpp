#include "hotplug/Hotplug.h"
#include "hotplug/UdevSource.h"

#include <iostream>

int main(int argc, char** argv)
{
    return RunHotplug({argv + 1, argv + argc}, CUdevSource::Open, std::cout, std::cerr);
}
