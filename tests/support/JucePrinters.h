#pragma once

#include <juce_core/juce_core.h>

#include <ostream>

// Readable failure messages for JUCE types in GoogleTest assertions.
namespace juce
{
inline void PrintTo(const String& s, std::ostream* os)
{
    *os << '"' << s.toStdString() << '"';
}

inline void PrintTo(const StringArray& a, std::ostream* os)
{
    *os << '[';
    for (int i = 0; i < a.size(); ++i)
        *os << (i ? ", \"" : "\"") << a[i].toStdString() << '"';
    *os << ']';
}
}
