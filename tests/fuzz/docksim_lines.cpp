// The product's side of the dock emulator's socket: every line it may read,
// classified, and the fields the dock platform reads from replies.
#include "FuzzSupport.h"

#include "docks/platform/emulated/DocksimProtocol.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    const auto line = DocksimProtocol::parseLine((const char*) data, size);
    using Kind = DocksimLine::Kind;
    if (line.kind == Kind::reply)
    {
        fuzz::check(line.reply.id >= 1, "a reply names a request");
        const auto& body = line.reply.body;
        juce::String problem, text;
        DockPlatform::Object object = 0;
        juce::Array<DockPlatform::Object> objects;
        juce::var property;
        DocksimProtocol::readObject(body, "entry", false, object, problem);
        DocksimProtocol::readObject(body, "connection", true, object, problem);
        DocksimProtocol::readObjects(body, "entries", objects, problem);
        // Reply text is cut and copied further on (an event's payload is all but its letter).
        if (DocksimProtocol::readText(body, "path", text, problem))
            fuzz::check(text.substring(1).length() == juce::jmax(0, text.length() - 1), "reply text can be cut");
        DocksimProtocol::readProperty(body, "properties", false, property, problem);
        DocksimProtocol::readProperty(body, "value", true, property, problem);
        for (const auto o : objects)
            fuzz::check(o >= 1, "entry numbers are positive");
    }
    else if (line.kind == Kind::completion)
    {
        fuzz::check(line.completion.call >= 1 && line.completion.argc <= DocksimProtocol::maxArgc,
                    "a completion names its call and a bounded argument count");
        juce::MemoryBlock again;
        const auto& bytes = line.completion.data;
        fuzz::check(DocksimProtocol::fromHex(DocksimProtocol::toHex(bytes.getData(), bytes.getSize()), again)
                        && (bytes.isEmpty() ? again.isEmpty() : again == bytes), "completion data survives hex");
    }
    else if (line.kind == Kind::unreadable)
        fuzz::check(line.problem.isNotEmpty(), "an unreadable line says why");
    return 0;
}
