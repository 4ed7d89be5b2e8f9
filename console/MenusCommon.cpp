#include "console/Menus.h"

namespace Menus
{
void reportFailure(bool ok)
{
    if (!ok)
        puts("Failed");
}

const char* programResultText(int code)
{
    switch (code)
    {
        case DesktopBoard::programOk: return "Programming complete";
        case DesktopBoard::programBadSerial:
        case DesktopBoard::programWriteFailed: return "Write failed";
        case DesktopBoard::programReadFailed: return "Read failed";
        case DesktopBoard::programVerifyFailed: return "Verify failed";
        default: return "Unknown failure";
    }
}

SasPhyConnectSpeed desktopPhySpeed(int typed)
{
    return typed == 0 ? sasSpeed1G5 : sasSpeed3G;
}

SasPhyConnectSpeed xferDualPhySpeed(int typed)
{
    if (typed == 0)
        return sasSpeed1G5;
    return typed < 2 ? sasSpeed3G : sasSpeed6G;
}

const char* xferDualZoneName(int zone)
{
    if (zone == 2)
        return "System";
    return zone == 0 ? "Diskpack 0" : "Diskpack 1";
}
}
