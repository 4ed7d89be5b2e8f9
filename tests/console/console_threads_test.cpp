// The remote's event thread drives the demonstration's menu while the console thread animates it, both drawing.
#include "console/ConsoleListeners.h"
#include "console/ConsoleSession.h"
#include "console/RemoteDisplayDemo.h"

#include <atomic>

namespace
{
struct KeyCounter : AVRRemoteEventListener
{
    using AVRRemoteEventListener::AVRRemoteEventListener;
    void keyEvent(int k) override
    {
        AVRRemoteEventListener::keyEvent(k);
        ++keys; // only once the demonstration has had the key
    }
    std::atomic<int> keys { 0 };
};
}

TEST(ConsoleThreads, RemoteEventsDriveTheDemonstrationWhileItAnimates)
{
    TempDevDir dir;
    ScriptedBoard remote(dir.path(), "tty.usbserial-REMOTE", "Remote Control AVR board V1.00");
    std::atomic<int> drawings { 0 };
    remote.setHandler([&](const std::string& line) -> std::optional<std::vector<std::string>> {
        if (line.empty() || line[0] != 'G')
            return std::nullopt;
        ++drawings;
        return std::vector<std::string> { "OK" };
    });

    RemoteBoard board;
    ASSERT_TRUE(board.findAndOpen(0));
    RemoteDisplayDemo demo;
    KeyCounter counter(RemoteBoardEventListener::allEvents, demo);
    board.registerListener(&counter);

    demo.begin(board);
    const std::vector<std::string> round { "k0010", "e02", "r40", "k0000", "k0004", "k0000",
                                           "k0020", "e01", "k0000", "k0004", "k0000" };
    constexpr int rounds = 10;
    for (int i = 0; i < rounds; ++i)
        for (auto& line : round)
            remote.event(line);

    const int keysPerRound = 8;
    int64_t now = 0;
    EXPECT_TRUE(waitUntil([&] {
        demo.animate(now += 4);
        return counter.keys.load() >= rounds * keysPerRound;
    }));
    // Every round ends back on the main screen.
    EXPECT_TRUE(waitUntil([&] { return !demo.subScreenOpen(); }));
    demo.end();
    EXPECT_GT(drawings.load(), rounds * 4);

    board.closeBoard(false);
    board.deregisterListener(&counter);
}
