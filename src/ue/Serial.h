#pragma once

#include "common/Bytes.h"
#include "common/Config.h"
#include "common/Types.h"
#include "common/UniqueFd.h"
#include "common/xtl.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <termios.h>

class CUE;

/// Whole seconds that a write may go without headway, from the bytes that remain and the line's speed.
int WriteTimeoutS(size_t szRemaining, int iBaud);

/// A device that is no longer used, to be given back to the system, which may take its time. What the device still
/// holds is discarded: a modem that keeps its flow control off must not hold a close.
class CClosingDevice
{
public:
    /// Takes the descriptor; -1 is none.
    CClosingDevice(int nFd, const termios& stTermios);
    ~CClosingDevice();
    CClosingDevice(CClosingDevice&&) = default;
    CClosingDevice& operator=(CClosingDevice&&) = delete;

    /// False when there is nothing to close.
    explicit operator bool() const { return m_Fd.IsOpen(); }

private:
    CUniqueFd m_Fd;
    termios m_stTermios; // to restore
};

/// One serial port of a UE: opens and configures the device, hands what it reads to its channels, and writes what the
/// device takes. It never closes itself and tells nobody of a fault: it logs and returns false.
///
/// A port opens in three steps. BeginOpen gives a number to the opening; OpenSerial opens the device, which may take
/// its time; FinishOpen, a second later, makes it one that is used. EndUse stops all of that at any time: what comes
/// behind it with an older number does nothing.
///
/// The read thread and the write thread use a port side by side, each under a lock of its own that is never held
/// across a wait; EndUse and FinishOpen have both. State, handle, number and counters are atomics for readers without
/// a lock, who may see old values.
class CSerial : public ILine
{
public:
    CSerial();
    ~CSerial() override;
    CSerial(const CSerial&) = delete;
    CSerial& operator=(const CSerial&) = delete;

    void SetName(const std::string& strName) EXCLUDES(m_NameLock);
    std::string GetName() const EXCLUDES(m_NameLock);
    void SetGroupName(const std::string& strGroupName) EXCLUDES(m_NameLock);
    std::string GetGroupName() const EXCLUDES(m_NameLock);
    /// The number that log lines print as "com"; UNUSED_PORT_NUM while there is none.
    void SetPortNum(unsigned int uiPortNum) { m_uiPortNum = uiPortNum; }
    unsigned int GetPortNum() const { return m_uiPortNum; }
    void SetUE(CUE* pUE) { m_pUE = pUE; }
    CUE* GetUE() const { return m_pUE; }
    /// That of the network UE while the port has no UE.
    UE_INDEX GetUEIdx() const override;
    /// Sets the port's role, and with it its channels; none for an unknown type.
    void SetSerialType(enSerialType enType);
    enSerialType GetSerialType() const { return m_enType; }
    /// The descriptor, -1 while closed.
    int GetHandler() const { return m_iHandle; }
    bool IsOpen() const { return m_enState == LINE_STATE::OPEN; }
    bool IsOpening() const { return m_enState == LINE_STATE::OPENING; }
    /// True when the port opens at the first write, and no other way.
    bool IsOpenedByWrite() const { return !m_Channel.Rows().empty() && m_Channel.Rows().front().bOpenedByWrite; }
    /// A read failed since the port was opened: the device is gone.
    bool HasReadFault() const { return m_bReadFault; }
    CChildChannel& Channel() override { return m_Channel; }
    /// Bytes since the port was opened.
    uint64_t GetTotalBytesRead() const { return m_ullTotalRead; }
    uint64_t GetTotalBytesWrite() const { return m_ullTotalWrite; }

    /// The port counts as opening from here on. Gives the number of the opening.
    uint64_t BeginOpen() EXCLUDES(m_WriteLock);
    /// Opens the device by its name and sets it. False when that fails, and when the opening is an old one; the port
    /// is closed then, unless another opening is under way. bRepeated: only a reason other than the last one is logged.
    bool OpenSerial(uint64_t ullOpening, bool bRepeated = false);
    /// The device has settled: the port is open now. Runs fnReport before anything of the port can be read; false
    /// when the opening is an old one.
    bool FinishOpen(uint64_t ullOpening, const std::function<void()>& fnReport) EXCLUDES(m_ReadLock, m_WriteLock);
    /// Runs fnReport unless the port has been given up or begun to open since that number was current.
    bool IfCurrent(uint64_t ullOpening, const std::function<void()>& fnReport) EXCLUDES(m_ReadLock, m_WriteLock);
    /// The port is closed for everybody at once, and so is an opening that is under way. What remains to be done with
    /// the device is done by the result's end.
    [[nodiscard]] CClosingDevice EndUse() EXCLUDES(m_ReadLock, m_WriteLock);
    /// EndUse and the rest of it. Always true, open or not.
    bool CloseSerial();

    int ReadHandle() const override { return IsOpen() ? GetHandler() : -1; }
    bool ReadBytes(int nHandle) override EXCLUDES(m_ReadLock);
    LINE_STATE PrepareWrite() override;
    uint64_t Opening() const override { return m_ullOpening; }
    ssize_t WriteBytes(ByteView data) override EXCLUDES(m_WriteLock);
    int WriteHandle() const override { return ReadHandle(); }
    std::chrono::seconds WriteLimit(size_t szRemaining) const override;
    void OnNoHeadway(bool bTimeout) override;
    void LogFault(LINE_FAULT enFault) const override;

    int GetBaudrate() const;
    /// Baud of a terminal speed constant; 9600 for one that isn't known.
    static int _BAUDRATE(int speed);

private:
    void InitSerialPort();
    bool SetAttributes(int nFd) const;
    bool Publish(uint64_t ullOpening, CUniqueFd fd, const termios& stOldTermios) EXCLUDES(m_WriteLock);
    bool FailOpen(uint64_t ullOpening) EXCLUDES(m_WriteLock);
    CClosingDevice TakeDevice() EXCLUDES(m_ReadLock, m_WriteLock);
    void LogSetFault(const std::string& strName, int nError, bool bRepeated);
    void LogOpenFault(const std::string& strName, int nError, bool bRepeated);
    ssize_t ReadSerial(CAgentMsgRun& run) REQUIRES(m_ReadLock);
    bool HasBytes() const REQUIRES(m_ReadLock);

    std::atomic<unsigned int> m_uiPortNum = UNUSED_PORT_NUM;
    mutable xtl::Mutex m_NameLock; // taken last, for the copy of a name only
    std::string m_strName GUARDED_BY(m_NameLock);
    std::string m_strGroupName GUARDED_BY(m_NameLock);
    enSerialType m_enType = SERIAL_TYPE_DIAG; // this and its channels: set only while nobody else looks
    CChildChannel m_Channel{*this};
    std::atomic<int> m_iHandle = -1;
    std::atomic<LINE_STATE> m_enState = LINE_STATE::CLOSED; // these two change under m_WriteLock
    std::atomic<uint64_t> m_ullOpening = 0;
    std::atomic<bool> m_bOpenFailed = false; // one that a write had asked for; the write thread hasn't seen it yet
    std::atomic<bool> m_bReadFault = false;
    int m_nLastOpenError = 0; // errno of the last opening, 0 when it succeeded; for whoever opens
    termios m_stOldTermios GUARDED_BY(m_WriteLock){};
    termios m_stNewTermios{}; // prepared once
    CUE* m_pUE = nullptr;
    std::unique_ptr<unsigned char[]> m_pReadBuf; // SERIAL_READ_BUF_LEN bytes, for the read thread
    std::atomic<uint64_t> m_ullTotalRead = 0;
    std::atomic<uint64_t> m_ullTotalWrite = 0;
    xtl::Mutex m_ReadLock; // before m_WriteLock
    xtl::Mutex m_WriteLock;
};
