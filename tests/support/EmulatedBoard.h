#pragma once

#include "boardsim/faults.h"
#include "boardsim/personality.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

/** A board as the emulator runs it, driven directly without a pty: the
    personality it has now, handing over to the next when told. */
struct EmulatedBoard
{
    std::unique_ptr<boardsim::Personality> personality;
    boardsim::Faults faults;

    explicit EmulatedBoard(char letter, const std::string& version = "V1.00", int id = 0, bool inBootloader = false)
    {
        boardsim::BoardInfo info(letter, id, version);
        info.inBootloader = inBootloader;
        personality = boardsim::makePersonality(info);
    }

    /** Everything the board sends back for `bytes`, delivered `chunk` bytes at
        a time: raw to a bootloader, as whole lines to an application. */
    std::string feed(const std::string& bytes, std::size_t chunk = 4096)
    {
        std::string sent;
        for (std::size_t at = 0; at < bytes.size();)
        {
            const std::size_t n = std::min(chunk, bytes.size() - at);
            boardsim::Replier r;
            std::size_t used = n;
            if (personality->takesBytes())
                used = personality->receive(bytes.data() + at, n, faults, r).consumed;
            else if (const auto nl = bytes.find('\n', at); nl != std::string::npos)
            {
                used = nl - at + 1;
                personality->handle(bytes.substr(at, nl - at), r);
            }
            for (auto& item : r.items())
                sent += item.kind == boardsim::Replier::Kind::Raw ? item.bytes : item.bytes + "\r\n";
            if (auto next = r.takeSuccessor())
                personality = std::move(next);
            at += used;
        }
        return sent;
    }
};
