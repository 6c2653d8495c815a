#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

// The one way to read and write wire fields. All multi-byte fields of the system are little-endian; the few
// values in network order are converted where they enter or leave.

using ByteView = std::span<const unsigned char>;
using ByteSpan = std::span<unsigned char>;

/// szCount bytes from szOffset, or as many of them as the bytes hold; never anything outside.
template <class Byte> constexpr std::span<Byte> Slice(std::span<Byte> bytes, size_t szOffset, size_t szCount = SIZE_MAX)
{
    const auto tail = bytes.subspan(std::min(szOffset, bytes.size()));
    return tail.first(std::min(szCount, tail.size()));
}

/// The little-endian field at szOffset. What lies beyond the end reads as zero.
template <std::unsigned_integral T> constexpr T LoadLe(ByteView bytes, size_t szOffset)
{
    const ByteView field = Slice(bytes, szOffset, sizeof(T));
    if (std::endian::native == std::endian::little && field.size() == sizeof(T)) { // one load
        std::array<unsigned char, sizeof(T)> aucField{};
        std::copy_n(field.begin(), aucField.size(), aucField.begin());
        return std::bit_cast<T>(aucField);
    }
    T value = 0;
    for (size_t i = 0; i < field.size(); ++i)
        value = static_cast<T>(value | static_cast<T>(static_cast<T>(field[i]) << (8 * i)));
    return value;
}

/// Writes the little-endian field at szOffset, those of its bytes that lie inside.
template <std::unsigned_integral T> constexpr void StoreLe(ByteSpan bytes, size_t szOffset, T value)
{
    const ByteSpan field = Slice(bytes, szOffset, sizeof(T));
    if (std::endian::native == std::endian::little && field.size() == sizeof(T)) { // one store
        const auto aucField = std::bit_cast<std::array<unsigned char, sizeof(T)>>(value);
        std::copy_n(aucField.begin(), aucField.size(), field.begin());
        return;
    }
    for (size_t i = 0; i < field.size(); ++i)
        field[i] = static_cast<unsigned char>(value >> (8 * i));
}

/// Copies the source bytes from szOffset into the whole of dst; what the source doesn't have becomes zero.
inline void CopyPadded(ByteSpan dst, ByteView src, size_t szOffset = 0)
{
    const ByteView part = Slice(src, szOffset, dst.size());
    std::fill(std::copy(part.begin(), part.end(), dst.begin()), dst.end(), static_cast<unsigned char>(0));
}

/// The text of a NUL-terminated field that is not trusted to hold its NUL.
inline std::string FixedText(ByteView field)
{
    return {field.begin(), std::find(field.begin(), field.end(), 0)};
}

/// Writes text into a fixed field, cut so that a NUL always follows, the rest of the field zero.
inline void StoreText(ByteSpan field, const std::string& strText)
{
    if (field.empty())
        return;
    const size_t szLen = std::min(strText.size(), field.size() - 1);
    std::fill(std::copy_n(strText.begin(), szLen, field.begin()), field.end(), static_cast<unsigned char>(0));
}

/// The bytes of a text, for what takes bytes.
inline ByteView AsBytes(const std::string& strText)
{
    return {reinterpret_cast<const unsigned char*>(strText.data()), strText.size()};
}

/// Reads little-endian fields from borrowed bytes. What lies past the end reads as zero and clears Ok()
/// for good, so a decoder reads every field and asks once. The bytes must outlive the reader.
class CByteReader
{
public:
    explicit CByteReader(ByteView bytes) : m_bytes(bytes) {}

    bool Ok() const { return m_bOk; }
    size_t Left() const { return m_bytes.size(); }

    template <std::unsigned_integral T> void Field(T& value) { value = LoadLe<T>(Take(sizeof(T)), 0); }
    void Field(int32_t& lValue) { lValue = static_cast<int32_t>(LoadLe<uint32_t>(Take(sizeof(lValue)), 0)); }
    void Field(float& fValue) { fValue = std::bit_cast<float>(LoadLe<uint32_t>(Take(sizeof(fValue)), 0)); }

    /// A text field of a fixed size; the text ends at its first NUL.
    void Text(std::string& strText, size_t szSize) { strText = FixedText(Take(szSize)); }

    /// Bytes that carry no meaning.
    void Gap(size_t szCount) { (void)Take(szCount); }

    /// The next szCount bytes, or as many of them as are left.
    ByteView Take(size_t szCount)
    {
        m_bOk = m_bOk && szCount <= m_bytes.size();
        const ByteView taken = Slice(m_bytes, 0, szCount);
        m_bytes = m_bytes.subspan(taken.size());
        return taken;
    }

private:
    ByteView m_bytes;
    bool m_bOk = true;
};

/// Twin of CByteReader: writes fields into borrowed bytes. What doesn't fit is left out and clears Ok().
class CByteWriter
{
public:
    explicit CByteWriter(ByteSpan bytes) : m_bytes(bytes) {}

    bool Ok() const { return m_bOk; }
    size_t Left() const { return m_bytes.size(); }

    template <std::unsigned_integral T> void Field(const T& value) { StoreLe<T>(Take(sizeof(T)), 0, value); }
    void Field(const int32_t& lValue) { Field(static_cast<uint32_t>(lValue)); }
    void Field(const float& fValue) { Field(std::bit_cast<uint32_t>(fValue)); }

    void Text(const std::string& strText, size_t szSize) { StoreText(Take(szSize), strText); }

    /// Bytes that nothing sets are zero.
    void Gap(size_t szCount) { std::ranges::fill(Take(szCount), static_cast<unsigned char>(0)); }

    void Bytes(ByteView bytes)
    {
        const ByteSpan room = Take(bytes.size());
        std::copy_n(bytes.begin(), room.size(), room.begin());
    }

    ByteSpan Take(size_t szCount)
    {
        m_bOk = m_bOk && szCount <= m_bytes.size();
        const ByteSpan taken = Slice(m_bytes, 0, szCount);
        m_bytes = m_bytes.subspan(taken.size());
        return taken;
    }

private:
    ByteSpan m_bytes;
    bool m_bOk = true;
};
