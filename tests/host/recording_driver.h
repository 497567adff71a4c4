#pragma once

// A smart-key driver for the host's tests: each SKF_* call goes on to the software device of
// this build tree, and the driver keeps what the tests ask about. The tests link it, so these
// functions answer for the very copy the key component loads by path.

#include <skf.h>

extern "C" {

struct ZtRecordedCalls
{
    // SKF_ConnectDev calls that answered a handle, and SKF_DisConnectDev calls on one of them.
    unsigned connects;
    unsigned disconnects;
    // Where the PIN of the last SKF_VerifyPIN was, as the caller handed it, and its length
    // without the NUL. The memory is the caller's: it may be gone after the call.
    const char *pinAddress;
    unsigned long pinLength;
};

SKF_EXPORT ZtRecordedCalls zt_recorded_calls(void);
// Starts counting again from nothing; an armed failure is dropped too. A process that never
// calls these arms one failure with ZT_RECORDING_DRIVER_FAIL="SKF_Decrypt=0x0A000023".
SKF_EXPORT void zt_forget_recorded_calls(void);
// The next call of `function` (e.g. "SKF_OpenApplication") answers `code` without reaching
// the device.
SKF_EXPORT void zt_fail_next_call(const char *function, ULONG code);

} // extern "C"
