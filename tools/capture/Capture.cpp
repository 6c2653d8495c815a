#include "capture/Capture.h"

#include "capture/CaptureLoop.h"
#include "capture/Extcap.h"
#include "capture/SegmentKeeper.h"
#include "client/Stop.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace
{
constexpr size_t CHUNKS = 256; // of 256 KiB: 3 s of 20 MB/s that a disk may stand still

std::optional<std::chrono::steady_clock::time_point> EndOf(const CAPTURE_OPTIONS& stOptions)
{
    if (!stOptions.seconds)
        return std::nullopt;
    const std::chrono::duration<double> time(*stOptions.seconds);
    return std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(time);
}

/// Names of files that are rotated; none for a single one.
std::optional<CSegmentNames> NamesOf(const CAPTURE_OPTIONS& stOptions)
{
    if (!stOptions.strSpool.empty())
        return CSegmentNames(stOptions.strSpool + "/vex");
    if (stOptions.stRotation.IsOn())
        return CSegmentNames(stOptions.strFile);
    return std::nullopt;
}

/// Opens what there is to open before the first record; false, with errno and the name, when it can't be written.
bool OpenOutput(const CAPTURE_OPTIONS& stOptions, const std::optional<CSegmentNames>& names, CFileWriter& writer,
                std::string& strName)
{
    if (names) {
        strName = names->Folder();
        return access(strName.c_str(), W_OK | X_OK) == 0;
    }
    const bool bFifo = !stOptions.strFifo.empty();
    strName = bFifo ? stOptions.strFifo : stOptions.bLive ? "standard output" : stOptions.strFile;
    auto pOut = bFifo ? OpenFifo(strName) : stOptions.bLive ? OpenStandardOutput() : OpenCaptureFile(strName);
    if (!pOut)
        return false;
    writer.Use(std::move(pOut), strName);
    return true;
}

/// The folder of a spool, made if need be and held by its lock as long as the descriptor is open. None, with a line,
/// when that can't be.
CUniqueFd LockSpool(const std::string& strFolder, CProgress& progress)
{
    if (mkdir(strFolder.c_str(), 0777) != 0 && errno != EEXIST) {
        progress.Problem(strFolder + ": " + std::strerror(errno));
        return {};
    }
    CUniqueFd fd(open((strFolder + "/.vex-capture.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (fd.IsOpen() && flock(fd.Get(), LOCK_EX | LOCK_NB) == 0)
        return fd;
    progress.Problem(strFolder + ": " + (errno == EWOULDBLOCK ? "another capture writes there" : std::strerror(errno)));
    return {};
}

CProgress::STYLE StyleOf(const CAPTURE_OPTIONS& stOptions, bool bTerminal)
{
    if (stOptions.enExtcap == EXTCAP::CAPTURE)
        return CProgress::STYLE::PROBLEMS;
    return bTerminal ? CProgress::STYLE::TERMINAL : CProgress::STYLE::LINES;
}

CAPTURE_EXIT End(CAPTURE_TOTALS stTotals, uint64_t ullUnwritten, CProgress& progress)
{
    stTotals.ullRecords -= std::min(ullUnwritten, stTotals.ullRecords);
    stTotals.ullLost += ullUnwritten;
    progress.End(stTotals);
    return ullUnwritten == 0 ? CAPTURE_DONE : CAPTURE_NO_FILE;
}

CAPTURE_EXIT Capture(const CAPTURE_OPTIONS& stOptions, CProgress& progress)
{
    const auto names = NamesOf(stOptions);
    CSegmentKeeper keeper({names, stOptions.stKeep, stOptions.bCompress}, progress);
    CUniqueFd lock;
    if (!stOptions.strSpool.empty()) {
        lock = LockSpool(stOptions.strSpool, progress);
        if (!lock.IsOpen())
            return CAPTURE_NO_FILE;
        keeper.TakeLeftovers();
    }
    CChunkQueue queue(CHUNKS);
    CFileWriter writer(queue, progress, keeper);
    std::string strName;
    if (!OpenOutput(stOptions, names, writer, strName)) {
        progress.Problem(strName + ": " + std::strerror(errno));
        return CAPTURE_NO_FILE;
    }
    CRecordSink sink(queue, names, stOptions.stRotation);
    CCaptureLoop loop({stOptions.strTap, stOptions.strBench, stOptions.stFilter, EndOf(stOptions), stOptions.count},
                      sink, progress, [&] { return StopRequested() || writer.IsLeft(); });
    writer.Start();
    loop.Run();
    return End(loop.Totals(), writer.Finish(), progress);
}
} // namespace

CAPTURE_EXIT RunCapture(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal)
{
    CAPTURE_OPTIONS stOptions;
    if (const auto end = ParseCaptureOptions(std::move(args), stOptions, out, errors))
        return *end;
    if (stOptions.enExtcap != EXTCAP::NO && !AnswerExtcap(stOptions, out, errors))
        return CAPTURE_USAGE;
    if (stOptions.enExtcap != EXTCAP::NO && stOptions.enExtcap != EXTCAP::CAPTURE)
        return CAPTURE_DONE;
    CatchStopSignals();
    (void)signal(SIGPIPE, SIG_IGN); // the reader of a pipe may go: writing says so
    (void)signal(SIGXFSZ, SIG_IGN); // a limit on the size of files is like a full disk
    CProgress progress(errors, StyleOf(stOptions, bTerminal));
    return Capture(stOptions, progress);
}
