#include "asn_agents.h"

ZtAsnAgent::ZtAsnAgent(QObject *parent) : Q_Dispatch(nullptr, parent)
{
    setTarget(createComponentOrReport(QLatin1String(ZtComponentIds::kAsnProgId),
                                      QLatin1String(ZtComponentIds::kAsnClassId)));
}
ZtAsnAgent::~ZtAsnAgent() = default;

ZtAsnBlockAgent::ZtAsnBlockAgent(QObject *block) : Q_Dispatch(block, nullptr) {}
ZtAsnBlockAgent::~ZtAsnBlockAgent() = default;

ZtAsnBlockAgent *ZtAsnCalls::wrapBlock(QObject *block)
{
    return block ? new ZtAsnBlockAgent(block) : nullptr;
}
