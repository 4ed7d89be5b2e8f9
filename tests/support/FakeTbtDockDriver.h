#pragma once

#include "support/FakeDockRegistry.h"

#include <deque>
#include <utility>

/** A Thunderbolt dock driver in the registry: a dock runs each "sendCommand"
    it is given and publishes the answer under "HostComms"/"reply", as the
    driver does. It answers "?" with its identity, "@" with its id reply, polls
    ("&") as scripted or else with nothing, and other commands as scripted or
    else with "OK"; those other commands are recorded as "<path> <command>". */
class FakeTbtDockDriver : public FakeDockRegistry
{
public:
    static constexpr const char* dockClass = "com_tarvoworks_driver_TbtDockDriver";

    enum class Answer { reply, noHostComms, replyNotText, propertiesFail, setFails };

    Entry addDock(const juce::String& path, const juce::String& identity, const juce::String& idReply = "R0", Entry parent = 0);
    void willAnswer(Entry dock, const juce::String& text, Answer answer = Answer::reply);
    void willAnswerPoll(Entry dock, const juce::String& text, Answer answer = Answer::reply);
    int pollsAnswered(Entry dock) const;

    bool getProperties(Entry entry, juce::var& properties) override;
    Result setProperties(Entry entry, const juce::var& properties) override;

private:
    using Scripted = std::pair<Answer, juce::String>;
    struct Dock
    {
        juce::String identity, idReply;
        std::deque<Scripted> answers, polls;
        int pollsAnswered = 0;
        Scripted current;
    };
    std::map<Entry, Dock> docks;
};
