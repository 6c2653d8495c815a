#pragma once

#include "common/Bytes.h"

#include <cstddef>
#include <cstdint>
#include <span>

// One indication's register values and the lookups in them, shared by the register manager and the statistics.

/// The two register lists of the UE, and "no mode yet". Requests of clients always work on MODE_0; the list of
/// MODE_1 only ever holds what the UE confirms for it.
enum MODE_ENUM : unsigned int
{
    MODE_0 = 0,
    MODE_1 = 1,
    MODE_NONE = 2,
};
constexpr size_t REG_LIST_COUNT = 2;

/// The registers of one indication: addresses as the UE confirmed them, ascending, and the value of each. Borrowed;
/// valid during one CRegMsgProcess::Process call.
struct RegStruct
{
    std::span<const unsigned int> m_aulRegAddrs;
    ByteView m_aulRegValues;      // u32 each, in the order of the addresses, inside the received message
    uint64_t m_ullGeneration = 0; // equal for equal lists only, so positions can be kept; 0 for a list of its own
};

constexpr size_t REG_NOT_FOUND = SIZE_MAX;

/// Bits ucLow to ucHigh (0 to 31, ucLow <= ucHigh), both included, shifted down to bit 0.
constexpr unsigned int GetBitValue(unsigned int ulValue, unsigned char ucLow, unsigned char ucHigh)
{
    return (ulValue << (31 - ucHigh)) >> (31 + ucLow - ucHigh);
}

/// Position of an address in a list, by bisection, or REG_NOT_FOUND. An address that stands twice is found where
/// the bisection meets it; in a list that isn't ascending it may be missed.
size_t FindReg(std::span<const unsigned int> addrs, unsigned int ulAddr);

/// The value at a position of the list; zero beyond the message's end.
inline unsigned int RegValueAt(const RegStruct& stReg, size_t szPos)
{
    return LoadLe<unsigned int>(stReg.m_aulRegValues, 4 * szPos);
}

/// Sets ulValue to the register's value, or to 0 when the address isn't in the list. False then.
bool GetRegValue(const RegStruct& stReg, unsigned int ulAddr, unsigned int& ulValue);
