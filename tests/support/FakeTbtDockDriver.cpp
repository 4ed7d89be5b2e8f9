#include "support/FakeTbtDockDriver.h"

using Entry = DockPlatform::Entry;

Entry FakeTbtDockDriver::add(const juce::String& path, Entry parent, const juce::String& identity,
                             const juce::String& idReply)
{
    const std::lock_guard<std::mutex> g(lock);
    const Entry entry = nextEntry++;
    auto& n = nodes[entry];
    n.path = path;
    n.parent = parent;
    n.identity = identity;
    n.idReply = idReply;
    if (parent != 0)
        nodes[parent].children.add(entry);
    return entry;
}

void FakeTbtDockDriver::edit(Entry entry, const std::function<void(Node&)>& change)
{
    const std::lock_guard<std::mutex> g(lock);
    change(nodes.at(entry));
}

FakeTbtDockDriver::Node FakeTbtDockDriver::node(Entry entry) const
{
    const std::lock_guard<std::mutex> g(lock);
    return nodes.at(entry);
}

void FakeTbtDockDriver::willAnswer(Entry dock, const juce::String& text, Answer answer)
{
    edit(dock, [&](Node& n) { n.answers.push_back({ answer, text }); });
}

void FakeTbtDockDriver::willAnswerPoll(Entry dock, const juce::String& text, Answer answer)
{
    edit(dock, [&](Node& n) { n.polls.push_back({ answer, text }); });
}

void FakeTbtDockDriver::setProperty(Entry entry, const juce::String& key, const juce::var& value)
{
    edit(entry, [&](Node& n) { n.properties.getDynamicObject()->setProperty(key, value); });
}

int FakeTbtDockDriver::outstanding() const
{
    const std::lock_guard<std::mutex> g(lock);
    int total = 0;
    for (const auto& held : references)
        total += held.second;
    return total;
}

int FakeTbtDockDriver::overReleases() const
{
    const std::lock_guard<std::mutex> g(lock);
    return overReleased;
}

Entry FakeTbtDockDriver::handOut(Entry entry)
{
    if (entry != 0)
        ++references[entry];
    return entry;
}

//==============================================================================
DockPlatform::Result FakeTbtDockDriver::matchServicesByClass(const juce::String& className, juce::Array<Entry>& services)
{
    const std::lock_guard<std::mutex> g(lock);
    for (const auto& [entry, n] : nodes)
        if (className == dockClass && n.identity.isNotEmpty())
            services.add(handOut(entry));
    return success;
}

bool FakeTbtDockDriver::getPath(Entry entry, juce::String& path)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto it = nodes.find(entry);
    if (it != nodes.end())
        path = it->second.path;
    return it != nodes.end();
}

Entry FakeTbtDockDriver::entryForPath(const juce::String& path)
{
    const std::lock_guard<std::mutex> g(lock);
    for (const auto& [entry, n] : nodes)
        if (n.path == path)
            return handOut(entry);
    return 0;
}

Entry FakeTbtDockDriver::getParent(Entry entry)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto it = nodes.find(entry);
    return it == nodes.end() ? 0 : handOut(it->second.parent);
}

bool FakeTbtDockDriver::getChildren(Entry entry, juce::Array<Entry>& children)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto it = nodes.find(entry);
    if (it == nodes.end() || !it->second.childrenListable)
        return false;
    for (auto child : it->second.children)
        children.add(handOut(child));
    return true;
}

juce::var FakeTbtDockDriver::searchProperty(Entry entry, const juce::String& key)
{
    const std::lock_guard<std::mutex> g(lock);
    for (auto it = nodes.find(entry); it != nodes.end(); it = nodes.find(it->second.parent))
        if (it->second.properties.hasProperty(key))
            return it->second.properties[juce::Identifier(key)].clone();
    return {};
}

bool FakeTbtDockDriver::getProperties(Entry entry, juce::var& properties)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto it = nodes.find(entry);
    if (it == nodes.end() || it->second.current.first == Answer::propertiesFail)
        return false;
    // A copy: the board reads it on its own thread while the test edits.
    properties = it->second.properties.clone();
    const auto& [answer, text] = it->second.current;
    if (it->second.identity.isEmpty() || answer == Answer::noHostComms)
        return true;
    auto* hostComms = new juce::DynamicObject();
    hostComms->setProperty("reply", answer == Answer::replyNotText ? juce::var(42) : juce::var(text));
    properties.getDynamicObject()->setProperty("HostComms", juce::var(hostComms));
    return true;
}

DockPlatform::Result FakeTbtDockDriver::setProperties(Entry entry, const juce::var& properties)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto it = nodes.find(entry);
    const auto command = properties["sendCommand"];
    if (it == nodes.end() || it->second.identity.isEmpty() || !command.isString())
        return resultBadArgument;

    auto& dock = it->second;
    const auto text = command.toString();
    const bool poll = text == "&";
    if (poll)
        ++dock.pollsAnswered;
    else
        dock.commands.add(text);

    auto& queue = poll ? dock.polls : dock.answers;
    if (!queue.empty())
    {
        dock.current = queue.front();
        queue.pop_front();
    }
    else
    {
        dock.current = { Answer::reply, text == "?" ? dock.identity : text == "@" ? dock.idReply : poll ? "" : "OK" };
    }
    return dock.current.first == Answer::setFails ? resultNotAttached : success;
}

void FakeTbtDockDriver::release(Object object)
{
    const std::lock_guard<std::mutex> g(lock);
    if (object == 0)
        return;
    auto& count = references[object];
    if (count == 0)
        ++overReleased;
    else
        --count;
}
