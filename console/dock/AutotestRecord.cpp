#include "console/dock/AutotestRecord.h"

#include <cstdlib>
#include <ctime>

namespace
{
juce::var objectVar(juce::DynamicObject::Ptr object)
{
    return juce::var(object.get());
}

juce::Array<juce::var>& listOf(juce::DynamicObject& object, const juce::Identifier& key)
{
    if (!object.hasProperty(key))
        object.setProperty(key, juce::Array<juce::var>());
    return *object.getProperty(key).getArray();
}

/** Compact UTC time for file names: sorts by time and needs no quoting. */
juce::String fileTime(juce::Time t)
{
    const time_t seconds = (time_t) (t.toMilliseconds() / 1000);
    tm utc {};
    gmtime_r(&seconds, &utc);
    char text[32];
    strftime(text, sizeof text, "%Y%m%dT%H%M%S", &utc);
    return juce::String(text) + juce::String::formatted(".%03dZ", (int) (t.toMilliseconds() % 1000));
}

/** Keeps a dock serial from reaching outside the record directory. */
juce::String fileSafe(const juce::String& text)
{
    juce::String safe;
    for (auto c : text)
        safe += juce::CharacterFunctions::isLetterOrDigit(c) || c == '-' ? c : (juce::juce_wchar) '-';
    return safe.isEmpty() ? juce::String("unknown") : safe;
}
}

const char* AutotestRecord::outcomeName(Outcome outcome)
{
    switch (outcome)
    {
        case Outcome::pass: return "PASS";
        case Outcome::fail: return "FAIL";
        case Outcome::error: return "ERROR";
        case Outcome::skipped: return "SKIPPED";
    }
    return "ERROR";
}

AutotestRecord::AutotestRecord(const juce::String& type, const juce::String& tag, int id, const juce::String& firmware)
    : dockType(type), dockTag(tag), firmwareVersion(firmware), boardId(id), startTime(juce::Time::getCurrentTime())
{
}

juce::DynamicObject::Ptr AutotestRecord::openStep()
{
    // Readings taken before any heading still belong somewhere.
    if (current == nullptr)
        beginStep("(unnamed)");
    return current;
}

void AutotestRecord::beginStep(const juce::String& name, int number)
{
    current = new juce::DynamicObject();
    if (number > 0)
        current->setProperty("number", number);
    current->setProperty("name", name);
}

void AutotestRecord::measure(const juce::String& name, const juce::var& value, const juce::String& unit,
                             const juce::var& lowerLimit, const juce::var& upperLimit)
{
    juce::DynamicObject::Ptr m = new juce::DynamicObject();
    m->setProperty("name", name);
    m->setProperty("value", value);
    if (unit.isNotEmpty())
        m->setProperty("unit", unit);
    if (!lowerLimit.isVoid())
        m->setProperty("lowerLimit", lowerLimit);
    if (!upperLimit.isVoid())
        m->setProperty("upperLimit", upperLimit);
    listOf(*openStep(), "measurements").add(objectVar(m));
}

void AutotestRecord::question(const juce::String& text, const juce::String& answer, bool yes)
{
    juce::DynamicObject::Ptr q = new juce::DynamicObject();
    q->setProperty("question", text);
    q->setProperty("answer", answer);
    q->setProperty("yes", yes);
    listOf(*openStep(), "questions").add(objectVar(q));
}

void AutotestRecord::note(const juce::String& text)
{
    listOf(*openStep(), "notes").add(text);
}

void AutotestRecord::endStep(Outcome outcome)
{
    openStep()->setProperty("outcome", outcomeName(outcome));
    steps.add(objectVar(current));
    current = nullptr;
}

void AutotestRecord::finish(bool passed, bool wasInterrupted)
{
    endTime = juce::Time::getCurrentTime();
    interrupted = wasInterrupted;
    result = wasInterrupted ? "INCOMPLETE" : passed ? "PASS" : "FAIL";
}

juce::var AutotestRecord::toVar() const
{
    juce::DynamicObject::Ptr r = new juce::DynamicObject();
    r->setProperty("recordVersion", 1);
    r->setProperty("dockType", dockType);
    r->setProperty("boardId", boardId);
    r->setProperty("firmwareVersion", firmwareVersion);
    r->setProperty("dockSerial", dockSerial);
    r->setProperty("startTime", startTime.toISO8601(true));
    r->setProperty("endTime", endTime.toISO8601(true));
    r->setProperty("steps", steps);
    r->setProperty("interrupted", interrupted);
    r->setProperty("result", result);
    return objectVar(r);
}

juce::String AutotestRecord::fileName() const
{
    return dockTag + "_" + fileSafe(dockSerial) + "_" + fileTime(startTime) + ".json";
}

juce::Result AutotestRecord::writeInto(const juce::File& directory, juce::File& written) const
{
    if (!directory.isDirectory())
        return juce::Result::fail("not a directory: " + directory.getFullPathName());

    written = directory.getChildFile(fileName());
    // Hidden and without the .json ending, so nobody collects it by mistake.
    const auto partial = directory.getChildFile("." + written.getFileName() + ".partial");
    {
        juce::FileOutputStream out(partial);
        if (out.failedToOpen())
            return juce::Result::fail("cannot create " + partial.getFullPathName());
        out.setPosition(0);
        out.truncate();
        out.writeText(juce::JSON::toString(toVar()) + "\n", false, false, "\n");
        out.flush();
        if (out.getStatus().failed())
        {
            partial.deleteFile();
            return out.getStatus();
        }
    }
    if (!partial.moveFileTo(written))
    {
        partial.deleteFile();
        return juce::Result::fail("cannot rename " + partial.getFullPathName());
    }
    return juce::Result::ok();
}

juce::File AutotestRecord::directoryFromEnvironment()
{
    const char* dir = getenv("AVRTEST_RECORD_DIR");
    if (dir == nullptr || *dir == 0)
        return {};
    return juce::File::getCurrentWorkingDirectory().getChildFile(dir);
}
