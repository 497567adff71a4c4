// Built against the plug-in's target alone, as a host project would use it: a public header
// that needed a private one would not compile here.

#include "entry_points.h"
#include "zt_cryptographic.h"
#include "zt_envelope_data.h"

int ztPublicHeaderConsumer()
{
    ZtEnvelopeData envelope;
    return envelope.GetEncContent().size() + (CreateComponent == nullptr ? 1 : 0);
}
