#pragma once

#include "capture/CaptureFormat.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A record of a capture file; its bytes are valid until the reader's next call.
struct CAPTURED_RECORD
{
    TAP_RECORD stRecord;
    ByteView bytes;
    uint64_t ullLost = 0;   // records lost right before this one
    std::string strComment; // the last one, empty for none
};

/// Decodes the body of a packet block whose interface counts ticks of so many ns (those of our files: 1). The record's
/// bytes lie in the body. False when it holds no record of the agent's traffic.
bool DecodePacket(ByteView body, uint64_t ullNsPerTick, CAPTURED_RECORD& stRecord);

/// Where a file's bytes come from: as they are, or out of zstd frames.
class ICaptureSource
{
public:
    ICaptureSource() = default;
    virtual ~ICaptureSource() = default;
    ICaptureSource(const ICaptureSource&) = delete;
    ICaptureSource& operator=(const ICaptureSource&) = delete;

    /// Fills the buffer; fewer bytes mean the end, or an error.
    virtual size_t Read(ByteSpan buffer) = 0;
    /// What ended the bytes too early; empty at a proper end.
    virtual std::string Error() const = 0;
};

/// Opens a plain or zstd-compressed file, told apart by its first bytes. Null, with the reason.
std::unique_ptr<ICaptureSource> OpenCaptureSource(const std::string& strPath, std::string& strError);
/// The bytes of a file in memory, borrowed; plain.
std::unique_ptr<ICaptureSource> MemoryCaptureSource(ByteView bytes);

/// Reads a capture file (CaptureFormat.h) record by record. Trusts nothing in it. Passes over blocks, interfaces and
/// packets that aren't of the agent's traffic, so that a file which other programs have cut or joined still reads.
class CPcapngReader
{
public:
    explicit CPcapngReader(std::unique_ptr<ICaptureSource> pSource) : m_pSource(std::move(pSource)) {}

    enum class RESULT
    {
        RECORD,
        END,
        CUT, // the file ends within a block or a compressed frame; all before that has been read
        BAD, // no capture file, or damaged
    };
    /// The first END, CUT or BAD is for good.
    RESULT Next(CAPTURED_RECORD& stRecord);
    /// What CUT or BAD means, in words.
    const std::string& Error() const { return m_strError; }
    /// Comment of the last section that began: run, start of the agent, bench.
    const std::string& SectionComment() const { return m_strSection; }

private:
    struct INTERFACE
    {
        bool bOurs = false; // exported PDUs
        uint64_t ullNsPerTick = 0;
    };
    RESULT ReadBlock(uint32_t& ulType);
    bool ReadBody(size_t szCount);
    RESULT Ended(RESULT enResult, const std::string& strError);
    RESULT TakeSection();
    void TakeInterface();
    bool TakePacket(CAPTURED_RECORD& stRecord) const;

    std::unique_ptr<ICaptureSource> m_pSource;
    std::vector<unsigned char> m_vecBlock; // body of the block at hand
    std::vector<INTERFACE> m_vecInterfaces;
    std::string m_strSection;
    bool m_bSection = false; // one has begun
    std::string m_strError;
    RESULT m_enEnd = RESULT::RECORD; // until one of the others came
};

/// Gives each record of a file, plain or compressed, to the call. What ended it: END, CUT, or BAD with what is wrong.
CPcapngReader::RESULT ReadCaptureFile(const std::string& strPath,
                                      const std::function<void(const CAPTURED_RECORD&)>& onRecord,
                                      std::string& strError);
