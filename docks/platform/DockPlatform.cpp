#include "docks/platform/DockPlatform.h"

#include "docks/platform/QueuedNotifications.h"

std::unique_ptr<DockPlatform::NotificationPort> NullDockPlatform::createNotificationPort()
{
    return std::make_unique<QueuedNotificationPort>();
}

std::unique_ptr<DockPlatform::NotificationLoop> NullDockPlatform::createNotificationLoop()
{
    return std::make_unique<QueuedNotificationLoop>();
}
