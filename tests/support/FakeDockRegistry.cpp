#include "support/FakeDockRegistry.h"

using Entry = DockPlatform::Entry;

Entry FakeDockRegistry::add(const juce::String& path, Entry parent, const juce::String& matchedAs)
{
    const Guard g(lock);
    const Entry entry = nextEntry++;
    auto& n = nodes[entry];
    n.path = path;
    n.parent = parent;
    n.matchedAs = matchedAs;
    if (parent != 0)
        nodes[parent].children.add(entry);
    return entry;
}

int FakeDockRegistry::outstanding() const
{
    const Guard g(lock);
    int total = 0;
    for (const auto& held : references)
        total += held.second;
    return total;
}

DockPlatform::Result FakeDockRegistry::match(const juce::String& matchedAs, juce::Array<Entry>& services)
{
    const Guard g(lock);
    if (matchResult != success)
        return matchResult;
    for (const auto& [entry, n] : nodes)
        if (n.matchedAs == matchedAs)
            services.add(handOut(entry));
    return success;
}

bool FakeDockRegistry::getPath(Entry entry, juce::String& path)
{
    const Guard g(lock);
    const auto it = nodes.find(entry);
    if (it != nodes.end())
        path = it->second.path;
    return it != nodes.end();
}

Entry FakeDockRegistry::entryForPath(const juce::String& path)
{
    const Guard g(lock);
    for (const auto& [entry, n] : nodes)
        if (n.path == path)
            return handOut(entry);
    return 0;
}

Entry FakeDockRegistry::getParent(Entry entry)
{
    const Guard g(lock);
    const auto it = nodes.find(entry);
    return it == nodes.end() ? 0 : handOut(it->second.parent);
}

bool FakeDockRegistry::getChildren(Entry entry, juce::Array<Entry>& children)
{
    const Guard g(lock);
    const auto it = nodes.find(entry);
    if (it == nodes.end() || !it->second.childrenListable)
        return false;
    for (auto child : it->second.children)
        children.add(handOut(child));
    return true;
}

juce::var FakeDockRegistry::searchProperty(Entry entry, const juce::String& key)
{
    const Guard g(lock);
    for (auto it = nodes.find(entry); it != nodes.end(); it = nodes.find(it->second.parent))
        if (it->second.properties.hasProperty(key))
            return it->second.properties[juce::Identifier(key)].clone();
    return {};
}

bool FakeDockRegistry::getProperties(Entry entry, juce::var& properties)
{
    const Guard g(lock);
    const auto it = nodes.find(entry);
    // A copy: a board reads it on its own thread while the test edits.
    if (it != nodes.end())
        properties = it->second.properties.clone();
    return it != nodes.end();
}

void FakeDockRegistry::release(Object object)
{
    const Guard g(lock);
    if (object == 0)
        return;
    auto& count = references[object];
    if (count == 0)
        ++overReleased;
    else
        --count;
}
