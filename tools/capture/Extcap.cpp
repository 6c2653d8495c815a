#include "capture/Extcap.h"

#include <ostream>

namespace
{
constexpr const char* INTERFACE = "vex";
constexpr const char* DISPLAY = "Vex agent";

void ListInterfaces(std::ostream& out)
{
    out << "extcap {version=1.0}{display=" << DISPLAY << "}\n"
        << "interface {value=" << INTERFACE << "}{display=" << DISPLAY << "}\n";
}

void ListLinkTypes(std::ostream& out)
{
    out << "dlt {number=" << LINK_EXPORTED_PDU << "}{name=WIRESHARK_UPPER_PDU}{display=" << DISPLAY << "}\n";
}

void ListOptions(std::ostream& out)
{
    out << "arg {number=0}{call=--tap}{display=Tap of the agent}{type=string}{default=" << CAPTURE_OPTIONS().strTap
        << "}{tooltip=TapSocket in the agent's configuration}\n"
        << "arg {number=1}{call=--ue}{display=UEs}{type=string}{tooltip=Only these UE slots, such as 0,3}\n"
        << "arg {number=2}{call=--channel}{display=Channels}{type=multicheck}{tooltip=Only these channels}\n";
    for (const std::string strName : CAPTURE_CHANNEL_NAMES)
        out << "value {arg=2}{value=" << strName << "}{display=" << strName << "}{default=false}{enabled=true}\n";
}
} // namespace

bool AnswerExtcap(const CAPTURE_OPTIONS& stOptions, std::ostream& out, std::ostream& errors)
{
    if (stOptions.enExtcap != EXTCAP::INTERFACES && stOptions.strExtcapInterface != INTERFACE) {
        errors << "vex-capture: --extcap-interface: there is only " << INTERFACE << std::endl;
        return false;
    }
    if (stOptions.enExtcap == EXTCAP::INTERFACES)
        ListInterfaces(out);
    if (stOptions.enExtcap == EXTCAP::DLTS)
        ListLinkTypes(out);
    if (stOptions.enExtcap == EXTCAP::CONFIG)
        ListOptions(out);
    out.flush();
    return true;
}
