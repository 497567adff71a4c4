#pragma once

// Shared by the robustness tests of the software key device: child processes and what they
// report back, the full road through one device, and result-code checks.

#include "softskf_fixture.h"

#include <functional>
#include <string>

namespace softskf_robust {

using softskf_test::Bytes;

// How a child process ended.
struct ChildOutcome
{
    bool exited = false;  // by _exit; else killed by `signal`
    int code = 0;
    int signal = 0;
    std::string report;   // what the child wrote to its report pipe
};

// Runs `body` in a forked child that writes its report to the descriptor it is given and ends
// with body's answer as its exit code. Never returns in the child.
ChildOutcome runInChild(const std::function<int(int reportFd)> &body);

// Writes text to a report descriptor.
void report(int fd, const std::string &text);

// SAR_OK, or one of the SAR_* failure codes the driver defines.
bool isKnownResultCode(ULONG code);
std::string hexCode(ULONG code);

// The whole road through one device: connect, information, application, PIN information,
// PIN checks, containers, certificates, session-key import and decryption.
struct RoadInput
{
    std::string device;
    Bytes wrappedKey;  // for the device's encryption certificate
    Bytes cipher;      // SM4-ECB/PKCS#7 of `plain` under the wrapped key
    Bytes plain;
};
struct RoadResult
{
    bool allCodesKnown = true;
    bool wrongPinAccepted = false;
    bool decrypted = false;  // the right plaintext came out
    std::string codes;       // "connect=0x0 open=0x0A000004 ..."
};
RoadResult walkRoad(const RoadInput &input);

// A session key wrapped for a device's certificate and content encrypted with it.
RoadInput roadFor(const std::string &root, const std::string &device);

// A PIN's tries left as a fresh connection reads them from disk. With `code` null a failure
// to read them fails the test; else the failure's code goes there.
ULONG remainingTries(const std::string &device, ULONG *code = nullptr, ULONG pinType = USER_TYPE);

// On a connection of its own: logs in with the user PIN `pin`, imports the input's session key
// and decrypts. SAR_OK when the right plaintext came out, else the first failing code (SAR_FAIL
// for a wrong plaintext).
ULONG decryptWith(const RoadInput &input, const char *pin);

// SKF_ChangePIN and SKF_UnblockPIN on a connection of their own; the code, and the tries left
// in *retries when given.
ULONG changeOnce(const std::string &device, ULONG pinType, const char *oldPin, const char *newPin,
                 ULONG *retries = nullptr);
ULONG unblockOnce(const std::string &device, const char *adminPin, const char *newUserPin,
                  ULONG *retries = nullptr);

// One user PIN check on a connection of its own; answers the check's code.
ULONG verifyOnce(const std::string &device, const char *pin);

// Removes CAP_DAC_OVERRIDE and CAP_DAC_READ_SEARCH from this process's effective set, so that
// file modes bind a root process too. Call in a child only. False when that cannot be done.
bool dropFileAccessOverride();

} // namespace softskf_robust
