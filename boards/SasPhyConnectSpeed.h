#pragma once

/** A SAS link rate, as passed to the expander boards' PHY rate limits. The
    values are what the board classes and the console exchange; each board
    turns them into its own register codes. The desktop station's expander
    stops at 3 Gbit/s; the dual board's also runs at 6 Gbit/s.

    The underlying type is fixed so that a number typed at the console may be
    carried in it unchecked and refused by the board class. */
enum SasPhyConnectSpeed : int
{
    sasSpeed1G5 = 1,
    sasSpeed3G = 2,
    sasSpeed6G = 3
};
