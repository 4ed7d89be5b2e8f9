#include "support/PtyPeer.h"

#include "link/ComPort.h"
#include "link/ConsoleTerminal.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <fstream>
#include <sys/wait.h>
#include <thread>
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
}

TEST(ComPortNaming, UsbAdaptorsAreNumberedInSortedOrderAndNeverRenumbered)
{
    TempDevDir dev;
    PtyPeer usb1(dev.path(), "ttyUSB1"), usbB(dev.path(), "tty.usbserial-B"), acm(dev.path(), "ttyACM0");
    PtyPeer other(dev.path(), "ttyS7");

    EXPECT_EQ(ComPort::usbPortNumber("tty.usbserial-B"), 0);
    EXPECT_EQ(ComPort::usbPortNumber("ttyACM0"), 1);
    EXPECT_EQ(ComPort::usbPortNumber("ttyUSB1"), 2);
    EXPECT_EQ(ComPort::usbPortNumber("ttyS7"), -1) << "numbered ports are not adaptors";

    PtyPeer later(dev.path(), "tty.usbserial-A");
    EXPECT_EQ(ComPort::usbPortNumber("tty.usbserial-A"), 3) << "a new name goes to the end";
    EXPECT_EQ(ComPort::usbPortNumber("tty.usbserial-B"), 0);

    ComPort p;
    ASSERT_TRUE(p.open(1, true));
    EXPECT_EQ(p.getDevicePath(), juce::String(dev.path() + "/ttyACM0"));
    EXPECT_TRUE(p.getIsUsb());
    EXPECT_EQ(p.getPortNumber(), 1);
}

TEST(ComPortNaming, OpeningFailsPastTheKnownAdaptors)
{
    TempDevDir dev;
    PtyPeer a(dev.path(), "ttyUSB0");
    ComPort p;
    EXPECT_FALSE(p.open(1, true)) << "a number equal to the count names no device";
    EXPECT_FALSE(p.open(2, true));
    EXPECT_FALSE(p.open(-1, true));
    EXPECT_FALSE(p.isOpen());
    EXPECT_TRUE(p.open(0, true));
}

TEST(ComPortNaming, NumberedPortsAndMissingDirectory)
{
    TempDevDir dev;
    PtyPeer s3(dev.path(), "ttyS3");
    ComPort p;
    EXPECT_FALSE(p.open(2, false));
    ASSERT_TRUE(p.open(3, false));
    EXPECT_FALSE(p.getIsUsb());
    p.close();

    setenv("AVRTEST_DEV_DIR", (dev.path() + "/nowhere").c_str(), 1);
    ComPort q;
    EXPECT_FALSE(q.open(0, true));
}

TEST(ComPortNaming, ASecondOpenOfALockedPortFails)
{
    TempDevDir dev;
    PtyPeer a(dev.path(), "ttyUSB0");
    ComPort first, second;
    ASSERT_TRUE(first.open(0, true));
    EXPECT_FALSE(second.open(0, true));
    first.close();
    EXPECT_FALSE(first.isOpen());
    EXPECT_TRUE(second.open(0, true));
}

TEST_F(ComPortOnPty, ConfigurationFailuresAndLenience)
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

    // (A pty keeps eight data bits whatever it is asked for, so the data size
    // cannot be checked here.)
    EXPECT_TRUE(port.set(9600, 7, ComPort::parityNone, 2, ComPort::flowNone));
    ASSERT_TRUE(peer.settings(after));
    EXPECT_EQ(cfgetospeed(&after), (speed_t) B9600);
    EXPECT_NE(after.c_cflag & CSTOPB, 0u);
    EXPECT_EQ(after.c_cc[VMIN], 0);
    EXPECT_EQ(after.c_cc[VTIME], 1);

    ComPort closed;
    EXPECT_FALSE(closed.set(19200, 8, ComPort::parityNone, 1, ComPort::flowNone));
}

TEST_F(ComPortOnPty, ConfigurationDrainsWhatArrivesAndFailsOnHighBytes)
{
    // Bytes keep arriving while the port is configured: ASCII noise is
    // drained, a byte of 0x80 or above makes the drain fail.
    auto feed = [this](char c) {
        return std::thread([this, c] {
            for (int i = 0; i < 15; ++i)
            {
                peer.write(std::string(1, c));
                juce::Thread::sleep(10);
            }
        });
    };
    auto t = feed('z');
    EXPECT_TRUE(port.set(9600, 8, ComPort::parityNone, 1, ComPort::flowNone));
    t.join();
    EXPECT_EQ(port.ready(100), 0) << "the drain ran until the line was quiet";

    t = feed('\xA5');
    EXPECT_FALSE(port.set(19200, 8, ComPort::parityNone, 1, ComPort::flowNone));
    t.join();

    // A line that never falls silent: the drain gives up, by time when the
    // noise trickles and by size when it pours, instead of holding on for as
    // long as the noise lasts (here at most 20 s).
    const struct
    {
        int bytesPerWrite, pauseMs;
        bool byTime;
    } endless[] = { { 2, 1, true }, { 256, 0, false } };
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
        // On a loaded machine the noise itself may pause for 50 ms, which
        // rightly ends a drain: a few attempts are allowed for that.
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
        if (e.byTime)
            EXPECT_GE(lines[0].fromLastOccurrenceOf(" in ", false, false).getIntValue(), 600) << lines[0];
        else
            EXPECT_TRUE(lines[0].contains("(4096 bytes in ")) << lines[0];
    }
}

TEST_F(ComPortOnPty, ReadStringFraming)
{
    juce::String line;
    peer.write("OK\r\n");
    EXPECT_EQ(port.readString(line, 1080, 1000), 2);
    EXPECT_EQ(line, "OK");

    peer.write("\r\nR1\n");
    EXPECT_EQ(port.readString(line, 1080, 1000), 0) << "an empty line";
    EXPECT_EQ(line, "");
    EXPECT_EQ(port.readString(line, 1080, 1000), 2);
    EXPECT_EQ(line, "R1");

    EXPECT_EQ(port.readString(line, 0, 1000), 0);

    peer.write(std::string(1085, 'x') + "\n");
    EXPECT_EQ(port.readString(line, 1080, 1000), 1080);
    EXPECT_EQ(line.length(), 1080);
    EXPECT_EQ(port.readString(line, 1080, 1000), 5) << "the rest stays for the next call";

    peer.write("ab\xC8" "cd\n");
    EXPECT_EQ(port.readString(line, 1080, 1000), -1);
    EXPECT_EQ(port.readString(line, 1080, 1000), 2) << "what follows the bad byte stays";
    EXPECT_EQ(line, "cd");
}

namespace
{
/** Read calls made so far by the calling thread. */
long readCallsOfThisThread()
{
    std::ifstream io("/proc/thread-self/io");
    std::string key;
    long value = -1;
    while (io >> key >> value)
        if (key == "syscr:")
            return value;
    return -1;
}
}

TEST_F(ComPortOnPty, ReadAheadIsServedInOrderAndDroppedWithTheDeviceQueue)
{
    const std::string text = std::string(1000, 'y') + "\n";
    peer.write(text);
    ASSERT_EQ(port.ready(1000), 1);
    juce::String line;
    const long before = readCallsOfThisThread();
    ASSERT_GE(before, 0) << "no per-thread I/O accounting";
    EXPECT_EQ(port.readString(line, 1080, 1000), 1000);
    EXPECT_LT(readCallsOfThisThread() - before, 50) << "a line is fetched in a few calls, not one per byte";

    // Bytes fetched ahead belong to the device's queue: the flush of a new
    // configuration and a close drop them as they drop the device's own.
    const struct
    {
        const char* sent;
        bool reconfigure;
    } dropped[] = { { "x\xA5", true }, { "xq", false } };
    for (auto& d : dropped)
    {
        peer.write(d.sent);
        ASSERT_EQ(port.readChar(1000), 'x');
        if (d.reconfigure)
            EXPECT_TRUE(port.set(9600, 8, ComPort::parityNone, 1, ComPort::flowNone)) << "the drain saw a flushed byte";
        else
        {
            port.close();
            ASSERT_TRUE(port.open(0, true));
        }
        EXPECT_EQ(port.ready(0), 0) << d.sent;
        peer.write("!");
        EXPECT_EQ(port.readChar(1000), '!') << d.sent;
    }
}

TEST_F(ComPortOnPty, TimeoutsArePerCharacter)
{
    juce::String line;
    EXPECT_EQ(port.readString(line, 1080, 50), 0);

    peer.write("AB");
    EXPECT_EQ(port.readString(line, 1080, 200), 2) << "a timeout returns what came";
    EXPECT_EQ(line, "AB");

    // Twelve characters trickle in over far longer than the timeout, but no
    // gap between two of them comes near it.
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

TEST_F(ComPortOnPty, ReadCharIsSigned)
{
    EXPECT_EQ(port.readChar(20), -1);
    peer.write("A\xC8\xFF");
    EXPECT_EQ(port.readChar(1000), 'A');
    EXPECT_EQ(port.readChar(1000), (int) (signed char) 0xC8);
    EXPECT_EQ(port.readChar(1000), -1) << "0xFF cannot be told from a failure";
}

TEST_F(ComPortOnPty, WritesReachTheDevice)
{
    EXPECT_TRUE(port.writeChar('?', 50));
    EXPECT_TRUE(port.writeString("\n@\n", 50));
    std::string line;
    ASSERT_TRUE(peer.readLine(line));
    EXPECT_EQ(line, "?");
    ASSERT_TRUE(peer.readLine(line));
    EXPECT_EQ(line, "@");
}

TEST_F(ComPortOnPty, RemovedWhenTheDeviceGoesAway)
{
    EXPECT_FALSE(port.removed());
    peer.unplug();
    EXPECT_TRUE(port.removed());
    juce::String line;
    EXPECT_LT(port.readString(line, 1080, 200), 1) << "reads fail once the device is gone";
    EXPECT_FALSE(port.writeString("?\n", 50));
}

//==============================================================================
namespace
{
/** Runs `body` in a child whose standard input and output are a fresh
    terminal; returns the master side and the child's pid. */
struct ChildOnTerminal
{
    int master = -1;
    pid_t pid = -1;

    template <typename Fn>
    explicit ChildOnTerminal(Fn body)
    {
        master = posix_openpt(O_RDWR | O_NOCTTY);
        grantpt(master);
        unlockpt(master);
        const std::string slavePath = ptsname(master);
        pid = fork();
        if (pid == 0)
        {
            const int s = ::open(slavePath.c_str(), O_RDWR);
            dup2(s, 0);
            dup2(s, 1);
            _exit(body());
        }
    }

    /** Reads the child's output until `text` has appeared. */
    void waitForOutput(const std::string& text)
    {
        char buf[64];
        std::string seen;
        while (seen.find(text) == std::string::npos)
        {
            const ssize_t n = ::read(master, buf, sizeof buf);
            if (n <= 0)
                break;
            seen.append(buf, (size_t) n);
        }
    }

    int exitStatus()
    {
        int status = 0;
        waitpid(pid, &status, 0);
        ::close(master);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};
}

TEST(ConsoleInput, GetchReadsOneKeyAndRestoresLineMode)
{
    ChildOnTerminal child([] {
        const int c = getch();
        termios tio;
        tcgetattr(1, &tio);
        const bool lineMode = (tio.c_lflag & ICANON) != 0;
        return lineMode && c == 'k' ? 0 : 1;
    });
    ASSERT_EQ(::write(child.master, "k", 1), 1);
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST(ConsoleInput, KbhitSwitchesToSingleKeyModeAndSeesAWaitingKey)
{
    ChildOnTerminal child([] {
        if (kbhit())
            return 2;
        termios tio;
        tcgetattr(1, &tio);
        if ((tio.c_lflag & (ICANON | ECHO)) != 0)
            return 3;
        // No line end is sent: only single-key mode lets the key through.
        printf("waiting\n");
        fflush(stdout);
        for (int i = 0; i < 1000 && !kbhit(); ++i)
            usleep(10000);
        if (!kbhit() || getch() != 'q')
            return 4;
        resetTTY();
        tcgetattr(1, &tio);
        return (tio.c_lflag & ICANON) != 0 ? 0 : 5;
    });
    child.waitForOutput("waiting");
    ASSERT_EQ(::write(child.master, "q", 1), 1);
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST(ConsoleInput, WaitForKeyEndsWithAKeyOrTheLimit)
{
    ChildOnTerminal child([] {
        if (waitForKey(30))
            return 2;
        termios tio;
        tcgetattr(1, &tio);
        if ((tio.c_lflag & (ICANON | ECHO)) != 0)
            return 3;
        printf("waiting\n");
        fflush(stdout);
        // Far beyond the test's own time limit: only the key can end it.
        return waitForKey(600000) && getch() == 'w' ? 0 : 4;
    });
    child.waitForOutput("waiting");
    ASSERT_EQ(::write(child.master, "w", 1), 1);
    EXPECT_EQ(child.exitStatus(), 0);
}

TEST(ConsoleInput, ControlCCallsTheHandler)
{
    static std::atomic<int> calls { 0 };
    setControlCHandler([] { ++calls; });
    raise(SIGINT);
    EXPECT_EQ(calls.load(), 1);
    signal(SIGINT, SIG_DFL);
}
