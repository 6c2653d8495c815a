#include "capture/Capture.h"

#include "capture/CaptureLoop.h"
#include "capture/FileWriter.h"
#include "client/Stop.h"

#include <cerrno>
#include <csignal>
#include <cstring>

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

CAPTURE_EXIT Capture(const CAPTURE_OPTIONS& stOptions, CProgress& progress)
{
    const auto names = NamesOf(stOptions);
    CChunkQueue queue(CHUNKS);
    CFileWriter writer(queue, progress, [](const std::string&) {});
    std::string strName;
    if (!OpenOutput(stOptions, names, writer, strName)) {
        progress.Line(strName + ": " + std::strerror(errno));
        return CAPTURE_NO_FILE;
    }
    CRecordSink sink(queue, names, stOptions.stRotation);
    CCaptureLoop loop({stOptions.strTap, stOptions.strBench, stOptions.stFilter, EndOf(stOptions), stOptions.count},
                      sink, progress, [&] { return StopRequested() || writer.IsLeft(); });
    writer.Start();
    loop.Run();
    const uint64_t ullUnwritten = writer.Finish();
    CAPTURE_TOTALS stTotals = loop.Totals();
    stTotals.ullRecords -= std::min(ullUnwritten, stTotals.ullRecords);
    stTotals.ullLost += ullUnwritten;
    progress.End(stTotals);
    return ullUnwritten == 0 ? CAPTURE_DONE : CAPTURE_NO_FILE;
}
} // namespace

CAPTURE_EXIT RunCapture(std::vector<std::string> args, std::ostream& out, std::ostream& errors, bool bTerminal)
{
    CAPTURE_OPTIONS stOptions;
    if (const auto end = ParseCaptureOptions(std::move(args), stOptions, out, errors))
        return *end;
    CatchStopSignals();
    (void)signal(SIGPIPE, SIG_IGN); // the reader of a pipe may go: writing says so
    (void)signal(SIGXFSZ, SIG_IGN); // a limit on the size of files is like a full disk
    CProgress progress(errors, bTerminal);
    return Capture(stOptions, progress);
}
