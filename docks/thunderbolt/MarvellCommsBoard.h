#pragma once

#include "docks/platform/DockPlatform.h"
#include "link/HardwareBoard.h"

#include <memory>

/** The board link to a Thunderbolt dock: each command line is written as the
    "sendCommand" property of the dock driver's registry entry, and the reply is
    read back from the entry's "HostComms" dictionary. The board's own thread
    polls the dock for events.

    Subclasses must call closeBoard(false) in their own destructor: the poll
    thread calls eventReceived, which is gone once this destructor runs. */
class MarvellCommsBoard : public HardwareBoard
{
public:
    static constexpr int threadStopTimeoutMs = 10000;
    static constexpr int idlePollPauseMs = 250;

    explicit MarvellCommsBoard(std::shared_ptr<DockPlatform> platform);
    ~MarvellCommsBoard() override;

    void run() override;
    bool findAndOpen(int boardId) override;
    bool syncState() override;
    void closeBoard(bool fromOwnThread) override;
    bool sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse) override;

    // --- further slots, in this order ---
    /** The driver class whose services are searched for the dock. */
    virtual const char* serviceNameString() const = 0;
    /** Decodes one event text the poll received. */
    virtual void eventReceived(const juce::String& text) = 0;

    /** Leaves the board open on the first service of `className` whose dock
        identifies as `serviceName` (and, for an `id` of 0 or more, answers
        that id) and that no other board of the process holds. */
    void searchForBoard(const char* className, const char* serviceName, int id);

    /** The registry path of the open dock, empty when closed. */
    juce::String getServicePath() const;

    /** The registry paths of every dock open in this process. */
    static juce::StringArray servicePaths;
    /** Guards servicePaths and makes discovery and closing of all Thunderbolt
        boards mutually exclusive. Taken before an exchange lock, never under one. */
    static juce::CriticalSection pathLock;

protected:
    DockPlatform& getPlatform() const noexcept { return *platform; }

private:
    /** Ends the search on `candidate`, or hands it back to the platform. */
    bool tryService(DockPlatform::Entry candidate, const char* serviceName, int id);
    void closeOpenBoard(bool fromOwnThread);

    const std::shared_ptr<DockPlatform> platform;
    juce::String servicePath;
    DockPlatform::Entry service = 0;
    // Serialises exchanges: a command and a poll never interleave their
    // set-property and read-property steps.
    juce::CriticalSection exchangeLock;

    JUCE_DECLARE_NON_COPYABLE(MarvellCommsBoard)
};
