#pragma once

#include "docks/platform/DockPlatform.h"

#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

/** A registry and a Thunderbolt dock driver in the process. Entries form a
    tree with paths and properties; an entry added with an identity is a dock,
    which runs each "sendCommand" it is given and publishes the answer under
    "HostComms"/"reply" as the driver does. Handles handed out are counted
    until released. Safe to use from a board's poll thread while scripted. */
class FakeTbtDockDriver : public NullDockPlatform
{
public:
    static constexpr const char* dockClass = "com_tarvoworks_driver_TbtDockDriver";

    /** How the driver answers one command. */
    enum class Answer { reply, noHostComms, replyNotText, propertiesFail, setFails };
    using Scripted = std::pair<Answer, juce::String>;

    struct Node
    {
        juce::String path;
        Entry parent = 0;
        juce::Array<Entry> children;
        bool childrenListable = true;
        juce::var properties { new juce::DynamicObject() };
        // A dock answers "?" and "@" with these, other commands from `answers`
        // (else "OK") and polls from `polls` (else an empty reply).
        juce::String identity, idReply;
        std::deque<Scripted> answers, polls;
        juce::StringArray commands; // all but the polls
        int pollsAnswered = 0;
        Scripted current;
    };

    /** An entry below `parent` (0: a root); a dock when `identity` is given. */
    Entry add(const juce::String& path, Entry parent = 0, const juce::String& identity = {},
              const juce::String& idReply = "R0");
    /** Changes an entry in place, under the fake's lock. */
    void edit(Entry entry, const std::function<void(Node&)>& change);
    /** A copy of the entry as it is now. */
    Node node(Entry entry) const;

    void willAnswer(Entry dock, const juce::String& text, Answer answer = Answer::reply);
    void willAnswerPoll(Entry dock, const juce::String& text, Answer answer = Answer::reply);
    void setProperty(Entry entry, const juce::String& key, const juce::var& value);

    /** References handed out and not given back. */
    int outstanding() const;
    /** Releases of a handle that held no reference. */
    int overReleases() const;

    Result matchServicesByClass(const juce::String& className, juce::Array<Entry>& services) override;
    bool getPath(Entry entry, juce::String& path) override;
    Entry entryForPath(const juce::String& path) override;
    Entry getParent(Entry entry) override;
    bool getChildren(Entry entry, juce::Array<Entry>& children) override;
    juce::var searchProperty(Entry entry, const juce::String& key) override;
    bool getProperties(Entry entry, juce::var& properties) override;
    Result setProperties(Entry entry, const juce::var& properties) override;
    void release(Object object) override;

private:
    Entry handOut(Entry entry);

    mutable std::mutex lock;
    std::map<Entry, Node> nodes;
    std::map<Entry, int> references;
    int overReleased = 0;
    Entry nextEntry = 100;
};
