#include "asn_agents.h"

ZtAsnAgent::ZtAsnAgent(QObject *parent) : Q_Dispatch(nullptr, parent)
{
    setTarget(createComponentOrReport(QLatin1String(ZtComponentIds::kAsnProgId),
                                      QLatin1String(ZtComponentIds::kAsnClassId)));
}
ZtAsnAgent::~ZtAsnAgent() = default;

ZtAsnBlockAgent::ZtAsnBlockAgent(QObject *block) : Q_Dispatch(block, nullptr) {}
ZtAsnBlockAgent::~ZtAsnBlockAgent() = default;

// Every agent made here is kept by the envelope code for the life of the process; the
// sanitizers' suppression file names this function for that deliberate leak.
__attribute__((noinline)) ZtAsnBlockAgent *ZtAsnCalls::wrapBlock(QObject *block)
{
    return block ? new ZtAsnBlockAgent(block) : nullptr;
}
