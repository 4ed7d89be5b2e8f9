// The product's end of the dock emulator's socket, against a scripted emulator.
#include "docks/platform/QueuedNotifications.h"
#include "docks/platform/emulated/EmulatedDockPlatform.h"
#include "support/PtyPeer.h"

#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace
{
using Lines = std::vector<std::string>;
using Platform = EmulatedDockPlatform;
const std::string hangUpLine = "<hang up>";

/** The emulator's end of the socket: answers each request line with the lines
    its script returns, "$ID" standing for the request's own. */
class ScriptedEmulator
{
public:
    using Script = std::function<Lines(const juce::var& request)>;

    explicit ScriptedEmulator(Script s) : script(std::move(s))
    {
        sockaddr_un address {};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        if (::bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 || ::listen(listener, 1) != 0)
            ADD_FAILURE() << "cannot listen on " << path;
        server = std::thread([this] { serve(); });
    }

    // The platform, made after the emulator, is gone first and has closed its end.
    ~ScriptedEmulator()
    {
        ::shutdown(listener, SHUT_RDWR);
        server.join();
        ::close(listener);
        ::unlink(path.c_str());
    }

    const std::string& socketPath() const { return path; }

    std::vector<juce::var> requests() const
    {
        const std::lock_guard<std::mutex> g(m);
        return seen;
    }

private:
    void serve()
    {
        const int c = ::accept(listener, nullptr, nullptr);
        std::string pending;
        char chunk[4096];
        for (ssize_t n; (n = ::recv(c, chunk, sizeof chunk, 0)) > 0;)
        {
            pending.append(chunk, (size_t) n);
            for (auto end = pending.find('\n'); end != std::string::npos; end = pending.find('\n'))
            {
                const auto request = juce::JSON::parse(juce::String(pending.substr(0, end)));
                pending.erase(0, end + 1);
                {
                    const std::lock_guard<std::mutex> g(m);
                    seen.push_back(request);
                }
                for (auto line : script(request))
                {
                    if (const auto at = line.find("$ID"); at != std::string::npos)
                        line.replace(at, 3, request["id"].toString().toStdString());
                    if (line == hangUpLine)
                        ::shutdown(c, SHUT_RDWR);
                    else  // a blocking socket takes the whole line, or the peer is gone
                        ::send(c, (line + "\n").data(), line.size() + 1, MSG_NOSIGNAL);
                }
            }
        }
        ::close(c);
    }

    Script script;
    const std::string path = juce::File::createTempFile(".sock").getFullPathName().toStdString();
    const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
    std::thread server;
    mutable std::mutex m;
    std::vector<juce::var> seen;
};

ScriptedEmulator::Script always(const Lines& lines)
{
    return [lines](const juce::var&) { return lines; };
}

bool logged(const LogCapture& log, const std::string& fragment)
{
    return log.lines().joinIntoString("\n").contains(juce::String(fragment));
}

struct RoundTrip
{
    const char* request;  // the fields the emulator must see
    const char* reply;
    std::function<std::string(Platform&)> call;
    std::string expected;
};

// The requests the docks make every day are checked against docksim by docks_sim_test; these are the edges.
TEST(EmulatedPlatform, EachOperationSendsItsFieldsAndReadsItsReply)
{
    const std::vector<RoundTrip> table = {
        { R"({"op":"match","by":"class","value":"TbtDriver"})", R"({"id":$ID,"result":3758097084})",
          [](Platform& p) { juce::Array<DockPlatform::Entry> e; auto r = p.matchServicesByClass("TbtDriver", e);
                            return std::to_string(r) + " " + std::to_string(e.size()); }, "3758097084 0" },
        { R"({"op":"parent","entry":4294967295})", R"({"id":$ID,"result":0,"entry":4294967294})",
          [](Platform& p) { return std::to_string(p.getParent(0xFFFFFFFF)); }, "4294967294" },
        { R"({"op":"search","entry":12,"key":"none"})", R"({"id":$ID,"result":0})",
          [](Platform& p) { return juce::JSON::toString(p.searchProperty(12, "none")).toStdString(); }, "null" },
        { R"({"op":"get_properties","entry":7})",
          R"({"id":$ID,"result":0,"properties":{"HostComms":{"reply":"OK","n":[1,true]}}})",
          [](Platform& p) { juce::var v; auto ok = p.getProperties(7, v);  // numbers cross the seam as int64
                            return std::to_string(ok) + juce::JSON::toString(v, true).toStdString()
                                   + (v["HostComms"]["n"][0].isInt64() ? " int64" : ""); },
          "1" R"({"HostComms": {"reply": "OK", "n": [1, true]}} int64)" },
        { R"({"op":"close","connection":77})", R"({"id":$ID,"result":3758097113})",
          [](Platform& p) { return std::to_string(p.closeService(77)); }, "3758097113" },
        { R"({"op":"scalar","connection":77,"selector":3,"input":[5,9223372036854775807]})", R"({"id":$ID,"result":0})",
          [](Platform& p) { const uint64_t in[] = { 5, 0x7FFFFFFFFFFFFFFF }; return std::to_string(p.callScalarMethod(77, 3, in, 2)); },
          "0" },
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(row.request);
        ScriptedEmulator emulator(always({ row.reply }));
        Platform platform(emulator.socketPath());
        EXPECT_EQ(row.call(platform), row.expected);
        const auto seen = emulator.requests();
        ASSERT_EQ(seen.size(), 1u);
        const auto expected = juce::JSON::parse(row.request);
        for (const auto& field : expected.getDynamicObject()->getProperties())
            EXPECT_EQ(juce::JSON::toString(seen[0][field.name], true), juce::JSON::toString(field.value, true))
                << field.name.toString();
    }
}

struct Garbage
{
    const char* name;
    Lines lines;
    DockPlatform::Result result;
    const char* log;
};

TEST(EmulatedPlatform, GarbageFromTheEmulatorFailsTheCallOrIsIgnored)
{
    const std::string good = R"({"id":$ID,"result":0,"entries":[5]})";
    const std::string deep = R"({"id":$ID,"result":0,"entries":)" + std::string(100, '[') + std::string(100, ']') + "}";
    const std::string huge = R"({"id":$ID,"result":0,"entries":[")" + std::string(2 << 20, 'A') + R"("]})";
    const std::vector<Garbage> table = {
        { "not JSON", { "hello" }, DockPlatform::resultError, "not JSON" },
        { "a JSON array", { "[1,2]" }, DockPlatform::resultError, "not a JSON object" },
        { "no id", { R"({"result":0,"entries":[5]})" }, DockPlatform::resultError, "neither 'id'" },
        { "id as text", { R"({"id":"$ID","result":0,"entries":[5]})" }, DockPlatform::resultError, "'id' is not an integer" },
        { "result as text", { R"({"id":$ID,"result":"0","entries":[5]})" }, DockPlatform::resultError, "'result' is not an integer" },
        { "result beyond 32 bits", { R"({"id":$ID,"result":4294967296})" }, DockPlatform::resultError, "'result' out of range" },
        { "negative entry", { R"({"id":$ID,"result":0,"entries":[-1]})" }, DockPlatform::resultError, "not an entry number" },
        { "entry beyond 32 bits", { R"({"id":$ID,"result":0,"entries":[4294967296]})" }, DockPlatform::resultError, "not an entry number" },
        { "number beyond 64 bits", { R"({"id":$ID,"result":0,"entries":[18446744073709551617]})" }, DockPlatform::resultError, "out of range" },
        { "an exponent beyond an int", { R"({"id":$ID,"x":1e9223372036854775807,"result":0,"entries":[5]})" },
          DockPlatform::resultError, "an exponent out of range" },
        { "a fraction after 20 digits", { R"({"id":$ID,"x":12345678901234567890.5,"result":0,"entries":[5]})" },
          DockPlatform::resultError, "a number out of range" },
        { "entries not an array", { R"({"id":$ID,"result":0,"entries":5})" }, DockPlatform::resultError, "'entries' is not an array" },
        { "nested too deeply", { deep }, DockPlatform::resultError, "nested too deeply" },
        { "invalid UTF-8", { "{\"id\":$ID,\"result\":0,\"entries\":[\"\xff\xfe\"]}" }, DockPlatform::resultError, "invalid UTF-8" },
        { "a 2 MiB line, then the reply", { huge, good }, DockPlatform::resultError, "more than 1048576 bytes" },
        { "reply to an unknown id, then the reply", { R"({"id":999999,"result":0})", good }, DockPlatform::success, "unknown request 999999" },
        { "unknown completion, then the reply", { R"({"completion":4242,"result":0,"data":"","argc":3})", good },
          DockPlatform::success, "unknown call 4242" },
        { "completion with a bad call number, then the reply", { R"({"completion":-3,"result":0})", good },
          DockPlatform::success, "'completion' out of range" },
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(row.name);
        LogCapture log;
        ScriptedEmulator emulator(always(row.lines));
        Platform platform(emulator.socketPath());
        juce::Array<DockPlatform::Entry> entries;
        EXPECT_EQ(platform.matchServicesByName("usbDock", entries), row.result);
        EXPECT_EQ(entries.size(), row.result == DockPlatform::success ? 1 : 0);
        EXPECT_EQ(entries[0], row.result == DockPlatform::success ? 5u : 0u);  // 0 past the end
        EXPECT_TRUE(waitUntil([&] { return logged(log, row.log); }, 5000)) << "no log line with: " << row.log;
        // The connection survives and serves the next request.
        juce::Array<DockPlatform::Entry> again;
        platform.matchServicesByName("usbDock", again);
        EXPECT_GE(emulator.requests().size(), 2u);
    }
}

/** Records the completions of asynchronous calls and the thread they ran on. */
struct Completions
{
    std::mutex m;
    std::vector<std::string> seen;
    std::thread::id thread;

    static void callback(void* refcon, DockPlatform::Result result, void** args, uint32_t count)
    {
        auto* self = static_cast<Completions*>(refcon);
        std::string text = std::to_string(result) + " argc " + std::to_string(count);
        for (uint32_t i = 1; i < count && i < 3; ++i)
            text += " " + std::to_string((uintptr_t) args[i]);
        const std::lock_guard<std::mutex> g(self->m);
        self->seen.push_back(text);
        self->thread = std::this_thread::get_id();
    }
    std::vector<std::string> all()
    {
        const std::lock_guard<std::mutex> g(m);
        return seen;
    }
};

/** A notification loop running on a thread of its own. */
struct LoopThread
{
    std::unique_ptr<DockPlatform::NotificationPort> port;
    std::unique_ptr<DockPlatform::NotificationLoop> loop;
    std::thread thread;

    explicit LoopThread(DockPlatform& platform)
        : port(platform.createNotificationPort()), loop(platform.createNotificationLoop())
    {
        loop->addPort(*port);
        thread = std::thread([this] { loop->run(); });
    }
    ~LoopThread()
    {
        loop->stop();
        thread.join();
    }
};

struct AsyncRow
{
    uint64_t length;
    const char* completion;
    std::string expected;  // the completion as Completions writes it down
    std::string buffer;    // the 6-byte buffer afterwards, which starts as EE bytes
};

TEST(EmulatedPlatform, AsyncCallsCompleteOnTheLoopThreadWithinTheirBuffer)
{
    const auto error = std::to_string(DockPlatform::resultError);
    const std::vector<AsyncRow> table = {
        { 4, R"("result":0,"data":"0055aaBB","argc":3)", "0 argc 3 0 4", "0055AABBEEEE" },
        { 2, R"("result":0,"data":"0055AABB","argc":3)", "0 argc 3 0 2", "0055EEEEEEEE" },
        { 6, R"("result":0,"data":"","argc":3)", "0 argc 3 0 0", "EEEEEEEEEEEE" },
        { 4, R"("result":0,"data":"01020304","argc":1)", "0 argc 1", "01020304EEEE" },
        { 0, R"("result":0,"data":"0102","argc":3)", "0 argc 3 0 0", "EEEEEEEEEEEE" },
        { 4, R"("result":3758097084)", "3758097084 argc 0", "EEEEEEEEEEEE" },
        { 4, R"("result":0,"data":"012","argc":3)", error + " argc 0", "EEEEEEEEEEEE" },
        { 4, R"("result":0,"data":"01x2","argc":3)", error + " argc 0", "EEEEEEEEEEEE" },
        { 4, R"("result":0,"data":"01","argc":17)", error + " argc 0", "EEEEEEEEEEEE" },
        { 4, R"("result":0,"data":"01","argc":-1)", error + " argc 0", "EEEEEEEEEEEE" },
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(row.completion);
        ScriptedEmulator emulator(always({ R"({"id":$ID,"result":0})",  // a new platform's first call is call 1
                                           std::string(R"({"completion":1,)") + row.completion + "}" }));
        Platform platform(emulator.socketPath());
        LoopThread loop(platform);
        Completions done;
        std::vector<uint8_t> buffer(6, 0xEE);
        const uint8_t block[16] = { 0xDE, 0x01, 0xab };
        const uint64_t scalars[] = { (uint64_t) (uintptr_t) buffer.data(), row.length };
        ASSERT_EQ(platform.callAsyncStructMethod(9, 2, *loop.port, &Completions::callback, &done, scalars, 2, block, 16),
                  DockPlatform::success);
        // Seeing the completion under its lock orders the loop thread's writes before the reads below.
        ASSERT_TRUE(waitUntil([&] { return !done.all().empty(); }, 5000));
        EXPECT_EQ(done.all(), std::vector<std::string>({ row.expected }));
        EXPECT_EQ(done.thread, loop.thread.get_id());
        EXPECT_EQ(juce::String::toHexString(buffer.data(), 6, 0).toUpperCase(), juce::String(row.buffer));
    }
}

TEST(EmulatedPlatform, AClosedSocketFailsPendingAndLaterCallsAtOnceAndACallWhosePortIsGoneNever)
{
    LogCapture log;
    // Call 1 completes after its port is gone; then the emulator hangs up with call 2 pending.
    ScriptedEmulator emulator([](const juce::var& request) -> Lines {
        if (request["op"] == "path")
            return { R"({"completion":1,"result":0,"data":"01020304","argc":3})", hangUpLine };
        return { R"({"id":$ID,"result":0})" };
    });
    Platform platform(emulator.socketPath(), 60000);
    Completions done;
    uint8_t buffer[4] = {};
    const uint64_t scalars[] = { (uint64_t) (uintptr_t) buffer, 4 };
    auto loop = std::make_unique<LoopThread>(platform);
    ASSERT_EQ(platform.callAsyncStructMethod(9, 2, *loop->port, &Completions::callback, &done, scalars, 2, nullptr, 0),
              DockPlatform::success);
    loop = std::make_unique<LoopThread>(platform);  // the dock class dropped the first call's port
    ASSERT_EQ(platform.callAsyncStructMethod(9, 2, *loop->port, &Completions::callback, &done, scalars, 2, nullptr, 0),
              DockPlatform::success);

    const auto started = std::chrono::steady_clock::now();
    juce::String path;
    EXPECT_FALSE(platform.getPath(1, path));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(30));  // not the 60 s timeout
    EXPECT_TRUE(waitUntil([&] { return done.all() == std::vector<std::string>({ "3758097113 argc 0" }); }, 5000));

    juce::Array<DockPlatform::Entry> entries;
    DockPlatform::Connection connection = 0;
    EXPECT_EQ(platform.matchServicesByName("usbDock", entries), DockPlatform::resultNotAttached);
    EXPECT_EQ(platform.openService(1, 0, connection), DockPlatform::resultNotAttached);
    EXPECT_EQ(platform.getParent(1), 0u);
    EXPECT_TRUE(logged(log, "unknown call 1"));
    EXPECT_TRUE(logged(log, "DocksimConnection::read: the dock emulator closed the socket"));
    EXPECT_TRUE(logged(log, "EmulatedDockPlatform::openService failed: the socket to the dock emulator is closed"));
}

TEST(EmulatedPlatform, NoEmulatorMeansNoDocksAndWhatTheProtocolCannotCarryIsRefused)
{
    LogCapture log;
    Platform platform("/nonexistent/docksim.sock");
    juce::Array<DockPlatform::Entry> entries;
    DockPlatform::Connection connection = 0;
    EXPECT_EQ(platform.matchServicesByClass("TbtDriver", entries), DockPlatform::success);
    EXPECT_TRUE(entries.isEmpty());
    EXPECT_EQ(platform.openService(1, 0, connection), DockPlatform::resultNotAttached);
    // One attempt to connect for all the calls: one "cannot reach" and the failed open.
    EXPECT_EQ(log.lines().size(), 2) << log.lines().joinIntoString("\n");

    // Refused before anything is tried, or the answer would be "not attached".
    const uint64_t scalars[] = { 0x1000, 4 }, tooBig[] = { 1ull << 63 };
    EXPECT_EQ(platform.callScalarMethod(1, 0, tooBig, 1), DockPlatform::resultBadArgument);
    auto* raw = new juce::DynamicObject();
    raw->setProperty("blob", juce::var(juce::MemoryBlock(4)));
    EXPECT_EQ(platform.setProperties(1, juce::var(raw)), DockPlatform::resultBadArgument);
    QueuedNotificationPort foreign;
    EXPECT_EQ(platform.callAsyncStructMethod(1, 2, foreign, [](void*, DockPlatform::Result, void**, uint32_t) {},
                                             nullptr, scalars, 2, nullptr, 0), DockPlatform::resultBadArgument);
}

TEST(EmulatedPlatform, ConcurrentCallersEachGetTheirOwnReply)
{
    ScriptedEmulator emulator([](const juce::var& request) -> Lines {
        return { R"({"id":$ID,"result":0,"path":"IOService:/e)" + request["entry"].toString().toStdString() + "\"}" };
    });
    Platform platform(emulator.socketPath());
    std::vector<std::thread> callers;
    std::atomic<int> wrong { 0 };
    for (DockPlatform::Entry t = 0; t < 4; ++t)
        callers.emplace_back([&, t] {
            for (auto e = t * 100 + 1; e <= t * 100 + 30; ++e)
            {
                juce::String path;
                wrong += !platform.getPath(e, path) || path != "IOService:/e" + juce::String(e);
            }
        });
    for (auto& c : callers)
        c.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(emulator.requests().size(), 120u);
}
} // namespace
