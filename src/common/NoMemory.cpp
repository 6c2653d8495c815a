#include "common/NoMemory.h"

#include "common/Debug.h"

void LogNoMemory(const char* pszWhat)
{
    CDebug::Instance()->PrintError("No memory for %s, dropped", pszWhat);
}
