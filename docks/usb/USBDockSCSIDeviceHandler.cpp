#include "docks/usb/USBDockSCSIDeviceHandler.h"

#include <algorithm>
#include <cstring>
#include <new>

USBDockSCSIDeviceHandler::USBDockSCSIDeviceHandler(std::shared_ptr<DockPlatform> p)
    : platform(std::move(p)), runner(std::make_unique<CallbackThreadRunner>(*platform))
{
    completion.handler = this;
}

USBDockSCSIDeviceHandler::~USBDockSCSIDeviceHandler()
{
    // Once the runner has stopped no completion can run, so the connection,
    // the port and the buffers still lent to the driver may go. The user
    // client is closed before the port goes so that nothing is left queued
    // for a port that no longer exists.
    runner.reset();
    if (connection != 0)
    {
        closeUserClient();
        platform->closeService(connection);
        platform->release(connection);
        connection = 0;
    }
    notificationPort.reset();
}

bool USBDockSCSIDeviceHandler::openService(DriverInstance* instance)
{
    if (notificationPort == nullptr)
        notificationPort = platform->createNotificationPort();

    DockPlatform::Connection opened = 0;
    const auto result = platform->openService(instance->service, 0, opened);
    if (result != DockPlatform::success)
    {
        juce::Logger::writeToLog(juce::String::formatted("IOServiceOpen returned 0x%08x - machPort is %lu", (unsigned) result,
                                                         notificationPort->machPort()));
        return false;
    }
    if (opened == 0)
    {
        juce::Logger::writeToLog("Connect is IO_OBJECT_NULL after openUserClient");
        return false;
    }
    connection = opened;

    // A user client that refuses to open shows itself in the first command.
    openUserClient();

    if (!runner->isThreadRunning())
    {
        runner->addNotificationPort(*notificationPort);
        runner->startThread();
    }
    return true;
}

bool USBDockSCSIDeviceHandler::openUserClient()
{
    const auto result = platform->callScalarMethod(connection, openCommand, nullptr, 0);
    if (result != DockPlatform::success)
    {
        juce::Logger::writeToLog(juce::String::formatted("Failed to open user client with error %llX", (unsigned long long) result));
        return false;
    }
    return true;
}

bool USBDockSCSIDeviceHandler::closeUserClient()
{
    return platform->callScalarMethod(connection, closeCommand, nullptr, 0) == DockPlatform::success;
}

void USBDockSCSIDeviceHandler::attachCallback(ClientCallback callback, void* context)
{
    completion.callback = callback;
    completion.context = context;
    completion.abortExpected = false;
}

bool USBDockSCSIDeviceHandler::execTarvoCommand(CDB16* cdb, unsigned int replyLength, bool abortExpected)
{
    if (abortExpected)
        completion.abortExpected = true;
    return sendCDB(execCommand, cdb, tarvoCommandCallback, replyLength) == DockPlatform::success;
}

DockPlatform::Result USBDockSCSIDeviceHandler::sendCDB(USBDockCommand selector, CDB16* cdb,
                                                      DockPlatform::AsyncCallback callback, unsigned int replyLength)
{
    std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[replyLength]());
    if (buffer == nullptr)
    {
        juce::Logger::writeToLog("Failed to allocate buffer memory, aborting.");
        return DockPlatform::resultNoMemory;
    }
    if (notificationPort == nullptr)
        notificationPort = platform->createNotificationPort();

    const uint64_t scalars[] = { (uint64_t) (uintptr_t) buffer.get(), replyLength };
    auto* lent = buffer.get();
    {
        // Registered before the call: the completion may run before it returns.
        const std::lock_guard<std::mutex> guard(driverBuffersLock);
        driverBuffers.push_back(std::move(buffer));
    }

    const auto result = platform->callAsyncStructMethod(connection, selector, *notificationPort, callback, &completion,
                                                        scalars, 2, cdb->bytes, sizeof(cdb->bytes));
    if (result == DockPlatform::success)
        return result;

    // No completion will come for a call that was refused.
    reclaimDriverBuffer(lent);
    if (!(result == DockPlatform::resultSendInvalidDest && completion.abortExpected))
        juce::Logger::writeToLog(juce::String::formatted("Device IO failed with result %lx", (unsigned long) result));
    noticeRemoval();
    return result;
}

void USBDockSCSIDeviceHandler::tarvoCommandCallback(void* refcon, DockPlatform::Result result, void** args, uint32_t numArgs)
{
    auto* record = static_cast<CompletionRecord*>(refcon);
    auto* handler = record->handler;

    if (result != DockPlatform::success)
    {
        // A dock told to drop off the bus does just that; no failure to report.
        if (result == DockPlatform::resultNotAttached && record->abortExpected)
        {
            handler->noticeRemoval();
            handler->complete(false, nullptr, 0);
            return;
        }
        juce::Logger::writeToLog(juce::String::formatted("Command returned a bad result: %lX", (unsigned long) result));
        if (result == DockPlatform::resultError || result == DockPlatform::resultNotAttached)
            handler->noticeRemoval();
        handler->complete(false, nullptr, 0);
        return;
    }

    if (numArgs != 3)
    {
        juce::Logger::writeToLog("Command callback arrived with the wrong number of arguments.");
        handler->complete(false, nullptr, 0);
        return;
    }

    auto* driverBuffer = static_cast<unsigned char*>(args[0]);
    const auto count = (unsigned long long) (uintptr_t) args[2];
    auto* copy = new unsigned char[count];
    if (count > 0)
        std::memcpy(copy, driverBuffer, (size_t) count);
    handler->complete(true, copy, count);
    handler->reclaimDriverBuffer(driverBuffer);
}

void USBDockSCSIDeviceHandler::complete(bool success, unsigned char* buffer, unsigned long long length)
{
    if (completion.callback != nullptr)
        completion.callback(completion.context, success, buffer, length);
    else
        delete[] buffer;
}

bool USBDockSCSIDeviceHandler::reclaimDriverBuffer(unsigned char* buffer)
{
    const std::lock_guard<std::mutex> guard(driverBuffersLock);
    const auto found = std::find_if(driverBuffers.begin(), driverBuffers.end(),
                                    [buffer](const auto& lent) { return lent.get() == buffer; });
    if (found == driverBuffers.end())
        return false;
    driverBuffers.erase(found);
    return true;
}

bool USBDockSCSIDeviceHandler::removed()
{
    if (!removedFlag)
    {
        const auto result = platform->callScalarMethod(connection, presentCommand, nullptr, 0);
        // The query is only advisory: a dock is taken as gone only once a
        // command has failed.
        if (result != DockPlatform::success)
            juce::Logger::writeToLog(juce::String::formatted("Device is not present - code %llx - ignoring", (unsigned long long) result));
    }
    return removedFlag;
}
