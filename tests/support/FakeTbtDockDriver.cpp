#include "support/FakeTbtDockDriver.h"

using Entry = DockPlatform::Entry;
using Guard = std::lock_guard<std::recursive_mutex>;

Entry FakeTbtDockDriver::addDock(const juce::String& path, const juce::String& identity, const juce::String& idReply,
                                 Entry parent)
{
    const Guard g(lock);
    const auto dock = add(path, parent, juce::String("class:") + dockClass);
    docks[dock].identity = identity;
    docks[dock].idReply = idReply;
    return dock;
}

void FakeTbtDockDriver::willAnswer(Entry dock, const juce::String& text, Answer answer)
{
    const Guard g(lock);
    docks.at(dock).answers.push_back({ answer, text });
}

void FakeTbtDockDriver::willAnswerPoll(Entry dock, const juce::String& text, Answer answer)
{
    const Guard g(lock);
    docks.at(dock).polls.push_back({ answer, text });
}

int FakeTbtDockDriver::pollsAnswered(Entry dock) const
{
    const Guard g(lock);
    return docks.at(dock).pollsAnswered;
}

bool FakeTbtDockDriver::getProperties(Entry entry, juce::var& properties)
{
    const Guard g(lock);
    const auto dock = docks.find(entry);
    const auto answer = dock == docks.end() ? Answer::noHostComms : dock->second.current.first;
    if (answer == Answer::propertiesFail || !FakeDockRegistry::getProperties(entry, properties))
        return false;
    if (answer != Answer::noHostComms)
    {
        auto* hostComms = new juce::DynamicObject();
        const auto& text = dock->second.current.second;
        hostComms->setProperty("reply", answer == Answer::replyNotText ? juce::var(42) : juce::var(text));
        properties.getDynamicObject()->setProperty("HostComms", juce::var(hostComms));
    }
    return true;
}

DockPlatform::Result FakeTbtDockDriver::setProperties(Entry entry, const juce::var& properties)
{
    const Guard g(lock);
    const auto found = docks.find(entry);
    const auto command = properties["sendCommand"];
    if (found == docks.end() || !command.isString())
        return resultBadArgument;

    auto& dock = found->second;
    const auto text = command.toString();
    const bool poll = text == "&";
    if (poll)
        ++dock.pollsAnswered;
    else
        record(nodes.at(entry).path + " " + text);

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
