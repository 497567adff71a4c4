#include "zt_envelope_data.h"

ZtEnvelopeData::ZtEnvelopeData() = default;
ZtEnvelopeData::~ZtEnvelopeData() = default;

void ZtEnvelopeData::SetRecCert(QByteArray cert)
{
    recCert = cert;
}

void ZtEnvelopeData::SetEncContent(QByteArray content)
{
    encContent = content;
}

QByteArray ZtEnvelopeData::GetEncContent()
{
    return encContent;
}
