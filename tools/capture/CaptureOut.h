#pragma once

#include "common/Bytes.h"
#include "common/UniqueFd.h"

#include <memory>
#include <string>

/// Where the blocks of a capture go. For one thread.
class ICaptureOut
{
public:
    ICaptureOut() = default;
    virtual ~ICaptureOut() = default;
    ICaptureOut(const ICaptureOut&) = delete;
    ICaptureOut& operator=(const ICaptureOut&) = delete;

    /// Takes whole blocks off the front, as many as it can. False, with errno, when some are left: what has been taken
    /// is there, and the rest may be tried again. EAGAIN: nobody read for a second. EPIPE: nobody will.
    virtual bool Append(ByteView& blocks) = 0;
    /// The file, to be synced; none when that makes no sense.
    virtual CUniqueFd Duplicate() const { return {}; }
};

/// A new file, or an old one made empty. At any time it ends with a whole block, however full the disk is. Null, with
/// errno, when it can't be made. A fifo or device is written as it is.
std::unique_ptr<ICaptureOut> OpenCaptureFile(const std::string& strPath);
/// Standard output, which stays open.
std::unique_ptr<ICaptureOut> OpenStandardOutput();
/// A fifo, once somebody reads it. Null, with errno.
std::unique_ptr<ICaptureOut> OpenFifo(const std::string& strPath);
