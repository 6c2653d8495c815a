#pragma once

#include <cstdio>
#include <memory>

struct FILE_CLOSER
{
    void operator()(FILE* pFile) const { (void)fclose(pFile); } // nothing is left to do about a failed close
};

/// A stream that closes itself; null when it couldn't be opened.
using OwnedFile = std::unique_ptr<FILE, FILE_CLOSER>;
