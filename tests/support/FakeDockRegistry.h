#pragma once

#include "docks/platform/DockPlatform.h"

#include <functional>
#include <map>
#include <mutex>

/** A device registry behind the platform seam that logs driver calls and counts each handle until given back;
    safe from a board's threads while the test scripts it. */
class FakeDockRegistry : public NullDockPlatform
{
public:
    using Guard = std::lock_guard<std::recursive_mutex>;
    struct Node
    {
        juce::String path, matchedAs; // matchedAs: "name:..." or "class:..."
        Entry parent = 0;
        juce::Array<Entry> children;
        bool childrenListable = true;
        juce::var properties { new juce::DynamicObject() };
    };

    Entry add(const juce::String& path, Entry parent = 0, const juce::String& matchedAs = {});
    void edit(Entry entry, const std::function<void(Node&)>& change) { const Guard g(lock); change(nodes.at(entry)); }
    void setProperty(Entry entry, const juce::String& key, const juce::var& value)
    {
        edit(entry, [&](Node& n) { n.properties.getDynamicObject()->setProperty(key, value); });
    }
    Result matchResult = success;

    juce::StringArray calls() const { const Guard g(lock); return log; }
    void clearCalls() { const Guard g(lock); log.clear(); }
    /** References handed out and not given back. */
    int outstanding() const;
    /** Releases of a handle that held no reference. */
    int overReleases() const { const Guard g(lock); return overReleased; }
    bool balanced() const { return outstanding() == 0 && overReleases() == 0; }

    Result matchServicesByName(const juce::String& name, juce::Array<Entry>& services) override
    {
        return match("name:" + name, services);
    }
    Result matchServicesByClass(const juce::String& name, juce::Array<Entry>& services) override
    {
        return match("class:" + name, services);
    }
    bool getPath(Entry entry, juce::String& path) override;
    Entry entryForPath(const juce::String& path) override;
    Entry getParent(Entry entry) override;
    bool getChildren(Entry entry, juce::Array<Entry>& children) override;
    juce::var searchProperty(Entry entry, const juce::String& key) override;
    bool getProperties(Entry entry, juce::var& properties) override;
    void release(Object object) override;

protected:
    /** Counts one more reference to `entry` (none for 0); the caller holds the lock. */
    Entry handOut(Entry entry)
    {
        if (entry != 0)
            ++references[entry];
        return entry;
    }
    void record(const juce::String& call) { const Guard g(lock); log.add(call); }

    mutable std::recursive_mutex lock;
    std::map<Entry, Node> nodes;

private:
    Result match(const juce::String& matchedAs, juce::Array<Entry>& services);

    std::map<Object, int> references;
    int overReleased = 0;
    Entry nextEntry = 100;
    juce::StringArray log;
};
