#include "common/Config.h"
#include "support/NetNs.h"
#include "support/Queues.h"
#include "support/Sockets.h"
#include "ue/UEManager.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/socket.h>

// Records of the device monitor program, one connection each, to the monitor of a UE manager. The input is steps of a
// byte for the kind: a record field by field, one as it stands, or a part of one. No device is ever opened: names lead
// into an empty folder, and the links of the network UE end in a network of their own.

namespace
{
using Record = std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE>;

enum STEP : unsigned char
{
    STEP_FIELDS, // u8 port, u8 type, u8 arrival, u8 and so many bytes of name, the same of group
    STEP_RAW,    // the bytes of a record, zeros where the input ends
    STEP_CUT,    // u16 bytes of it, the bytes
    STEP_COUNT,
};

constexpr size_t RECORDS_MAX = 32;  // each attach of a network UE keeps its links open
constexpr uint32_t FIELD_PORTS = 8; // few, so that ports come again and go

void Require(bool bHolds)
{
    if (!bHolds)
        std::abort();
}

void Configure(std::string strLine)
{
    CConfig::Instance()->ParseLine(strLine);
}

/// An empty folder for the life of the process.
class CEmptyFolder
{
public:
    CEmptyFolder() : m_strPath("/tmp/vex-fuzz-device-XXXXXX") { Require(mkdtemp(m_strPath.data()) != nullptr); }
    ~CEmptyFolder() { std::filesystem::remove(m_strPath); }
    CEmptyFolder(const CEmptyFolder&) = delete;
    CEmptyFolder& operator=(const CEmptyFolder&) = delete;

    /// A name in it that no file has.
    std::string Inside(std::string strName) const
    {
        std::ranges::replace(strName, '/', '_');
        return m_strPath + "/port-" + strName;
    }

private:
    std::string m_strPath;
};

Record FieldsOf(CByteReader& input)
{
    uint8_t ucPort = 0;
    uint8_t ucType = 0;
    uint8_t ucArrive = 0;
    const auto Text = [&] {
        uint8_t ucLen = 0;
        input.Field(ucLen);
        return FixedText(input.Take(ucLen));
    };
    input.Field(ucPort);
    input.Field(ucType);
    input.Field(ucArrive);
    DEVICE_MONITOR_INFO_STRU stInfo{ucPort % FIELD_PORTS, ucType, ucArrive, Text(), Text()};
    return EncodeDeviceRecord(stInfo);
}

Record RecordOf(CByteReader& input, bool bFields)
{
    if (bFields)
        return FieldsOf(input);
    Record record{};
    CopyPadded(record, input.Take(record.size()));
    return record;
}

/// The record with its name led into the folder. What is encoded survives being decoded.
Record Tamed(const Record& record)
{
    static const CEmptyFolder s_folder;
    DEVICE_MONITOR_INFO_STRU stInfo = DecodeDeviceRecord(record);
    const Record encoded = EncodeDeviceRecord(stInfo);
    Require(EncodeDeviceRecord(DecodeDeviceRecord(encoded)) == encoded);
    stInfo.szSerialName = s_folder.Inside(stInfo.szSerialName);
    return EncodeDeviceRecord(stInfo);
}

/// One connection, closed by a reset: there are thousands of them a second, and none may keep its port afterwards.
void Connect(ByteView bytes)
{
    static constexpr linger RESET{1, 0};
    const CUniqueFd fd = ConnectTcp(DEVICE_MONITOR_PORT);
    Require(fd.IsOpen() && setsockopt(fd.Get(), SOL_SOCKET, SO_LINGER, &RESET, sizeof(RESET)) == 0);
    Require(SendAll(fd, bytes));
    if (bytes.size() < DEVICE_MONITOR_INFO_STRU::SIZE)
        (void)shutdown(fd.Get(), SHUT_WR);
    Require(SawClose(fd));
}

/// The bytes, and then a record that means nothing: it is taken only when those have been handled.
void Deliver(ByteView bytes)
{
    static constexpr uint8_t NEITHER_CAME_NOR_WENT = 2;
    static const Record s_nothing = EncodeDeviceRecord({.barrive = NEITHER_CAME_NOR_WENT});
    Connect(bytes);
    Connect(s_nothing);
}

/// The monitor, one for all inputs, as its port is fixed. Its thread waits for a record when this is called.
void TellMonitor(CUEManager& manager)
{
    static CDeviceMonitor s_monitor;
    s_monitor.SetUEManager(&manager);
    static const bool s_bStarted = [] {
        sigset_t alarm; // libFuzzer's, which would break off the thread's read
        sigemptyset(&alarm);
        sigaddset(&alarm, SIGALRM);
        pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
        const bool bStarted = s_monitor.Start();
        pthread_sigmask(SIG_UNBLOCK, &alarm, nullptr);
        return bStarted;
    }();
    Require(s_bStarted);
}

void DeliverNext(CByteReader& input)
{
    uint8_t ucStep = 0;
    uint16_t usCut = DEVICE_MONITOR_INFO_STRU::SIZE;
    input.Field(ucStep);
    if (ucStep % STEP_COUNT == STEP_CUT)
        input.Field(usCut);
    const Record record = Tamed(RecordOf(input, ucStep % STEP_COUNT == STEP_FIELDS));
    Deliver(Slice(ByteView(record), 0, usCut % (record.size() + 1)));
}

/// All slots as they were at first. A manager of its own for each input would cost most of the time.
void DetachAll(CUEManager& manager)
{
    for (UE_INDEX ue = 0; ue < MAXUENUM; ++ue)
        for (size_t i = 0; i < SERIALNUM; ++i)
            manager.OnSerialDetach(ue, static_cast<enSerialType>(i));
    (void)DrainAgentQueue();
}

/// True when a network UE was attached.
bool CheckPosted(CUEManager& manager)
{
    bool bNetworkUe = false;
    for (const QueuedMsg& stMsg : DrainAgentQueue()) {
        Require(stMsg.ulUeIdx < MAXUENUM && static_cast<size_t>(stMsg.enChannel) < CHANNELNUM);
        Require(stMsg.ulMsgType == AGENT_MSG_CONNECT || stMsg.ulMsgType == AGENT_MSG_DISCONNECT);
        Require(stMsg.data.size() == (stMsg.ulMsgType == AGENT_MSG_CONNECT ? UE_ATTACH_INFO_STRU::SIZE : 0));
        bNetworkUe |= stMsg.ulMsgType == AGENT_MSG_CONNECT && stMsg.ulUeIdx == TCP_UE_INDEX;
    }
    std::vector<CSerial*> open;
    manager.GetOpenedSerial(open);
    Require(open.empty());
    return bNetworkUe;
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int* plArgc, char*** pppszArgv);
extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    Require(IsolateNetwork()); // needs root or user namespaces
    Configure("debuglevel=0"); // nobody reads the log's queue here
    Configure("ChannelNameEnable=0");
    Configure("MonitorPort=3010:1;3011:0;3012:1;3013:0");
    CMsgBuf::Instance()->Start();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* pucData, size_t szSize)
{
    static std::unique_ptr<CUEManager> s_pManager;
    CByteReader input(ByteView(pucData, szSize));
    if (!s_pManager)
        s_pManager = std::make_unique<CUEManager>();
    TellMonitor(*s_pManager);
    bool bNetworkUe = false;
    for (size_t i = 0; i < RECORDS_MAX && input.Left() > 0; ++i) {
        DeliverNext(input);
        bNetworkUe |= CheckPosted(*s_pManager);
    }
    if (bNetworkUe)
        s_pManager.reset(); // it keeps the links that another attach replaced
    else
        DetachAll(*s_pManager);
    return 0;
}
