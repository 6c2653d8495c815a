#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

constexpr const char* METRICS_TYPE = "text/plain; version=0.0.4; charset=utf-8"; // of HTTP

constexpr const char* GAUGE = "gauge";
constexpr const char* COUNTER = "counter";

/// Metrics in the text format of Prometheus, put together one after the other.
class CMetricsText
{
public:
    /// Names and values; values may hold anything.
    using LABELS = std::initializer_list<std::pair<const char*, std::string>>;

    /// The values that follow are of this metric.
    void Begin(const char* pszName, const char* pszType, const char* pszHelp);
    void Value(LABELS labels, double dValue);
    void Value(LABELS labels, uint64_t ullValue) { Value(labels, static_cast<double>(ullValue)); }
    /// A metric with one value and no labels.
    void Single(const char* pszName, const char* pszType, const char* pszHelp, double dValue)
    {
        Begin(pszName, pszType, pszHelp);
        Value({}, dValue);
    }
    void Single(const char* pszName, const char* pszType, const char* pszHelp, uint64_t ullValue)
    {
        Single(pszName, pszType, pszHelp, static_cast<double>(ullValue));
    }
    const std::string& Text() const { return m_strText; }

private:
    std::string m_strName;
    std::string m_strText;
};
