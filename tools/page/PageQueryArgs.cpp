#include "page/PageQueryArgs.h"

#include "common/Types.h"
#include "page/ViewJson.h"

#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace
{
/// False unless the whole text is the number.
template <class T> bool Parse(const std::string& strText, T& value)
{
    const auto result = std::from_chars(strText.data(), strText.data() + strText.size(), value);
    return result.ec == std::errc() && result.ptr == strText.data() + strText.size();
}
} // namespace

std::optional<uint64_t> CPageArgs::Number(const std::string& strName, uint64_t ullMost)
{
    const std::string* const pText = Find(strName);
    if (pText == nullptr)
        return std::nullopt;
    uint64_t ullNumber = 0;
    if (Parse(*pText, ullNumber) && ullNumber <= ullMost)
        return ullNumber;
    Fail(strName, ullMost == UINT64_MAX ? "a whole number" : "a whole number up to " + std::to_string(ullMost));
    return std::nullopt;
}

std::optional<double> CPageArgs::Real(const std::string& strName)
{
    const std::string* const pText = Find(strName);
    if (pText == nullptr)
        return std::nullopt;
    double dNumber = 0;
    if (Parse(*pText, dNumber) && std::isfinite(dNumber))
        return dNumber;
    Fail(strName, "a number");
    return std::nullopt;
}

std::string CPageArgs::Text(const std::string& strName) const
{
    const std::string* const pText = Find(strName);
    return pText == nullptr ? "" : *pText;
}

unsigned int CPageArgs::Ue()
{
    if (Find("ue") == nullptr)
        Fail("ue", "given");
    return UeIfAny().value_or(0);
}

std::optional<unsigned int> CPageArgs::UeIfAny()
{
    const auto number = Number("ue", MAXUENUM - 1);
    return number ? std::optional(static_cast<unsigned int>(*number)) : std::nullopt;
}

const std::string* CPageArgs::Find(const std::string& strName) const
{
    const auto found = m_stQuery.mapArgs.find(strName);
    return found == m_stQuery.mapArgs.end() ? nullptr : &found->second;
}

void CPageArgs::Fail(const std::string& strName, const std::string& strWhat)
{
    if (Ok())
        m_strError = strName + " has to be " + strWhat;
}

PAGE_ANSWER PageError(int nStatus, const std::string& strError)
{
    return {nStatus, "application/json", JsonText({{"error", strError}})};
}
