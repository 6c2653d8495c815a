#pragma once

#include "common/Bytes.h"
#include "common/Config.h"
#include "common/Types.h"
#include "common/xtl.h"
#include "ue/ChildChannel.h"
#include "ue/Line.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <termios.h>

class CUE;

/// Whole seconds that a write may go without headway, from the bytes that remain and the line's speed.
int WriteTimeoutS(size_t szRemaining, int iBaud);

/// One serial port of a UE: opens and configures the device, hands what it reads to its channels, and writes with
/// a time-out. It never closes itself and tells nobody of a fault: it logs and returns
/// false.
///
/// The read thread and the write thread use a port side by side, each under a lock of its own; CloseSerial has to
/// have both. State, handle, number and counters are atomics for readers without a lock, who may see old values.
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
    bool IsOpen() const { return m_bOpen; }
    /// True when the port opens at the first write, and no other way.
    bool IsOpenedByWrite() const { return !m_Channel.Rows().empty() && m_Channel.Rows().front().bOpenedByWrite; }
    /// What frames the port's bytes, for all of its channels.
    CChildChannel& Channel() { return m_Channel; }
    /// Bytes since the port was opened.
    uint64_t GetTotalBytesRead() const { return m_ullTotalRead; }
    uint64_t GetTotalBytesWrite() const { return m_ullTotalWrite; }

    /// Opens the device by its name. Takes a full second: a port counts as open only then. False when the device
    /// can't be opened or set, or when it was closed meanwhile.
    bool OpenSerial();
    /// Waits for the read and the write at hand. Restores the device's settings. Always true, open or not.
    bool CloseSerial();

    /// Held by the read thread over its wait and its read.
    void SerialLock() ACQUIRE(m_ReadLock) { m_ReadLock.Lock(); }
    void SerialUnlock() RELEASE(m_ReadLock) { m_ReadLock.Unlock(); }
    /// Reads once and hands the bytes to its channels. False on a closed port, a fault or the end of the file;
    /// a signal that ends the read is no fault.
    bool ReadSerial(CAgentMsgRun& run) REQUIRES(m_ReadLock);
    /// Writes all bytes, or gives up after the time-out. Opens a closed port that opens so. What was written of a
    /// packet when it failed stays written.
    bool WriteSerial(ByteView data) EXCLUDES(m_WriteLock);
    bool WriteBytes(ByteView data) override { return WriteSerial(data); }
    void LogFault(LINE_FAULT enFault) const override;

    int GetBaudrate() const;
    /// Baud of a terminal speed constant; 9600 for one that isn't known.
    static int _BAUDRATE(int speed); // NOLINT(bugprone-reserved-identifier): the operation's fixed name

private:
    void InitSerialPort();
    bool SetAttributes(int nFd) const;
    void Publish(int nFd, const termios& stOldTermios) EXCLUDES(m_WriteLock);
    bool MarkOpen(int nFd) EXCLUDES(m_WriteLock);
    bool OpenForWrite();
    bool WriteAll(ByteView data) REQUIRES(m_WriteLock);
    bool WaitWritable(int lTimeoutMs) const;
    ssize_t WriteSome(ByteView data) const;

    std::atomic<unsigned int> m_uiPortNum = UNUSED_PORT_NUM;
    mutable xtl::Mutex m_NameLock; // taken last, for the copy of a name only
    std::string m_strName GUARDED_BY(m_NameLock);
    std::string m_strGroupName GUARDED_BY(m_NameLock);
    enSerialType m_enType = SERIAL_TYPE_DIAG; // this and its channels: set only while nobody else looks
    CChildChannel m_Channel{*this};
    std::atomic<int> m_iHandle = -1;
    std::atomic<bool> m_bOpen = false;
    termios m_stOldTermios GUARDED_BY(m_WriteLock){};
    termios m_stNewTermios{}; // prepared once
    CUE* m_pUE = nullptr;
    std::unique_ptr<unsigned char[]> m_pReadBuf; // SERIAL_READ_BUF_LEN bytes, for the read thread
    std::atomic<uint64_t> m_ullTotalRead = 0;
    std::atomic<uint64_t> m_ullTotalWrite = 0;
    xtl::Mutex m_ReadLock; // before m_WriteLock
    xtl::Mutex m_WriteLock;
};
