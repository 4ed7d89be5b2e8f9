#pragma once

#include "docks/platform/iokit/ScopedCFType.h"

#include <juce_core/juce_core.h>

/** Property values between CoreFoundation and the form in which they cross
    the dock platform: a dictionary is a DynamicObject, an array an Array, a
    string a String, a number an int64 (a floating-point number a double), a
    boolean a bool, data a MemoryBlock. */
class CFVarConversion
{
public:
    /** A void var for a null reference and for types with no counterpart
        (sets, dates); dictionary entries whose key is not a string are left out. */
    static juce::var toVar(CFTypeRef value);

    /** Null when the var or anything inside it has no CoreFoundation
        counterpart (void, undefined, methods, objects other than
        DynamicObject). Strings among the values are made from their UTF-8
        bytes read in `textEncoding`; dictionary keys are always UTF-8. */
    static ScopedCFType<CFTypeRef> fromVar(const juce::var& value, CFStringEncoding textEncoding);

    /** A string made from the UTF-8 bytes of `text`, read in `encoding`. */
    static ScopedCFType<CFStringRef> makeString(const juce::String& text, CFStringEncoding encoding);

    static juce::String toString(CFStringRef text);
};
