#pragma once

#include "docks/platform/DockPlatform.h"

#include <functional>
#include <map>
#include <mutex>

/** A device registry in the process, behind the platform seam: a tree of
    entries with paths and properties, services matched by the name or class
    they were added under, a log of the driver calls the fakes built on it
    record, and every handle handed out counted until it is given back. Safe
    to use from a board's threads while the test scripts it. */
class FakeDockRegistry : public NullDockPlatform
{
public:
    struct Node
    {
        juce::String path, matchedAs; // matchedAs: "name:..." or "class:..."
        Entry parent = 0;
        juce::Array<Entry> children;
        bool childrenListable = true;
        juce::var properties { new juce::DynamicObject() };
    };

    Entry add(const juce::String& path, Entry parent = 0, const juce::String& matchedAs = {});
    /** Changes an entry in place, under the registry's lock. */
    void edit(Entry entry, const std::function<void(Node&)>& change);
    void setProperty(Entry entry, const juce::String& key, const juce::var& value);
    Result matchResult = success;

    juce::StringArray calls() const;
    void clearCalls();
    /** References handed out and not given back, and releases of a handle that held none. */
    int outstanding() const;
    int overReleases() const;
    bool balanced() const { return outstanding() == 0 && overReleases() == 0; }

    Result matchServicesByName(const juce::String& name, juce::Array<Entry>& services) override;
    Result matchServicesByClass(const juce::String& name, juce::Array<Entry>& services) override;
    bool getPath(Entry entry, juce::String& path) override;
    Entry entryForPath(const juce::String& path) override;
    Entry getParent(Entry entry) override;
    bool getChildren(Entry entry, juce::Array<Entry>& children) override;
    juce::var searchProperty(Entry entry, const juce::String& key) override;
    bool getProperties(Entry entry, juce::var& properties) override;
    void release(Object object) override;

protected:
    /** Counts one more reference to `entry` (none for 0); the caller holds the lock. */
    Entry handOut(Entry entry);
    void record(const juce::String& call);

    mutable std::recursive_mutex lock;
    std::map<Entry, Node> nodes;

private:
    Result match(const juce::String& matchedAs, juce::Array<Entry>& services);

    std::map<Object, int> references;
    int overReleased = 0;
    Entry nextEntry = 100;
    juce::StringArray log;
};
