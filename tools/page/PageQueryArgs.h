#pragma once

#include "page/PageViews.h"

#include <cstdint>

/// The arguments of a query, read one by one. What is wrong is kept: callers read all and ask once.
class CPageArgs
{
public:
    explicit CPageArgs(const PAGE_QUERY& stQuery) : m_stQuery(stQuery) {}

    /// A whole number up to ullMost; none when the argument isn't there.
    std::optional<uint64_t> Number(const std::string& strName, uint64_t ullMost = UINT64_MAX);
    /// A time in ms since 1970, or another number; fractions allowed.
    std::optional<double> Real(const std::string& strName);
    std::string Text(const std::string& strName) const;
    /// "ue", which has to be there.
    unsigned int Ue();
    std::optional<unsigned int> UeIfAny();

    bool Ok() const { return m_strError.empty(); }
    const std::string& Error() const { return m_strError; }

private:
    const std::string* Find(const std::string& strName) const;
    void Fail(const std::string& strName, const std::string& strWhat);

    const PAGE_QUERY& m_stQuery;
    std::string m_strError;
};

/// {"error": text}.
PAGE_ANSWER PageError(int nStatus, const std::string& strError);
