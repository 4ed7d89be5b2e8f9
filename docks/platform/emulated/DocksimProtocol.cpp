#include "docks/platform/emulated/DocksimProtocol.h"

#include <cstring>
#include <limits>

namespace
{
// JUCE's JSON reader recurses once per nesting level and accumulates integers
// in an int64 without an overflow check, so a line is screened before it is
// parsed: no NUL, valid UTF-8, bounded nesting, every integer within int64,
// and (since it reads exponents into an int) every exponent of a few digits.
juce::String screen(const char* data, size_t size)
{
    if (std::memchr(data, 0, size) != nullptr)
        return "a NUL byte in the line";
    if (!juce::CharPointer_UTF8::isValidString(data, (int) size))
        return "invalid UTF-8";

    static const char* const int64Max = "9223372036854775807";
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < size; ++i)
    {
        const char c = data[i];
        if (inString)
        {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"')
            inString = true;
        else if (c == '{' || c == '[')
        {
            if (++depth > DocksimProtocol::maxNesting)
                return "nested too deeply";
        }
        else if (c == '}' || c == ']')
            --depth;
        else if (c == '-' || (c >= '0' && c <= '9'))
        {
            size_t p = (c == '-') ? i + 1 : i;
            while (p < size && (data[p] == ' ' || data[p] == '\t' || data[p] == '\r'))
                ++p;
            const size_t first = p;
            while (p < size && data[p] >= '0' && data[p] <= '9')
                ++p;
            if (p == first)
                return "a '-' without digits";
            // The digits before any fraction or exponent go into an int64 first,
            // so they are bounded whatever follows them.
            size_t significant = first;
            while (significant + 1 < p && data[significant] == '0')
                ++significant;
            const size_t digits = p - significant;
            if (digits > 19 || (digits == 19 && std::memcmp(data + significant, int64Max, 19) > 0))
                return "a number out of range";
            if (p < size && data[p] == '.')
                for (++p; p < size && data[p] >= '0' && data[p] <= '9';)
                    ++p;
            if (p < size && (data[p] == 'e' || data[p] == 'E'))
            {
                // An exponent is read into an int: a few digits are all any double has.
                if (++p < size && (data[p] == '+' || data[p] == '-'))
                    ++p;
                while (p < size && data[p] == '0')
                    ++p;
                const size_t exponentStart = p;
                while (p < size && data[p] >= '0' && data[p] <= '9')
                    ++p;
                if (p - exponentStart > 4)
                    return "an exponent out of range";
            }
            i = p - 1;
        }
    }
    return {};
}

bool readInteger(const juce::var& v, int64_t& value)
{
    if (!v.isInt() && !v.isInt64())
        return false;
    value = (juce::int64) v;
    return true;
}

bool readInteger(const juce::var& body, const char* field, int64_t low, int64_t high, int64_t& value,
                 juce::String& problem)
{
    const auto* object = body.getDynamicObject();
    const juce::Identifier name(field);
    if (object == nullptr || !object->hasProperty(name))
    {
        problem = "no '" + juce::String(field) + "'";
        return false;
    }
    if (!readInteger(object->getProperty(name), value))
    {
        problem = "'" + juce::String(field) + "' is not an integer";
        return false;
    }
    if (value < low || value > high)
    {
        problem = "'" + juce::String(field) + "' out of range: " + juce::String(value);
        return false;
    }
    return true;
}

constexpr int64_t maxResult = 0xFFFFFFFF;
constexpr int64_t maxObject = std::numeric_limits<DockPlatform::Object>::max();
constexpr int64_t maxId = std::numeric_limits<int64_t>::max();

DocksimLine unreadable(const juce::String& problem)
{
    DocksimLine line;
    line.problem = problem;
    return line;
}

DocksimLine classifyCompletion(const juce::var& body)
{
    DocksimLine line;
    line.kind = DocksimLine::Kind::badCompletion;
    auto& c = line.completion;
    int64_t value = 0;
    if (!readInteger(body, "completion", 1, maxId, value, line.problem))
        return line;
    c.call = value;
    if (!readInteger(body, "result", 0, maxResult, value, line.problem))
        return line;
    c.result = (DockPlatform::Result) value;

    // A failed completion carries no data the product would look at.
    const auto* object = body.getDynamicObject();
    const bool required = c.result == DockPlatform::success;
    if (required || object->hasProperty("argc"))
    {
        if (!readInteger(body, "argc", 0, DocksimProtocol::maxArgc, value, line.problem))
            return line;
        c.argc = (uint32_t) value;
    }
    if (required || object->hasProperty("data"))
    {
        juce::String hex;
        if (!DocksimProtocol::readText(body, "data", hex, line.problem))
            return line;
        if (!DocksimProtocol::fromHex(hex, c.data))
        {
            line.problem = "'data' is not hex of whole bytes";
            return line;
        }
    }
    line.kind = DocksimLine::Kind::completion;
    return line;
}

DocksimLine classifyReply(const juce::var& body)
{
    DocksimLine line;
    int64_t value = 0;
    if (!readInteger(body, "id", 1, maxId, value, line.problem))
        return line;  // with no trustworthy id the line stays unreadable
    line.reply.id = value;
    line.kind = DocksimLine::Kind::badReply;
    if (!readInteger(body, "result", 0, maxResult, value, line.problem))
        return line;
    line.reply.result = (DockPlatform::Result) value;
    line.reply.body = body;
    line.kind = DocksimLine::Kind::reply;
    return line;
}
} // namespace

juce::String DocksimProtocol::requestLine(int64_t id, const juce::String& op, const juce::DynamicObject::Ptr& fields)
{
    juce::DynamicObject::Ptr request(new juce::DynamicObject());
    request->setProperty("id", (juce::int64) id);
    request->setProperty("op", op);
    if (fields != nullptr)
        for (const auto& field : fields->getProperties())
            request->setProperty(field.name, field.value);
    return juce::JSON::toString(juce::var(request.get()), true) + "\n";
}

DocksimLine DocksimProtocol::parseLine(const char* data, size_t size)
{
    if (size > maxLineBytes)
        return unreadable("a line of more than " + juce::String((juce::int64) maxLineBytes) + " bytes");
    const auto problem = screen(data, size);
    if (problem.isNotEmpty())
        return unreadable(problem);

    juce::var body;
    const auto parsed = juce::JSON::parse(juce::String::fromUTF8(data, (int) size), body);
    if (parsed.failed())
        return unreadable("not JSON (" + parsed.getErrorMessage() + ")");
    const auto* object = body.getDynamicObject();
    if (object == nullptr)
        return unreadable("not a JSON object");
    if (object->hasProperty("completion"))
        return classifyCompletion(body);
    if (object->hasProperty("id"))
        return classifyReply(body);
    return unreadable("neither 'id' nor 'completion'");
}

bool DocksimProtocol::readObject(const juce::var& body, const char* field, bool zeroAllowed,
                                 DockPlatform::Object& value, juce::String& problem)
{
    int64_t number = 0;
    if (!readInteger(body, field, zeroAllowed ? 0 : 1, maxObject, number, problem))
        return false;
    value = (DockPlatform::Object) number;
    return true;
}

bool DocksimProtocol::readObjects(const juce::var& body, const char* field,
                                  juce::Array<DockPlatform::Object>& values, juce::String& problem)
{
    const auto list = body[field];
    const auto* array = list.getArray();
    if (array == nullptr)
    {
        problem = "'" + juce::String(field) + "' is not an array";
        return false;
    }
    juce::Array<DockPlatform::Object> read;
    for (const auto& item : *array)
    {
        int64_t number = 0;
        if (!readInteger(item, number) || number < 1 || number > maxObject)
        {
            problem = "'" + juce::String(field) + "' holds " + item.toString().substring(0, 40)
                      + ", not an entry number";
            return false;
        }
        read.add((DockPlatform::Object) number);
    }
    values.swapWith(read);
    return true;
}

bool DocksimProtocol::readText(const juce::var& body, const char* field, juce::String& value, juce::String& problem)
{
    const auto text = body[field];
    if (!text.isString())
    {
        problem = "'" + juce::String(field) + "' is not a string";
        return false;
    }
    value = text.toString();
    return true;
}

bool DocksimProtocol::readProperty(const juce::var& body, const char* field, bool absentAllowed,
                                   juce::var& value, juce::String& problem)
{
    const auto* object = body.getDynamicObject();
    if (object == nullptr || !object->hasProperty(field))
    {
        if (absentAllowed)
        {
            value = juce::var();
            return true;
        }
        problem = "no '" + juce::String(field) + "'";
        return false;
    }
    if (!toProtocolValue(object->getProperty(field), value))
    {
        problem = "'" + juce::String(field) + "' holds a value that is no property";
        return false;
    }
    return true;
}

bool DocksimProtocol::toProtocolValue(const juce::var& value, juce::var& copy)
{
    if (value.isBool() || value.isString())
    {
        copy = value;
        return true;
    }
    int64_t number = 0;
    if (readInteger(value, number))
    {
        copy = (juce::int64) number;
        return true;
    }
    if (const auto* array = value.getArray())
    {
        juce::Array<juce::var> items;
        for (const auto& item : *array)
        {
            juce::var itemCopy;
            if (!toProtocolValue(item, itemCopy))
                return false;
            items.add(itemCopy);
        }
        copy = items;
        return true;
    }
    if (auto* object = value.getDynamicObject())
    {
        juce::DynamicObject::Ptr dictionary(new juce::DynamicObject());
        for (const auto& property : object->getProperties())
        {
            juce::var propertyCopy;
            if (!toProtocolValue(property.value, propertyCopy))
                return false;
            dictionary->setProperty(property.name, propertyCopy);
        }
        copy = juce::var(dictionary.get());
        return true;
    }
    return false;
}

juce::String DocksimProtocol::toHex(const void* data, size_t size)
{
    return juce::String::toHexString(data, (int) size, 0).toUpperCase();
}

bool DocksimProtocol::fromHex(const juce::String& hex, juce::MemoryBlock& data)
{
    const auto length = hex.length();
    if (length % 2 != 0)
        return false;
    juce::MemoryBlock bytes((size_t) length / 2);
    auto text = hex.getCharPointer();
    for (int i = 0; i < length / 2; ++i)
    {
        const int high = juce::CharacterFunctions::getHexDigitValue(text.getAndAdvance());
        const int low = juce::CharacterFunctions::getHexDigitValue(text.getAndAdvance());
        if (high < 0 || low < 0)
            return false;
        bytes[i] = (char) ((high << 4) | low);
    }
    data.swapWith(bytes);
    return true;
}
