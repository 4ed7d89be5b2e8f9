#pragma once

#include <juce_core/juce_core.h>

#include <cstddef>
#include <cstdint>
#include <memory>

/** Everything the dock classes need of the operating system, and nothing more:
    the device registry (services, paths, parents, children, properties) and
    driver user clients (scalar calls, and asynchronous calls whose completion
    arrives on a notification loop).

    The dock logic above this seam is ordinary code that runs and is tested on
    any platform. Below it sit the backends: the operating system's own driver
    kit on macOS, the dock emulator over a Unix socket when AVRTEST_DOCKSIM names
    one, and otherwise a platform on which no dock is ever found.

    Handles are plain numbers, as the driver kit's are. Every handle that a call
    hands out (a matched service, a parent, a child, an entry found by path, a
    connection) holds one reference, which the caller gives back with release().
    Properties cross the seam as juce::var: a dictionary is a DynamicObject, an
    array an Array, text a String, a number an int64, raw data a MemoryBlock.

    Result codes keep the driver kit's numeric values, so the dock classes can
    tell a detached device from a failed command from a dead port. */
class DockPlatform
{
public:
    using Object = uint32_t;      // a registry entry, service or connection; 0 is none
    using Entry = Object;
    using Connection = Object;
    using Result = uint32_t;

    static constexpr Result success = 0;
    static constexpr Result resultError = 0xE00002BC;        // general failure
    static constexpr Result resultNoMemory = 0xE00002BD;
    static constexpr Result resultBadArgument = 0xE00002C2;
    static constexpr Result resultNotAttached = 0xE00002D9;  // the device went away
    static constexpr Result resultNotResponding = 0xE00002ED;
    static constexpr Result resultSendInvalidDest = 0x10000003; // the port behind a call is dead

    /** Completion of an asynchronous call, shaped like the driver kit's own:
        `refcon` is what was passed with the call, `args` the result arguments. */
    using AsyncCallback = void (*)(void* refcon, Result result, void** args, uint32_t numArgs);

    /** Where completions of asynchronous calls are queued until a
        NotificationLoop that holds this port delivers them. */
    class NotificationPort
    {
    public:
        virtual ~NotificationPort() = default;
        /** The port's number in the kernel's name space, for diagnostics only. */
        virtual unsigned long machPort() const = 0;
    };

    /** Delivers the completions of its ports on the thread that calls run(). */
    class NotificationLoop
    {
    public:
        virtual ~NotificationLoop() = default;
        /** Adds a port before run() is called. The port must outlive the loop's run. */
        virtual void addPort(NotificationPort& port) = 0;
        /** Blocks, delivering completions, until stop() is called from any thread. */
        virtual void run() = 0;
        /** Ends run(); safe to call before run() starts, which then returns at once. */
        virtual void stop() = 0;
    };

    virtual ~DockPlatform() = default;

    /** The platform the product uses: the dock emulator when AVRTEST_DOCKSIM
        names its socket, the operating system's driver kit on macOS, and
        otherwise a platform on which nothing is ever found. */
    static std::shared_ptr<DockPlatform> create();

    // --- services ---------------------------------------------------------
    /** Every service whose name is `name`. On failure `services` stays empty. */
    virtual Result matchServicesByName(const juce::String& name, juce::Array<Entry>& services) = 0;
    /** Every service of class `className` (or of a class derived from it). */
    virtual Result matchServicesByClass(const juce::String& className, juce::Array<Entry>& services) = 0;

    // --- the registry, in the service plane --------------------------------
    /** The entry's path in the service plane ("IOService:/..."). */
    virtual bool getPath(Entry entry, juce::String& path) = 0;
    /** The entry at `path`, or 0 when nothing is there. */
    virtual Entry entryForPath(const juce::String& path) = 0;
    /** The entry's parent, or 0 at the root or on failure. */
    virtual Entry getParent(Entry entry) = 0;
    /** The entry's children, in registry order. False when they cannot be listed. */
    virtual bool getChildren(Entry entry, juce::Array<Entry>& children) = 0;
    /** The property `key` of the entry or, failing that, of the nearest
        ancestor that has it. A void var when no entry on the way has it. */
    virtual juce::var searchProperty(Entry entry, const juce::String& key) = 0;
    /** All properties of the entry as one dictionary. */
    virtual bool getProperties(Entry entry, juce::var& properties) = 0;
    /** Hands the entry a dictionary of properties to set (the driver decides
        what setting them means). */
    virtual Result setProperties(Entry entry, const juce::var& properties) = 0;

    // --- user clients -------------------------------------------------------
    virtual std::unique_ptr<NotificationPort> createNotificationPort() = 0;
    virtual std::unique_ptr<NotificationLoop> createNotificationLoop() = 0;
    /** Opens a user client of `type` on the service. */
    virtual Result openService(Entry service, uint32_t type, Connection& connection) = 0;
    /** Closes the user client; the connection handle itself is released separately. */
    virtual Result closeService(Connection connection) = 0;
    /** Calls method `selector` with scalar inputs and no outputs. */
    virtual Result callScalarMethod(Connection connection, uint32_t selector,
                                    const uint64_t* input, uint32_t inputCount) = 0;
    /** Starts method `selector` with scalar and structure inputs; its completion
        calls `callback(refcon, ...)` on the loop that holds `port`. The driver's
        convention: the first two scalars are the address and length of a reply
        buffer that the driver fills before it completes. A result other than
        success means no completion will come. */
    virtual Result callAsyncStructMethod(Connection connection, uint32_t selector,
                                         NotificationPort& port, AsyncCallback callback, void* refcon,
                                         const uint64_t* scalars, uint32_t scalarCount,
                                         const void* structInput, size_t structSize) = 0;

    // --- references -----------------------------------------------------------
    virtual void retain(Object object) = 0;
    virtual void release(Object object) = 0;
};

/** The platform with no docks: every match is empty, every call fails. The
    product uses it where neither the driver kit nor the emulator is there;
    test doubles derive from it and override what they script. */
class NullDockPlatform : public DockPlatform
{
public:
    Result matchServicesByName(const juce::String&, juce::Array<Entry>&) override { return success; }
    Result matchServicesByClass(const juce::String&, juce::Array<Entry>&) override { return success; }
    bool getPath(Entry, juce::String&) override { return false; }
    Entry entryForPath(const juce::String&) override { return 0; }
    Entry getParent(Entry) override { return 0; }
    bool getChildren(Entry, juce::Array<Entry>&) override { return false; }
    juce::var searchProperty(Entry, const juce::String&) override { return {}; }
    bool getProperties(Entry, juce::var&) override { return false; }
    Result setProperties(Entry, const juce::var&) override { return resultNotAttached; }
    std::unique_ptr<NotificationPort> createNotificationPort() override;
    std::unique_ptr<NotificationLoop> createNotificationLoop() override;
    Result openService(Entry, uint32_t, Connection&) override { return resultNotAttached; }
    Result closeService(Connection) override { return resultNotAttached; }
    Result callScalarMethod(Connection, uint32_t, const uint64_t*, uint32_t) override { return resultNotAttached; }
    Result callAsyncStructMethod(Connection, uint32_t, NotificationPort&, AsyncCallback, void*,
                                 const uint64_t*, uint32_t, const void*, size_t) override
    {
        return resultNotAttached;
    }
    void retain(Object) override {}
    void release(Object) override {}
};
