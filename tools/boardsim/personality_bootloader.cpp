#include "boardsim/personality_bootloader.h"

#include <string>

#include "boardsim/faults.h"
#include "boardsim/personality_serial.h"
#include "boardsim/wire.h"

namespace boardsim {

namespace {

constexpr std::size_t kWriteRequestLength = 1 + 4 + 2 * BootloaderState::kPageSize + 2;
constexpr std::size_t kReadRequestLength = 1 + 4;
// Where a stalled page read breaks off, in bytes of the page.
constexpr std::size_t kStallOffset = 100;

class BootloaderPersonality : public Personality {
public:
    explicit BootloaderPersonality(BoardInfo info) : Personality(std::move(info)) {}

    std::string identity() const override { return "(bootloader) " + identityForLetter(info().letter); }

    bool takesBytes() const override { return true; }

    ByteInput receive(const char* data, std::size_t size, Faults& faults, Replier& out) override
    {
        ByteInput in;
        for (std::size_t i = 0; i < size; ++i) {
            const char c = data[i];
            if (request_.empty()) {
                if (c == '#') {
                    in.consumed = i + 1;
                    in.requests.push_back("#");
                    leave(out);
                    return in;
                }
                expected_ = c == ':' ? kWriteRequestLength : c == '$' ? kReadRequestLength : 0;
            }
            if (expected_ == 0) {
                // A line request ("?", "@", "%UP").
                if (c == '\n') {
                    in.requests.push_back(request_);
                    handle(request_, out);
                    request_.clear();
                } else if (request_.size() < kMaxLineLength) {
                    request_.push_back(c);
                }
                continue;
            }
            request_.push_back(c);
            if (request_.size() == expected_) {
                in.requests.push_back(request_);
                if (request_[0] == ':')
                    writePage(faults, out);
                else
                    readPage(faults, out);
                request_.clear();
            }
        }
        in.consumed = size;
        return in;
    }

    void handle(const std::string& line, Replier& out) override
    {
        if (line == "?")
            out.final(identity() + " " + info().version);
        else if (line == "@")
            out.data(std::to_string(info().id));
        else if (line == "%UP")
            out.ok(); // here already
        else
            out.refuse();
    }

private:
    std::vector<unsigned char>& flash() { return info().bootloader->flash; }

    void leave(Replier& out)
    {
        // The application starts afresh, as after a reset; the flash stays.
        BoardInfo next = info();
        next.inBootloader = false;
        out.become(makePersonality(next));
    }

    void writePage(Faults& faults, Replier& out)
    {
        std::vector<unsigned char> bytes;
        unsigned sum = 0;
        // Upper-case hex only, like the boards' own commands.
        const bool decoded = serial::hexBytes(request_.substr(1), bytes);
        if (decoded)
            for (unsigned char b : bytes)
                sum += b;
        const std::size_t page = decoded ? (bytes[0] << 8 | bytes[1]) : 0;
        const bool fits = (page + 1) * BootloaderState::kPageSize <= BootloaderState::kAppSectionSize;
        if (!decoded || (sum & 0xFF) != 0 || !fits) {
            out.raw("N");
            return;
        }
        if (faults.refuseWrites > 0) {
            --faults.refuseWrites;
            out.raw("N");
            return;
        }
        std::copy(bytes.begin() + 2, bytes.end() - 1, flash().begin() + static_cast<long>(page * BootloaderState::kPageSize));
        out.raw("Y");
    }

    void readPage(Faults& faults, Replier& out)
    {
        std::vector<unsigned char> number;
        if (!serial::hexBytes(request_.substr(1), number))
            return; // not a request it understands: no answer
        const std::size_t page = number[0] << 8 | number[1];
        std::string bytes(BootloaderState::kPageSize, static_cast<char>(0xFF));
        const std::size_t start = page * BootloaderState::kPageSize;
        if (start + BootloaderState::kPageSize <= flash().size())
            bytes.assign(flash().begin() + static_cast<long>(start),
                         flash().begin() + static_cast<long>(start + BootloaderState::kPageSize));

        unsigned sum = number[0] + number[1];
        for (unsigned char b : bytes)
            sum += b;
        unsigned char checksum = static_cast<unsigned char>(-sum);
        if (faults.stallReads > 0) {
            // The line drops mid-page: the host sees a break (a NUL) and then
            // silence, and must start over. The checksum is never reached, so
            // a wrong one waits for the next read.
            --faults.stallReads;
            out.raw(hexEncode(bytes).substr(0, 2 * kStallOffset) + std::string(1, '\0'));
            return;
        }
        if (faults.corruptReads > 0) {
            --faults.corruptReads;
            ++checksum;
        }
        out.raw(hexEncode(bytes + static_cast<char>(checksum)));
    }

    std::string request_;
    std::size_t expected_ = 0;
};

} // namespace

std::unique_ptr<Personality> makeBootloaderPersonality(const BoardInfo& info)
{
    BoardInfo in = info;
    in.inBootloader = true;
    return std::make_unique<BootloaderPersonality>(in);
}

} // namespace boardsim
