#include "support/PtyPeer.h"

#include "link/ComPort.h"
#include "link/ConsoleTerminal.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
struct ComPortOnPty : ::testing::Test
{
    TempDevDir dev;
    PtyPeer peer { dev.path(), "ttyUSB0" };
    ComPort port;
    LogCapture log;

    void SetUp() override
    {
        ASSERT_TRUE(port.open(0, true));
        ASSERT_TRUE(port.set(19200, 8, ComPort::parityNone, 1, ComPort::flowNone));
    }
};

/** Read ("syscr:") or write ("syscw:") calls made so far by the calling thread. */
long callsOfThisThread(const std::string& which)
{
    std::ifstream io("/proc/thread-self/io");
    std::string key;
    long value = -1;
    while (io >> key >> value)
        if (key == which)
            return value;
    return -1;
}
}

TEST(ComPortNaming, AdaptorsAreNumberedInSortedOrderAndNeverRenumbered)
{
    TempDevDir dev;
    PtyPeer usb1(dev.path(), "ttyUSB1"), usbB(dev.path(), "tty.usbserial-B"), acm(dev.path(), "ttyACM0");
    PtyPeer s3(dev.path(), "ttyS3");
    const std::pair<const char*, int> numbers[] = {
        { "tty.usbserial-B", 0 }, { "ttyACM0", 1 }, { "ttyUSB1", 2 }, { "ttyS3", -1 } };
    for (auto& [name, number] : numbers)
        EXPECT_EQ(ComPort::usbPortNumber(name), number) << name;
    PtyPeer later(dev.path(), "tty.usbserial-A");
    EXPECT_EQ(ComPort::usbPortNumber("tty.usbserial-A"), 3) << "a new name goes to the end";
    EXPECT_EQ(ComPort::usbPortNumber("tty.usbserial-B"), 0);

    // A number equal to the count names no device; a held port cannot be opened twice.
    ComPort p, second;
    for (int bad : { 4, 5, -1 })
        EXPECT_FALSE(p.open(bad, true)) << bad;
    ASSERT_TRUE(p.open(1, true));
    EXPECT_EQ(p.getDevicePath(), juce::String(dev.path() + "/ttyACM0"));
    EXPECT_FALSE(second.open(1, true));
    p.close();
    EXPECT_TRUE(second.open(1, true));

    ASSERT_TRUE(p.open(3, false)) << "numbered ports are named by their number";
    EXPECT_FALSE(p.getIsUsb());
}

TEST_F(ComPortOnPty, ConfigurationFailuresLenienceAndDrain)
{
    termios before, after;
    ASSERT_TRUE(peer.settings(before));
    EXPECT_TRUE(port.set(12345, 8, ComPort::parityEven, 1, ComPort::flowNone)) << "unknown rates are accepted";
    ASSERT_TRUE(peer.settings(after));
    EXPECT_EQ(cfgetospeed(&after), cfgetospeed(&before)) << "and change nothing";
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_FALSE(port.set(19200, 9, ComPort::parityNone, 1, ComPort::flowNone));
    EXPECT_FALSE(port.set(19200, 8, ComPort::parityNone, 3, ComPort::flowNone));
    EXPECT_FALSE(port.set(19200, 8, ComPort::parityNone, 1, (ComPort::FlowControlType) 3));

    // A pty keeps eight data bits whatever it is asked for: the size goes unchecked.
    EXPECT_TRUE(port.set(9600, 7, ComPort::parityNone, 2, ComPort::flowNone));
    ASSERT_TRUE(peer.settings(after));
    EXPECT_EQ(cfgetospeed(&after), (speed_t) B9600);
    EXPECT_NE(after.c_cflag & CSTOPB, 0u);
    EXPECT_EQ(after.c_cc[VMIN], 0);
    EXPECT_EQ(after.c_cc[VTIME], 1);
    ComPort closed;
    EXPECT_FALSE(closed.set(19200, 8, ComPort::parityNone, 1, ComPort::flowNone));

    // ASCII noise arriving meanwhile is drained; a byte of 0x80 or above fails the drain.
    for (char c : { 'z', '\xA5' })
    {
        std::thread feed([this, c] {
            for (int i = 0; i < 15; ++i)
            {
                peer.write(std::string(1, c));
                juce::Thread::sleep(10);
            }
        });
        EXPECT_EQ(port.set(c == 'z' ? 9600 : 19200, 8, ComPort::parityNone, 1, ComPort::flowNone), c == 'z');
        feed.join();
        EXPECT_TRUE(c != 'z' || port.ready(100) == 0) << "the drain ran until the line was quiet";
    }

    // A line that never falls silent (for at most 20 s): trickling noise ends the drain by time, pouring by size.
    const struct { int bytesPerWrite, pauseMs; bool byTime; } endless[] = { { 2, 1, true }, { 256, 0, false } };
    int rate = 9600;
    for (auto& e : endless)
    {
        std::atomic<bool> chatter { true };
        std::thread noise([&] {
            const auto until = juce::Time::getMillisecondCounter() + 20000;
            while (chatter && juce::Time::getMillisecondCounter() < until)
            {
                peer.writeIfRoom(std::string((size_t) e.bytesPerWrite, 'z'));
                juce::Thread::sleep(e.pauseMs);
            }
        });
        // On a loaded machine the noise itself may pause for 50 ms and rightly end a drain.
        bool gaveUp = false;
        for (int attempt = 0; attempt < 5 && !gaveUp; ++attempt)
        {
            log.clear();
            gaveUp = !port.set(rate, 8, ComPort::parityNone, 1, ComPort::flowNone);
            rate = rate == 9600 ? 19200 : 9600;
        }
        chatter = false;
        noise.join();
        EXPECT_TRUE(gaveUp) << e.bytesPerWrite;
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), 1) << lines.joinIntoString("|");
        const juce::String start = "ComPort::set(" + port.getDevicePath() + ") gave up: the line did not fall silent (";
        EXPECT_TRUE(lines[0].startsWith(start)) << lines[0];
        const int ms = lines[0].fromLastOccurrenceOf(" in ", false, false).getIntValue();
        EXPECT_TRUE(e.byTime ? ms >= 600 : lines[0].contains("(4096 bytes in ")) << lines[0];
    }
}

TEST_F(ComPortOnPty, ReadFramingAndPerCharacterTimeouts)
{
    juce::String line;
    EXPECT_EQ(port.readChar(20), -1);
    peer.write("AB");
    EXPECT_EQ(port.readString(line, 1080, 200), 2) << "a timeout returns what came";
    EXPECT_EQ(line, "AB");
    peer.write("OK\r\n\r\nR1\n");
    for (const juce::String expected : { "OK", "", "R1" })  // an empty line is a line too
    {
        EXPECT_EQ(port.readString(line, 1080, 1000), expected.length());
        EXPECT_EQ(line, expected);
    }
    EXPECT_EQ(port.readString(line, 0, 1000), 0);
    peer.write(std::string(1085, 'x') + "\n");
    EXPECT_EQ(port.readString(line, 1080, 1000), 1080);
    EXPECT_EQ(port.readString(line, 1080, 1000), 5) << "the rest stays for the next call";

    // Signed on purpose: a byte of 0x80 or above is a failure, and what follows it stays.
    peer.write("ab\xC8" "cd\nA\xC8");
    EXPECT_EQ(port.readString(line, 1080, 1000), -1);
    EXPECT_EQ(port.readString(line, 1080, 1000), 2);
    EXPECT_EQ(line, "cd");
    EXPECT_EQ(port.readChar(1000), 'A');
    EXPECT_EQ(port.readChar(1000), (int) (signed char) 0xC8);

    // Twelve characters trickle in over far longer than the timeout, but no gap comes near it.
    std::thread slow([this] {
        for (char c : std::string("trickle-line\n"))
        {
            peer.write(std::string(1, c));
            juce::Thread::sleep(25);
        }
    });
    EXPECT_EQ(port.readString(line, 1080, 3000), 12);
    EXPECT_EQ(line, "trickle-line");
    slow.join();
}

TEST_F(ComPortOnPty, BatchedReadsAndWritesUntilTheDeviceIsFullOrGone)
{
    peer.write(std::string(1000, 'y') + "\n");
    ASSERT_EQ(port.ready(1000), 1);
    juce::String line;
    const long before = callsOfThisThread("syscr:");
    ASSERT_GE(before, 0) << "no per-thread I/O accounting";
    EXPECT_EQ(port.readString(line, 1080, 1000), 1000);
    EXPECT_LT(callsOfThisThread("syscr:") - before, 50) << "a line is fetched in a few calls, not one per byte";

    // The flush of a new configuration and a close drop what was fetched ahead.
    for (bool reconfigure : { true, false })
    {
        peer.write(reconfigure ? "x\xA5" : "xq");
        ASSERT_EQ(port.readChar(1000), 'x');
        if (reconfigure)
            EXPECT_TRUE(port.set(9600, 8, ComPort::parityNone, 1, ComPort::flowNone)) << "the drain saw a flushed byte";
        else
        {
            port.close();
            ASSERT_TRUE(port.open(0, true));
        }
        EXPECT_EQ(port.ready(0), 0) << reconfigure;
        peer.write("!");
        EXPECT_EQ(port.readChar(1000), '!') << reconfigure;
    }

    const std::string text(600, 'w');
    const long writes = callsOfThisThread("syscw:");
    EXPECT_TRUE(port.writeString(text.c_str(), 50));
    EXPECT_LT(callsOfThisThread("syscw:") - writes, 10) << "a line goes out in a few calls, not one per byte";
    std::string bytes;
    ASSERT_TRUE(peer.readBytes(bytes, text.size()));
    EXPECT_EQ(bytes, text);

    // Nobody reads the device any more: once it is full, a write waits no longer than its timeout.
    bool written = true;
    for (int i = 0; i < 10000 && written; ++i)
        written = port.writeString(text.c_str(), 50);
    EXPECT_FALSE(written);
    EXPECT_EQ(log.lines(), juce::StringArray { "ComPort::writeChar(" + port.getDevicePath() + ") timed out error 50" });

    EXPECT_FALSE(port.removed());
    peer.unplug();
    EXPECT_TRUE(port.removed());
    EXPECT_LT(port.readString(line, 1080, 200), 1) << "reads fail once the device is gone";
}

TEST(ConsoleInput, KeysModesAndControlC)
{
    // The child's standard input and output are a fresh terminal; each stage has its own exit status.
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master, 0);
    grantpt(master);
    unlockpt(master);
    const std::string slavePath = ptsname(master);
    const pid_t pid = fork();
    if (pid == 0)
    {
        const int s = ::open(slavePath.c_str(), O_RDWR);
        dup2(s, 0);
        dup2(s, 1);
        termios tio;
        const auto lineMode = [&tio](tcflag_t flags) { return tcgetattr(1, &tio) == 0 && (tio.c_lflag & flags) != 0; };
        if (getch() != 'k' || !lineMode(ICANON))
            _exit(2);  // one key, then line mode again
        if (kbhit() || waitForKey(30) || lineMode(ICANON | ECHO))
            _exit(3);  // nothing typed yet, and single-key mode from now on
        printf("waiting\n");
        fflush(stdout);
        // Far beyond the test's own deadline: only the key, sent without a line end, ends it.
        if (!waitForKey(600000) || !kbhit() || getch() != 'q')
            _exit(4);
        resetTTY();
        if (!lineMode(ICANON))
            _exit(5);
        static std::atomic<int> calls { 0 };
        setControlCHandler([] { ++calls; });
        std::thread other([] {
            juce::Thread::sleep(100);
            raise(SIGINT);  // handled on this thread, not the waiting one
        });
        const bool key = waitForKey(600000);
        other.join();
        _exit(!key && calls == 1 ? 0 : 6);
    }
    EXPECT_EQ(::write(master, "k", 1), 1);
    std::string seen;
    char buf[64];
    for (ssize_t n = 1; n > 0 && seen.find("waiting") == std::string::npos;)
        if ((n = ::read(master, buf, sizeof buf)) > 0)
            seen.append(buf, (size_t) n);
    EXPECT_EQ(::write(master, "q", 1), 1);
    int status = 0;
    if (!waitUntil([&] { return waitpid(pid, &status, WNOHANG) == pid; }, 60000))
    {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    ::close(master);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}
