#pragma once

#include <cmath>
#include <cstdlib>
#include <string>

/// How fast a capture is played: "2.5" is two and a half times as fast as it was, "max" as fast as possible, which
/// gives 0. False for anything else.
inline bool ParseSpeed(const std::string& strText, double& dSpeed)
{
    dSpeed = 0;
    if (strText == "max")
        return true;
    char* pEnd = nullptr;
    dSpeed = std::strtod(strText.c_str(), &pEnd);
    return pEnd == strText.c_str() + strText.size() && std::isfinite(dSpeed) && dSpeed > 0;
}
