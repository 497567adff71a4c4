#pragma once

#include "skf.h"

#include <string>
#include <utility>

namespace softskf {

// The outcome of an internal step: a result code of the C interface plus a sentence for
// people (what was wrong, with the sizes involved). The C interface returns only the code;
// the provisioning API and the debug log hand on the sentence.
struct Status {
    ULONG code = SAR_OK;
    std::string message;

    bool ok() const { return code == SAR_OK; }

    static Status success() { return {}; }
    static Status failure(ULONG code, std::string message)
    {
        return Status{code, std::move(message)};
    }
};

} // namespace softskf
