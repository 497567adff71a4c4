// A smart-key driver that exports three of the standard's functions and nothing else: what
// `zthost doctor` and a failing command say about a driver that leaves out what the host needs.
#include <skf.h>

extern "C" {

ULONG DEVAPI SKF_EnumDev(BOOL, LPSTR, ULONG *pulSize)
{
    if (pulSize)
        *pulSize = 0;
    return SAR_FAIL;
}

ULONG DEVAPI SKF_ConnectDev(LPSTR, DEVHANDLE *)
{
    return SAR_FAIL;
}

ULONG DEVAPI SKF_DisConnectDev(DEVHANDLE)
{
    return SAR_FAIL;
}

} // extern "C"
