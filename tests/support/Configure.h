#pragma once

#include "common/Config.h"

#include <string>

/// A configuration of exactly these lines. Call before objects that keep a part of it are made.
inline void ConfigureFresh(std::string strText)
{
    CConfig::Destory();
    CConfig::Instance()->ParseConfig(strText);
}
