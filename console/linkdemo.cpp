// Finds one serial board by its identity string, prints its identity line and
// the events it sends for a while, then closes it. A first look at a board (or
// an emulated one) until the full console takes over.
#include "link/ControlBoard.h"

#include <juce_events/juce_events.h>

#include <cstdio>
#include <cstdlib>

namespace
{
class AnyBoard : public ControlBoard
{
public:
    explicit AnyBoard(juce::String id) : idString(std::move(id)) {}
    ~AnyBoard() override { closeBoard(false); }

    const char* boardIdString() const override { return idString.toRawUTF8(); }

    void eventReceived(const juce::String& line) override
    {
        printf("event: %s\n", line.toRawUTF8());
        fflush(stdout);
    }

private:
    juce::String idString;
};
}

int main(int argc, char** argv)
{
    juce::ScopedJuceInitialiser_GUI juce;
    const juce::String idString = argc > 1 ? argv[1] : "Diskpack board";
    const int seconds = argc > 2 ? std::atoi(argv[2]) : 5;

    AnyBoard board(idString);
    if (!board.findAndOpen(-1))
    {
        printf("No board answering \"%s\" found in %s\n", idString.toRawUTF8(),
               std::getenv("AVRTEST_DEV_DIR") ? std::getenv("AVRTEST_DEV_DIR") : "/dev");
        return 1;
    }
    printf("%s %s\n", board.boardIdString(), board.getVersionString().toRawUTF8());
    fflush(stdout);
    if (!board.syncState())
        printf("Failed\n");

    juce::Thread::sleep(seconds * 1000);
    board.closeBoard(false);
    printf("closed\n");
    return 0;
}
