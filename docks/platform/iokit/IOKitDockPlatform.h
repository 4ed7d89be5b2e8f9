#pragma once

#include "docks/platform/DockPlatform.h"

/** The dock platform on macOS: the operating system's driver kit, reached
    through IOKit and CoreFoundation. Handles are the kit's own object handles;
    the kit's types stay inside this backend's sources. */
class IOKitDockPlatform : public DockPlatform
{
public:
    Result matchServicesByName(const juce::String& name, juce::Array<Entry>& services) override;
    Result matchServicesByClass(const juce::String& className, juce::Array<Entry>& services) override;

    bool getPath(Entry entry, juce::String& path) override;
    Entry entryForPath(const juce::String& path) override;
    Entry getParent(Entry entry) override;
    bool getChildren(Entry entry, juce::Array<Entry>& children) override;
    juce::var searchProperty(Entry entry, const juce::String& key) override;
    bool getProperties(Entry entry, juce::var& properties) override;
    Result setProperties(Entry entry, const juce::var& properties) override;

    std::unique_ptr<NotificationPort> createNotificationPort() override;
    std::unique_ptr<NotificationLoop> createNotificationLoop() override;
    Result openService(Entry service, uint32_t type, Connection& connection) override;
    Result closeService(Connection connection) override;
    Result callScalarMethod(Connection connection, uint32_t selector,
                            const uint64_t* input, uint32_t inputCount) override;
    Result callAsyncStructMethod(Connection connection, uint32_t selector,
                                 NotificationPort& port, AsyncCallback callback, void* refcon,
                                 const uint64_t* scalars, uint32_t scalarCount,
                                 const void* structInput, size_t structSize) override;

    void retain(Object object) override;
    void release(Object object) override;
};
