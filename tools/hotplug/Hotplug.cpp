#include "hotplug/Hotplug.h"

#include "hotplug/HotplugLoop.h"
#include "hotplug/PortList.h"
#include "hotplug/TextFile.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <sys/signalfd.h>

namespace
{
/// The rules. None when they are wrong: each fault has its line then. --list shows the ports of a machine without
/// rules, as that is what rules are written from.
std::optional<CRules> ReadRules(const HOTPLUG_OPTIONS& stOptions, CHotplugLog& log)
{
    std::string strError;
    const auto text = ReadTextFile(stOptions.strConfig, strError);
    const bool bMissing = !text && errno == ENOENT;
    if (!text)
        log.Line(stOptions.strConfig + ": " + strError);
    if (!text && !(bMissing && stOptions.bList))
        return std::nullopt;
    std::vector<std::string> faults;
    CRules rules = CRules::Parse(text.value_or(""), stOptions.strConfig, faults);
    for (const std::string& strFault : faults)
        log.Line(strFault);
    return faults.empty() ? std::optional(std::move(rules)) : std::nullopt;
}

CNumbers LoadNumbers(CStateFile& stateFile, CHotplugLog& log)
{
    std::string strError;
    CNumbers numbers = stateFile.Load(strError);
    if (!strError.empty())
        log.Line(strError);
    return numbers;
}

HOTPLUG_EXIT Forget(const HOTPLUG_OPTIONS& stOptions, CStateFile& stateFile, CHotplugLog& log)
{
    CNumbers numbers = LoadNumbers(stateFile, log);
    if (!numbers.Forget(stOptions.strForget)) {
        log.Line(stOptions.strForget + " has no numbers in " + stOptions.strState);
        return HOTPLUG_USAGE;
    }
    std::string strError;
    if (stateFile.Save(numbers, strError))
        return HOTPLUG_DONE;
    log.Line(strError);
    return HOTPLUG_SYSTEM;
}

HOTPLUG_EXIT List(const HOTPLUG_OPTIONS& stOptions, const CRules& rules, CNumbers numbers, IPortSource& source,
                  std::ostream& out)
{
    CModems modems;
    modems.Replace(source.List());
    const std::vector<PORT_ROW> rows = modems.Rows(rules, numbers);
    if (stOptions.bJson)
        PrintPortJson(out, rows);
    else
        PrintPortTable(out, rows);
    return HOTPLUG_DONE;
}

/// Readable once SIGTERM or SIGINT has come.
CUniqueFd StopSignals()
{
    sigset_t stSet{};
    (void)sigemptyset(&stSet); // these three fail for bad numbers only
    (void)sigaddset(&stSet, SIGTERM);
    (void)sigaddset(&stSet, SIGINT);
    (void)pthread_sigmask(SIG_BLOCK, &stSet, nullptr);
    return CUniqueFd(signalfd(-1, &stSet, SFD_CLOEXEC | SFD_NONBLOCK));
}

HOTPLUG_EXIT Serve(const HOTPLUG_OPTIONS& stOptions, const CRules& rules, CStateFile& stateFile, IPortSource& source,
                   CHotplugLog& log)
{
    const CUniqueFd stopFd = StopSignals();
    if (!stopFd.IsOpen()) {
        log.Line(std::string("signals: ") + std::strerror(errno));
        return HOTPLUG_SYSTEM;
    }
    CHotplugLoop loop(stOptions, rules, LoadNumbers(stateFile, log), stateFile, source, log);
    return loop.Run(stopFd.Get());
}
} // namespace

HOTPLUG_EXIT RunHotplug(const std::vector<std::string>& args, const OpenPortSource& openSource, std::ostream& out,
                        std::ostream& errors)
{
    HOTPLUG_OPTIONS stOptions;
    if (const auto status = ParseHotplugOptions(args, stOptions, out, errors))
        return *status;
    CHotplugLog log(errors);
    CStateFile stateFile(stOptions.strState);
    std::string strError;
    if (!stOptions.bList && !stOptions.bDryRun && !stateFile.Lock(strError)) {
        log.Line(strError);
        return HOTPLUG_SYSTEM;
    }
    if (!stOptions.strForget.empty())
        return Forget(stOptions, stateFile, log);
    const auto rules = ReadRules(stOptions, log);
    if (!rules)
        return HOTPLUG_CONFIG;
    const auto pSource = openSource(strError);
    if (!pSource) {
        log.Line(strError);
        return HOTPLUG_SYSTEM;
    }
    if (stOptions.bList)
        return List(stOptions, *rules, LoadNumbers(stateFile, log), *pSource, out);
    return Serve(stOptions, *rules, stateFile, *pSource, log);
}
