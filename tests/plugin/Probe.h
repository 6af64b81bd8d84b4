#pragma once

#include "objects/CXException.h"

/// What a plug-in's class can do for its host.
class ProbeInterface
{
public:
    enum What
    {
        LibraryException,
        PluginException,
        HeaderException
    };
    virtual void Throw(What what) = 0;

protected:
    ~ProbeInterface() = default;
};

/// An exception class that host and plug-in both have from this header.
class ProbeException : public CXException
{
public:
    explicit ProbeException(int number) : m_number(number) {}
    int m_number;
};
