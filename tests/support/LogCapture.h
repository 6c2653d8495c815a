#pragma once

#include "common/UniqueFd.h"

#include <string>

/// Runs the log into a temporary file for the life of the object, all classes on unless told otherwise.
class CLogCapture
{
public:
    explicit CLogCapture(int iLevel = 15);
    ~CLogCapture();
    CLogCapture(const CLogCapture&) = delete;
    CLogCapture& operator=(const CLogCapture&) = delete;

    /// What the file holds by now.
    std::string Text() const;
    /// Waits until the log holds the text; false when it doesn't come.
    bool Saw(const std::string& strText) const;
    /// Lines with this text among those logged before the call.
    int Count(const std::string& strText) const;

private:
    std::string m_strPath;
    CUniqueFd m_File; // kept open, so that the log can be read when there are no descriptors left
};
