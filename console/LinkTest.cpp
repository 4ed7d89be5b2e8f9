#include "console/LinkTest.h"

#include "console/ConsoleInput.h"
#include "link/ComPort.h"
#include "link/ConsoleTerminal.h"

#include <cstdio>

namespace LinkTest
{
uint32_t rate(uint32_t elapsedMs)
{
    return charsPerPassTimesMs / (elapsedMs == 0 ? 1u : elapsedMs);
}

namespace
{
constexpr char ctrlA = 1;
constexpr int writeTimeoutMs = 100;
constexpr const char* alphabet = "abcdefghijklmnopqrstuvwxyz";

/** Keys go out on the port, whatever arrives is shown. Returns false when the
    test has to end here (Ctrl-C, end of input or a failed write). */
bool terminalMode(ComPort& port)
{
    while (stopFlag == 0)
    {
        if (kbhit())
        {
            const int key = getch();
            if (key < 0)
            {
                stopFlag = 1;
                break;
            }
            if (key == ctrlA)
            {
                stopFlag = 0;
                return true;
            }
            if (!port.writeChar((char) key, writeTimeoutMs))
            {
                puts("writeChar failed");
                return false;
            }
        }
        else if (port.ready(10) > 0)
        {
            const int c = port.readChar(-1);
            if (c >= 0)
            {
                putchar(c);
                fflush(stdout);
            }
        }
    }
    return false;
}

void throughputTest(ComPort& port)
{
    puts("Sending data..");
    fflush(stdout);
    uint32_t start = juce::Time::getMillisecondCounter();
    while (stopFlag == 0)
    {
        for (int i = 0; i < writesPerPass; ++i)
        {
            port.writeString(alphabet, -1);
            if (i < writesPerPass - 1 && stopFlag != 0)
                return;
        }
        const uint32_t now = juce::Time::getMillisecondCounter();
        printf("%d ch/s\n", (int) rate(now - start));
        fflush(stdout);
        start = now;
    }
}
}
}

int runLinkTest(int portNumber)
{
    ComPort port;
    setControlCHandler(onControlC);
    if (!port.open(portNumber, false))
    {
        printf("Couldn't open Bluetooth com port %d\n", portNumber);
        return 0;
    }
    if (!port.set(115200, 8, ComPort::parityNone, 1, ComPort::flowHardware))
    {
        puts("Couldn't set com port");
        port.close();
        return 0;
    }

    if (portNumber == LinkTest::terminalPort && stopFlag == 0 && !LinkTest::terminalMode(port))
    {
        resetTTY();
        port.close();
        return 0;
    }

    LinkTest::throughputTest(port);
    resetTTY();
    port.close();
    return 0;
}
