#include "boardsim/board.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <future>
#include <iostream>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace boardsim {

namespace {

// How long a write may wait for a host that does not read before the rest of
// the data is thrown away, as a UART with nobody listening would.
constexpr auto kWriteTimeout = std::chrono::seconds(2);

// The babble fault's line, and the time it takes on a 19200-baud wire at 11
// bits a character.
const std::string kBabbleLine = "babble\r\n";
constexpr auto kBabbleLineTime = std::chrono::microseconds(8 * 11 * 1000000LL / 19200);

int millisUntil(std::chrono::steady_clock::time_point due, std::chrono::steady_clock::time_point now)
{
    if (due <= now)
        return 0;
    // Round up, or poll would wake just before the deadline and spin on 0 ms.
    const auto us = std::chrono::duration_cast<std::chrono::microseconds>(due - now).count();
    return static_cast<int>(std::min<long long>((us + 999) / 1000, 60 * 1000));
}

} // namespace

Board::Board(std::size_t index, BoardConfig config, std::string linkPath, bool log, bool verbose, int faultLogFd,
             Output output, PersonalityFactory factory)
    : index_(index), config_(std::move(config)), linkPath_(std::move(linkPath)), log_(log),
      verbose_(verbose), faultLogFd_(faultLogFd), output_(std::move(output)), factory_(std::move(factory))
{
}

Board::~Board() { stop(); }

void Board::diag(const std::string& text) const
{
    std::cerr << "boardsim: board " << index_ << " (" << config_.name << "): " << text << std::endl;
}

bool Board::start(std::string& error)
{
    BoardInfo info(config_.letter, config_.id, config_.version);
    info.inBootloader = config_.bootloader;
    personality_ = factory_(info);
    if (!personality_) {
        error = std::string("unknown board letter '") + config_.letter + "'";
        return false;
    }
    for (const auto& setting : config_.faults)
        if (!applyFaultSetting(faults_, setting, error))
            return false;
    wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wakeFd_ < 0) {
        error = std::string("eventfd: ") + std::strerror(errno);
        return false;
    }
    if (!pty_.open(error))
        return false;
    if (!publishLink(linkPath_, pty_.slavePath(), error)) {
        pty_.close();
        return false;
    }
    publishedTarget_ = pty_.slavePath();
    refreshTick(Clock::now());
    {
        std::lock_guard<std::mutex> lock(mutex_);
        running_ = true;
    }
    thread_ = std::thread([this] { run(); });
    return true;
}

void Board::stop()
{
    {
        std::lock_guard<std::mutex> lock(mutex_);
        running_ = false;
    }
    if (thread_.joinable()) {
        stopping_ = true;
        wake();
        thread_.join();
    }
    {
        // Tasks that never ran: their callers see a broken promise.
        std::lock_guard<std::mutex> lock(mutex_);
        tasks_.clear();
    }
    if (!publishedTarget_.empty()) {
        removeLink(linkPath_, publishedTarget_);
        publishedTarget_.clear();
    }
    pty_.close();
    if (wakeFd_ >= 0) {
        ::close(wakeFd_);
        wakeFd_ = -1;
    }
}

void Board::wake()
{
    const uint64_t one = 1;
    if (::write(wakeFd_, &one, sizeof one) < 0 && errno != EAGAIN)
        diag(std::string("waking the board thread: ") + std::strerror(errno));
}

std::string Board::call(std::function<std::string()> fn)
{
    auto task = std::make_shared<std::packaged_task<std::string()>>(std::move(fn));
    auto result = task->get_future();
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (!running_)
            return "board is not running";
        tasks_.push_back([task] { (*task)(); });
    }
    wake();
    try {
        return result.get();
    } catch (const std::future_error&) {
        return "board stopped";
    }
}

void Board::runTasks()
{
    uint64_t count = 0;
    while (::read(wakeFd_, &count, sizeof count) > 0) {
    }
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard<std::mutex> lock(mutex_);
        batch.swap(tasks_);
    }
    for (auto& task : batch)
        task();
}

void Board::run()
{
    constexpr auto speedCheckInterval = std::chrono::milliseconds(10);
    nextSpeedCheck_ = Clock::now() + speedCheckInterval;
    while (!stopping_) {
        const auto now = Clock::now();
        if (now >= nextSpeedCheck_) {
            nextSpeedCheck_ = now + speedCheckInterval;
            std::string error;
            if (pty_.isOpen() && !pty_.reclaimSpeed(error))
                diag("changing the pty speed: " + error);
        }
        int timeout = millisUntil(nextSpeedCheck_, now);
        if (replyPending_)
            timeout = std::min(timeout, millisUntil(replyDue_, now));
        if (tickInterval_.count() > 0) {
            const int t = millisUntil(nextTick_, now);
            timeout = timeout < 0 ? t : std::min(timeout, t);
        }
        if (faults_.babble)
            timeout = std::min(timeout, millisUntil(nextBabble_, now));
        pollfd fds[2] = {{wakeFd_, POLLIN, 0}, {-1, POLLIN, 0}};
        const bool watchMaster = pty_.isOpen() && !masterBroken_;
        if (watchMaster)
            fds[1].fd = pty_.master();
        const int n = ::poll(fds, 2, timeout);
        if (n < 0 && errno != EINTR) {
            diag(std::string("poll: ") + std::strerror(errno));
            break;
        }
        if (n > 0 && (fds[0].revents & POLLIN))
            runTasks();
        if (stopping_)
            break;
        // A task may have unplugged the board; fds[1] then refers to a closed pty.
        if (n > 0 && watchMaster && pty_.isOpen() && fds[1].fd == pty_.master() && fds[1].revents)
            readMaster();

        const auto after = Clock::now();
        if (replyPending_ && after >= replyDue_) {
            replyPending_ = false;
            std::string bytes;
            bytes.swap(pendingBytes_);
            transmit(bytes);
            processInbox();
        }
        if (tickInterval_.count() > 0 && after >= nextTick_) {
            // Ticks missed while the thread was busy are not made up for.
            nextTick_ = std::max(after, nextTick_ + tickInterval_);
            Replier r;
            personality_->tick(r);
            adopt(r);
            transmit(render(r));
        }
        if (faults_.babble && after >= nextBabble_) {
            // Lines due while the thread was busy go out together, so the
            // host never sees the gap it would take for the end of the chatter.
            while (nextBabble_ <= after) {
                babble();
                nextBabble_ = std::max(nextBabble_, after - std::chrono::milliseconds(100)) + kBabbleLineTime;
            }
        }
    }
}

void Board::babble()
{
    if (!pty_.isOpen())
        return;
    // Never waits: a host that stops reading loses lines, as from a real UART.
    if (babbleRest_.empty())
        babbleRest_ = kBabbleLine;
    const ssize_t n = ::write(pty_.master(), babbleRest_.data(), babbleRest_.size());
    if (n > 0)
        babbleRest_.erase(0, static_cast<std::size_t>(n));
    else if (babbleRest_.size() == kBabbleLine.size())
        babbleRest_.clear(); // not a byte of it went out: the line is simply lost
}

void Board::refreshTick(Clock::time_point now)
{
    const auto interval = personality_->tickInterval();
    if (interval != tickInterval_) {
        tickInterval_ = interval;
        nextTick_ = now + interval;
    }
}

void Board::readMaster()
{
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(pty_.master(), buf, sizeof buf);
        if (n > 0) {
            const std::size_t used = receiveBytes(buf, static_cast<std::size_t>(n));
            for (const auto& line : reader_.feed(buf + used, static_cast<std::size_t>(n) - used))
                onLine(line.text, line.cut);
            if (!pty_.isOpen())
                return;
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN)
            return;
        // We hold the slave open, so this should not happen; stop watching
        // rather than spin on a master that stays readable.
        diag(n == 0 ? std::string("pty master reported end of file")
                    : std::string("reading the pty: ") + std::strerror(errno));
        masterBroken_ = true;
        return;
    }
}

std::size_t Board::receiveBytes(const char* data, std::size_t size)
{
    std::size_t used = 0;
    while (used < size && personality_->takesBytes()) {
        if (faults_.baud) {
            // The reply cannot start before the request has crossed the wire.
            const auto perByte = std::chrono::nanoseconds(11'000'000'000LL / faults_.baud);
            rxWireFree_ = std::max(rxWireFree_, Clock::now()) + perByte * static_cast<long long>(size - used);
            wireFree_ = std::max(wireFree_, rxWireFree_);
        }
        Replier r;
        const auto in = personality_->receive(data + used, size - used, faults_, r);
        for (const auto& request : in.requests) {
            std::string error;
            if (!pty_.toggleSpeed(error))
                diag("changing the pty speed: " + error);
            if (log_)
                output_("rx " + std::to_string(index_) + " " + escapeLine(request));
        }
        adopt(r);
        transmit(render(r));
        if (in.consumed == 0)
            break;
        used += in.consumed;
    }
    return used;
}

void Board::onLine(const std::string& line, bool cut)
{
    std::string error;
    if (!pty_.toggleSpeed(error))
        diag("changing the pty speed: " + error);
    if (cut)
        diag("received a line longer than " + std::to_string(kMaxLineLength) + " characters; cut");
    if (log_)
        output_("rx " + std::to_string(index_) + " " + escapeLine(line));
    inbox_.push_back(line);
    processInbox();
}

void Board::processInbox()
{
    // Commands are served one at a time: while a reply is held back by
    // delay-ms, later commands wait in line as they would in a board's UART.
    while (!replyPending_ && !inbox_.empty() && pty_.isOpen()) {
        const std::string line = std::move(inbox_.front());
        inbox_.pop_front();
        unsigned delayMs = 0;
        Replier r = respond(line, delayMs);
        adopt(r);
        std::string bytes = render(r);
        if (bytes.empty())
            continue;
        if (delayMs > 0) {
            replyPending_ = true;
            replyDue_ = Clock::now() + std::chrono::milliseconds(delayMs);
            pendingBytes_ = std::move(bytes);
        } else {
            transmit(bytes);
        }
    }
}

Replier Board::respond(const std::string& line, unsigned& delayMs)
{
    ++commandCount_;
    delayMs = faults_.delayMs;
    Replier r;
    std::optional<RandomFault> chance;
    std::uniform_int_distribution<unsigned> percent(0, 99), kind(0, kRandomFaultKinds - 1);
    if (faults_.randomPercent && percent(faults_.rng) < faults_.randomPercent)
        chance = static_cast<RandomFault>(kind(faults_.rng));
    const bool drop = (faults_.dropEvery && commandCount_ % faults_.dropEvery == 0) || chance == RandomFault::Drop;
    const bool nackIdentify = !drop && line == "?" && faults_.nackIdentify > 0;
    const bool nack = !drop && !nackIdentify &&
                      ((faults_.nackEvery && commandCount_ % faults_.nackEvery == 0) || chance == RandomFault::Nack);
    std::string applied;
    auto note = [&applied](const char* fault) { applied += (applied.empty() ? "" : "+") + std::string(fault); };
    if (drop) {
        note("drop");
        if (verbose_)
            diag("dropping the reply to command " + std::to_string(commandCount_));
    } else if (nackIdentify) {
        note("nack");
        --faults_.nackIdentify;
        if (verbose_)
            diag("refusing \"?\" (nack-identify)");
        r.refuse();
    } else if (nack) {
        note("nack");
        if (verbose_)
            diag("refusing command " + std::to_string(commandCount_) +
                 (chance == RandomFault::Nack ? " (random)" : " (nack-every)"));
        r.refuse();
    } else {
        personality_->handle(line, r);
        if (r.finalCount() != 1)
            diag("personality gave " + std::to_string(r.finalCount()) + " final lines for '" +
                 escapeLine(line) + "'");
    }

    std::vector<Replier::Item> before;
    if (!drop && (faults_.highbitBefore || chance == RandomFault::Highbit)) {
        note("highbit");
        const unsigned char byte = faults_.highbitBefore.value_or(0xA5);
        before.push_back({Replier::Kind::Raw, std::string(1, static_cast<char>(byte)) + "\r\n"});
    }
    if (!drop && (faults_.junkBefore || chance == RandomFault::Junk)) {
        note("junk");
        before.push_back({Replier::Kind::Event, faults_.junkBefore.value_or(kRandomJunkLine)});
    }
    if (!drop && (delayMs > 0 || chance == RandomFault::Delay)) {
        note("delay");
        delayMs = std::max(delayMs, chance == RandomFault::Delay ? kRandomDelayMs : 0u);
    }
    auto& items = r.items();
    if (!before.empty()) {
        auto at = std::find_if(items.begin(), items.end(),
                               [](const Replier::Item& i) { return i.kind == Replier::Kind::Final; });
        items.insert(at, before.begin(), before.end());
    }

    // Both draws are made every time, so the faults of later commands do not
    // depend on whether events are on.
    std::string eventBefore = "-", eventAfter = "-";
    if (faults_.eventPercent) {
        const bool early = percent(faults_.rng) < faults_.eventPercent;
        const bool late = percent(faults_.rng) < faults_.eventPercent;
        if (early) {
            eventBefore = std::to_string(++eventNumber_);
            items.insert(items.begin(), {Replier::Kind::Event, "e" + eventBefore});
        }
        if (late) {
            eventAfter = std::to_string(++eventNumber_);
            items.push_back({Replier::Kind::Event, "e" + eventAfter});
        }
    }
    if (faultLogFd_ >= 0) {
        const std::string entry = std::to_string(index_) + " " + std::to_string(commandCount_) + " " +
                                  (applied.empty() ? "none" : applied) + " " + eventBefore + " " + eventAfter + " " +
                                  escapeLine(line) + "\n";
        // One write per entry: boards share the file, and a reader may be
        // following it while it grows.
        if (::write(faultLogFd_, entry.data(), entry.size()) != static_cast<ssize_t>(entry.size()))
            diag(std::string("writing the fault log: ") + std::strerror(errno));
    }
    return r;
}

void Board::adopt(Replier& replier)
{
    if (auto next = replier.takeSuccessor())
        personality_ = std::move(next);
    refreshTick(Clock::now());
}

std::string Board::render(const Replier& replier) const
{
    std::string bytes;
    for (const auto& item : replier.items())
        bytes += item.kind == Replier::Kind::Raw ? item.bytes : boardLine(item.bytes);
    return bytes;
}

void Board::transmit(const std::string& bytes)
{
    if (bytes.empty() || !pty_.isOpen())
        return;
    if (!babbleRest_.empty()) {
        // Finish the babble line first, or the two would run together.
        const std::string rest = std::move(babbleRest_);
        babbleRest_.clear();
        writeAll(rest.data(), rest.size());
    }
    if (verbose_)
        diag("tx " + escapeLine(bytes));
    if (!faults_.baud) {
        writeAll(bytes.data(), bytes.size());
        return;
    }
    // Each byte is released when its 11 bits would have left the wire, timed
    // from an absolute start so oversleeping only batches bytes, never slows
    // the line down.
    const auto perByte = std::chrono::nanoseconds(11'000'000'000LL / faults_.baud);
    const auto now = Clock::now();
    const auto start = std::max(wireFree_, now);
    std::size_t sent = 0;
    while (sent < bytes.size() && !stopping_) {
        const auto elapsed = Clock::now() - start;
        // The wire may not be free yet (start lies ahead): nothing is due.
        const std::size_t due = elapsed.count() <= 0
                                    ? 0
                                    : std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(elapsed / perByte));
        if (due > sent) {
            if (!writeAll(bytes.data() + sent, due - sent))
                break;
            sent = due;
            continue;
        }
        std::this_thread::sleep_until(start + perByte * static_cast<long long>(sent + 1));
    }
    wireFree_ = start + perByte * static_cast<long long>(bytes.size());
}

bool Board::writeAll(const char* data, std::size_t size)
{
    const auto deadline = Clock::now() + kWriteTimeout;
    while (size > 0) {
        const ssize_t n = ::write(pty_.master(), data, size);
        if (n > 0) {
            data += n;
            size -= static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0 && errno == EAGAIN) {
            const auto now = Clock::now();
            if (now < deadline && !stopping_) {
                pollfd p{pty_.master(), POLLOUT, 0};
                ::poll(&p, 1, std::max(1, millisUntil(deadline, now)));
                continue;
            }
            diag("host is not reading; " + std::to_string(size) + " bytes discarded");
            return false;
        }
        diag(std::string("writing to the pty: ") + std::strerror(errno));
        return false;
    }
    return true;
}

void Board::resetWire()
{
    reader_.reset();
    babbleRest_.clear();
    inbox_.clear();
    replyPending_ = false;
    pendingBytes_.clear();
    masterBroken_ = false;
}

std::string Board::sendLine(const std::string& text)
{
    return call([this, text] {
        if (!pty_.isOpen())
            return std::string("board is unplugged");
        transmit(boardLine(text));
        return std::string();
    });
}

std::string Board::sendRaw(const std::string& bytes)
{
    return call([this, bytes] {
        if (!pty_.isOpen())
            return std::string("board is unplugged");
        transmit(bytes);
        return std::string();
    });
}

std::string Board::unplug()
{
    return call([this] {
        if (!pty_.isOpen())
            return std::string("board is unplugged already");
        // Link first, so nobody finds the name of a device about to vanish.
        removeLink(linkPath_, publishedTarget_);
        publishedTarget_.clear();
        pty_.close();
        resetWire();
        return std::string();
    });
}

std::string Board::plug()
{
    return call([this] {
        if (pty_.isOpen())
            return std::string("board is plugged in already");
        std::string error;
        if (!pty_.open(error))
            return error;
        if (!publishLink(linkPath_, pty_.slavePath(), error)) {
            pty_.close();
            return error;
        }
        publishedTarget_ = pty_.slavePath();
        resetWire();
        return std::string();
    });
}

std::string Board::setFault(const std::string& setting)
{
    return call([this, setting] {
        std::string error;
        applyFaultSetting(faults_, setting, error);
        return error;
    });
}

std::string Board::personalityControl(const std::string& verb, const std::string& args)
{
    return call([this, verb, args] {
        Replier r;
        std::string error;
        const bool ok = personality_->control(verb, args, r, error);
        adopt(r);
        transmit(render(r));
        return ok ? std::string() : (error.empty() ? "refused" : error);
    });
}

} // namespace boardsim
