#include "common/DeviceRecord.h"

namespace
{
/// Order on the wire, for CByteReader and CByteWriter alike.
template <class Io, class Info> void DeviceRecord(Io& io, Info& stInfo)
{
    io.Field(stInfo.ulPortNum);                                        //   0
    io.Field(stInfo.cSerialType);                                      //   4
    io.Field(stInfo.barrive);                                          //   5
    io.Text(stInfo.szSerialName, DEVICE_MONITOR_INFO_STRU::NAME_SIZE); //   6
    io.Text(stInfo.szGroupId, DEVICE_MONITOR_INFO_STRU::GROUP_SIZE);   // 262
}

/// The field list is little-endian, the port number is in network order.
constexpr uint32_t SwapPortNum(uint32_t ulPortNum)
{
    return __builtin_bswap32(ulPortNum);
}
} // namespace

std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> EncodeDeviceRecord(const DEVICE_MONITOR_INFO_STRU& stInfo)
{
    std::array<unsigned char, DEVICE_MONITOR_INFO_STRU::SIZE> record{};
    DEVICE_MONITOR_INFO_STRU stWire = stInfo;
    stWire.ulPortNum = SwapPortNum(stInfo.ulPortNum);
    CByteWriter writer(record);
    DeviceRecord(writer, stWire);
    return record;
}

DEVICE_MONITOR_INFO_STRU DecodeDeviceRecord(ByteView record)
{
    DEVICE_MONITOR_INFO_STRU stInfo;
    CByteReader reader(record);
    DeviceRecord(reader, stInfo);
    stInfo.ulPortNum = SwapPortNum(stInfo.ulPortNum);
    return stInfo;
}
