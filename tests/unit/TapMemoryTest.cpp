#include "tap/TapMemory.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
constexpr size_t RING = 65536;

CUniqueFd Duplicate(const CTapMemory& memory)
{
    return CUniqueFd(dup(memory.Fd()));
}

/// A memory of somebody else, of so many bytes in all and with these seals.
CUniqueFd Foreign(size_t szBytes, int nSeals)
{
    CUniqueFd fd(memfd_create("foreign", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    EXPECT_EQ(ftruncate(fd.Get(), static_cast<off_t>(szBytes)), 0);
    EXPECT_EQ(fcntl(fd.Get(), F_ADD_SEALS, nSeals), 0);
    return fd;
}

/// Whether this process has memory behind the address.
bool IsPresent(const void* pAddress)
{
    constexpr uint64_t PRESENT = uint64_t{1} << 63; // proc(5)
    const CUniqueFd map(open("/proc/self/pagemap", O_RDONLY | O_CLOEXEC));
    uint64_t ullEntry = 0;
    const auto nPage = static_cast<off_t>(reinterpret_cast<uintptr_t>(pAddress) / 4096);
    EXPECT_EQ(pread(map.Get(), &ullEntry, sizeof(ullEntry), nPage * 8), 8);
    return (ullEntry & PRESENT) != 0;
}
} // namespace

TEST(TapMemory, NoWriteWaitsForAPage)
{
    CTapMemory memory = CTapMemory::Create(RING);
    const auto words = memory.Words();
    for (size_t i = 0; i < words.size(); i += 4096 / TAP_WORD_SIZE)
        EXPECT_TRUE(IsPresent(&words[i])) << i;
}

TEST(TapMemory, WhatItsMakerWritesOthersRead)
{
    CTapMemory memory = CTapMemory::Create(RING);
    ASSERT_TRUE(memory.IsMapped());
    EXPECT_EQ(memory.RingBytes(), RING);
    EXPECT_EQ(memory.Words().size(), (4096 + RING) / 8);
    const CTapMemory other = CTapMemory::Map(Duplicate(memory), RING);
    ASSERT_TRUE(other.IsMapped());
    EXPECT_EQ(other.Words()[1000], 0u);
    memory.Words()[1000] = 0x1122334455667788;
    EXPECT_EQ(other.Words()[1000], 0x1122334455667788u);
}

TEST(TapMemory, OthersCanNeitherWriteItNorChangeItsSize)
{
    const CTapMemory memory = CTapMemory::Create(RING);
    const CUniqueFd other = Duplicate(memory);
    EXPECT_EQ(mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, other.Get(), 0), MAP_FAILED);
    EXPECT_EQ(write(other.Get(), "x", 1), -1);
    EXPECT_EQ(ftruncate(other.Get(), 0), -1);
    EXPECT_EQ(ftruncate(other.Get(), 1 << 20), -1);
}

TEST(TapMemory, WhatMayShrinkOrHasAnotherSizeIsRefused)
{
    EXPECT_TRUE(CTapMemory::Map(Foreign(4096 + RING, F_SEAL_SHRINK), RING).IsMapped());
    EXPECT_FALSE(CTapMemory::Map(Foreign(4096 + RING, 0), RING).IsMapped());
    EXPECT_FALSE(CTapMemory::Map(Foreign(4096 + RING - 8, F_SEAL_SHRINK), RING).IsMapped());
    EXPECT_FALSE(CTapMemory::Map(Foreign(4096, F_SEAL_SHRINK), 0).IsMapped());
    EXPECT_FALSE(CTapMemory::Map(Foreign(4096 + 12, F_SEAL_SHRINK), 12).IsMapped()) << "no whole words";
    EXPECT_FALSE(CTapMemory::Map(CUniqueFd(open("/dev/null", O_RDONLY | O_CLOEXEC)), RING).IsMapped());
    EXPECT_FALSE(CTapMemory::Map(CUniqueFd(), RING).IsMapped());
}
