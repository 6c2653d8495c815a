#pragma once

/// Lets the calling thread's allocations fail for the life of the object: the one with this number, counted from 0,
/// or all from it on. Only in programs that have FailingNew.cpp among their sources.
class CFailingNew
{
public:
    enum KIND
    {
        ONE,
        ALL_FROM_THERE,
    };
    CFailingNew(int nNumber, KIND enKind);
    ~CFailingNew();
    CFailingNew(const CFailingNew&) = delete;
    CFailingNew& operator=(const CFailingNew&) = delete;

    /// Whether an allocation has failed so far.
    static bool HasFailed();
};
