#pragma once

#include "link/ControlBoard.h"

#include <cstring>
#include <string>
#include <type_traits>

/** A board of the given class that is found while waiting in its bootloader,
    which answers the identity request with "(bootloader) " before the board's
    own identity and version. */
template <class Board>
class InBootloader : public Board
{
public:
    using Board::Board;

    // Closed here, while this is still the object the board's thread runs.
    ~InBootloader() override { this->closeBoard(false); }

    const char* boardIdString() const override { return identity.c_str(); }

    bool findAndOpen(int boardId) override
    {
        if (!Board::findAndOpen(boardId))
            return false;
        if constexpr (std::is_base_of_v<ControlBoard, Board>)
            askVersion();
        return true;
    }

private:
    /** Serial discovery takes the version from 13 characters further on when
        the answer starts "(bootloader)", as if the identity searched for did
        not: with this identity that cuts the version away. The bootloader is
        asked again and its version taken from right after the identity. */
    void askVersion()
    {
        constexpr int writeTimeoutMs = 50;
        constexpr int readTimeoutMs = 100;
        juce::String reply;
        {
            // The board's thread reads the port only under this lock.
            const juce::ScopedLock sl(this->getLock());
            auto& port = this->getPort();
            if (!port.writeString("?\n", writeTimeoutMs))
                return;
            port.readString(reply, ComPort::maxLineLength, readTimeoutMs);
        }
        if (reply.startsWith(identity.c_str()))
            this->setVersionString(reply.substring((int) identity.size() + 1));
    }

    const std::string identity = std::string("(bootloader) ") + Board::boardIdString();
};
