#pragma once

#include "session/scriptable_calls.h"

#include <QString>

#include <memory>

namespace zthost {

// Whoever can make more scriptable objects, each with a life of its own: the web bridge gives
// every page one, so one page's open key and PIN never reach another's.
class ScriptableSource
{
public:
    virtual ~ScriptableSource() = default;

    // A new scriptable object behind its calls; deleting the answer deletes the object. Null
    // with `error` set when none can be made. The answer must not outlive the source.
    virtual std::unique_ptr<ScriptableCalls> createScriptable(QString *error) = 0;
};

} // namespace zthost
