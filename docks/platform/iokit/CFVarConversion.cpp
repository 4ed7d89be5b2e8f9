#include "docks/platform/iokit/CFVarConversion.h"

#include <vector>

namespace
{
juce::var numberToVar(CFNumberRef number)
{
    if (CFNumberIsFloatType(number))
    {
        double value = 0;
        CFNumberGetValue(number, kCFNumberFloat64Type, &value);
        return value;
    }
    // Read as 64 bits whatever width the number was made with: a signed 32-bit
    // value such as a USB locationID keeps its sign and comes out whole.
    juce::int64 value = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &value);
    return value;
}

juce::var arrayToVar(CFArrayRef array)
{
    juce::Array<juce::var> items;
    const auto count = CFArrayGetCount(array);
    items.ensureStorageAllocated(static_cast<int>(count));
    for (CFIndex i = 0; i < count; ++i)
        items.add(CFVarConversion::toVar(CFArrayGetValueAtIndex(array, i)));
    return items;
}

juce::var dictionaryToVar(CFDictionaryRef dictionary)
{
    const auto count = CFDictionaryGetCount(dictionary);
    std::vector<const void*> keys(static_cast<size_t>(count));
    std::vector<const void*> values(static_cast<size_t>(count));
    if (count > 0)
        CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());

    juce::DynamicObject::Ptr object = new juce::DynamicObject();
    for (size_t i = 0; i < keys.size(); ++i)
    {
        if (keys[i] == nullptr || CFGetTypeID(keys[i]) != CFStringGetTypeID())
            continue;
        const auto key = CFVarConversion::toString(static_cast<CFStringRef>(keys[i]));
        object->setProperty(juce::Identifier(key), CFVarConversion::toVar(values[i]));
    }
    return object.get();
}

juce::var dataToVar(CFDataRef data)
{
    const auto length = CFDataGetLength(data);
    if (length <= 0)
        return juce::MemoryBlock();
    return juce::MemoryBlock(CFDataGetBytePtr(data), static_cast<size_t>(length));
}

ScopedCFType<CFTypeRef> makeNumber(juce::int64 value)
{
    return ScopedCFType<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &value));
}

ScopedCFType<CFTypeRef> makeNumber(double value)
{
    return ScopedCFType<CFTypeRef>(CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &value));
}

ScopedCFType<CFTypeRef> makeArray(const juce::Array<juce::var>& items, CFStringEncoding textEncoding)
{
    ScopedCFType<CFMutableArrayRef> array(
        CFArrayCreateMutable(kCFAllocatorDefault, static_cast<CFIndex>(items.size()), &kCFTypeArrayCallBacks));
    if (!array)
        return {};
    for (const auto& item : items)
    {
        auto element = CFVarConversion::fromVar(item, textEncoding);
        if (!element)
            return {};
        // The array takes its own reference; ours goes when `element` does.
        CFArrayAppendValue(array.get(), element.get());
    }
    return ScopedCFType<CFTypeRef>(array.release());
}

ScopedCFType<CFTypeRef> makeDictionary(juce::DynamicObject& object, CFStringEncoding textEncoding)
{
    const auto& properties = object.getProperties();
    ScopedCFType<CFMutableDictionaryRef> dictionary(
        CFDictionaryCreateMutable(kCFAllocatorDefault, static_cast<CFIndex>(properties.size()),
                                  &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
    if (!dictionary)
        return {};
    for (const auto& property : properties)
    {
        auto key = CFVarConversion::makeString(property.name.toString(), kCFStringEncodingUTF8);
        auto value = CFVarConversion::fromVar(property.value, textEncoding);
        if (!key || !value)
            return {};
        // The dictionary retains key and value; ours go at the end of the pass.
        CFDictionarySetValue(dictionary.get(), key.get(), value.get());
    }
    return ScopedCFType<CFTypeRef>(dictionary.release());
}
} // namespace

juce::var CFVarConversion::toVar(CFTypeRef value)
{
    if (value == nullptr)
        return {};

    const auto type = CFGetTypeID(value);
    if (type == CFStringGetTypeID())
        return toString(static_cast<CFStringRef>(value));
    if (type == CFNumberGetTypeID())
        return numberToVar(static_cast<CFNumberRef>(value));
    if (type == CFBooleanGetTypeID())
        return CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0;
    if (type == CFDataGetTypeID())
        return dataToVar(static_cast<CFDataRef>(value));
    if (type == CFArrayGetTypeID())
        return arrayToVar(static_cast<CFArrayRef>(value));
    if (type == CFDictionaryGetTypeID())
        return dictionaryToVar(static_cast<CFDictionaryRef>(value));
    return {};
}

ScopedCFType<CFTypeRef> CFVarConversion::fromVar(const juce::var& value, CFStringEncoding textEncoding)
{
    if (value.isBool())
        // The two booleans are constants that nobody owns; retain one so that
        // every result here is released the same way.
        return ScopedCFType<CFTypeRef>(CFRetain(static_cast<bool>(value) ? kCFBooleanTrue : kCFBooleanFalse));
    if (value.isInt() || value.isInt64())
        return makeNumber(static_cast<juce::int64>(value));
    if (value.isDouble())
        return makeNumber(static_cast<double>(value));
    if (value.isString())
    {
        auto text = makeString(value.toString(), textEncoding);
        return ScopedCFType<CFTypeRef>(text.release());
    }
    if (value.isArray())
        return makeArray(*value.getArray(), textEncoding);
    if (value.isBinaryData())
    {
        const auto* block = value.getBinaryData();
        return ScopedCFType<CFTypeRef>(CFDataCreate(kCFAllocatorDefault,
                                                    static_cast<const UInt8*>(block->getData()),
                                                    static_cast<CFIndex>(block->getSize())));
    }
    if (auto* object = value.getDynamicObject())
        return makeDictionary(*object, textEncoding);
    return {};
}

ScopedCFType<CFStringRef> CFVarConversion::makeString(const juce::String& text, CFStringEncoding encoding)
{
    const auto* bytes = text.toRawUTF8();
    return ScopedCFType<CFStringRef>(CFStringCreateWithBytes(kCFAllocatorDefault,
                                                             reinterpret_cast<const UInt8*>(bytes),
                                                             static_cast<CFIndex>(text.getNumBytesAsUTF8()),
                                                             encoding, false));
}

juce::String CFVarConversion::toString(CFStringRef text)
{
    if (text == nullptr)
        return {};
    // Strings that keep their characters as UTF-8 lend them out directly.
    if (const auto* direct = CFStringGetCStringPtr(text, kCFStringEncodingUTF8))
        return juce::String::fromUTF8(direct);

    const auto size = CFStringGetMaximumSizeForEncoding(CFStringGetLength(text), kCFStringEncodingUTF8) + 1;
    juce::HeapBlock<char> buffer(static_cast<size_t>(size), true);
    if (!CFStringGetCString(text, buffer.get(), size, kCFStringEncodingUTF8))
        return {};
    return juce::String::fromUTF8(buffer.get());
}
