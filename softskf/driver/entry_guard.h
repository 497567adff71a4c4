#pragma once

#include "registry.h"
#include "status.h"

#include <exception>
#include <mutex>
#include <new>

namespace softskf::driver {

// Hands the code of a finished call back to the caller; with SOFTSKF_DEBUG set in the
// environment, failures are also written to standard error with their reason.
ULONG report(const char *function, const Status &status);

// Runs one entry point under the driver's mutex; nothing thrown leaves the C interface.
template <class Body>
ULONG guarded(const char *function, Body &&body)
{
    try {
        std::lock_guard<std::mutex> lock(apiMutex());
        return report(function, body());
    } catch (const std::bad_alloc &) {
        return report(function, Status::failure(SAR_MEMORYERR, "out of memory"));
    } catch (const std::exception &e) {
        return report(function, Status::failure(SAR_UNKNOWNERR, e.what()));
    } catch (...) {
        return report(function, Status::failure(SAR_UNKNOWNERR, "unexpected exception"));
    }
}

inline Status invalidHandle(const char *what)
{
    return Status::failure(SAR_INVALIDHANDLEERR, std::string("not an open ") + what + " handle");
}

inline Status nullArgument(const char *name)
{
    return Status::failure(SAR_INVALIDPARAMERR, std::string(name) + " is null");
}

} // namespace softskf::driver
