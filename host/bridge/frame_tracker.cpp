// Reads untrusted bytes: the frame headers of any local process's WebSocket stream.
#include "bridge/frame_tracker.h"

namespace zthost::bridge {

qint64 FrameTracker::follow(const char *data, qint64 size, bool stopAtFrameEnd)
{
    qint64 at = 0;
    while (at < size) {
        const auto byte = static_cast<quint8>(data[at]);
        switch (m_state) {
        case State::Failed:
            return at;
        case State::FirstByte:
            // Between frames: the frame in progress, if any, has ended.
            if (stopAtFrameEnd)
                return at;
            m_final = (byte & kFinalBit) != 0;
            m_control = (byte & kControlOpcodeBit) != 0;
            ++at;
            m_state = State::SecondByte;
            break;
        case State::SecondByte: {
            m_masked = (byte & kMaskBit) != 0;
            if (m_requireMask && !m_masked) {
                m_fault = Fault::Unmasked;
                m_state = State::Failed;
                return at;
            }
            ++at;
            const quint8 length = byte & kLengthBits;
            m_length = 0;
            if (length == kShortExtendedLength) {
                m_bytesLeftInField = kShortExtendedLengthBytes;
                m_state = State::ExtendedLength;
            } else if (length == kLongExtendedLength) {
                m_bytesLeftInField = kLongExtendedLengthBytes;
                m_state = State::ExtendedLength;
            } else {
                m_length = length;
                if (passesMessageLimit())
                    return at - 1;
                headerDone();
            }
            break;
        }
        case State::ExtendedLength:
            // The most significant bit of a 64-bit length must be 0, which also keeps the
            // count of bytes to skip in range.
            if (m_bytesLeftInField == kLongExtendedLengthBytes && (byte & kLengthTopBit) != 0) {
                m_fault = Fault::LengthTooLarge;
                m_state = State::Failed;
                return at;
            }
            m_length = (m_length << 8) | byte;
            ++at;
            if (--m_bytesLeftInField == 0) {
                if (passesMessageLimit())
                    return at - 1;
                headerDone();
            }
            break;
        case State::MaskKey:
            ++at;
            if (--m_bytesLeftInField == 0) {
                m_state = m_length > 0 ? State::Payload : State::FirstByte;
            }
            break;
        case State::Payload: {
            // Skipped, never kept: a frame may be as long as the message limit.
            const quint64 skip = qMin<quint64>(m_length, quint64(size - at));
            at += qint64(skip);
            m_length -= skip;
            if (m_length == 0)
                m_state = State::FirstByte;
            break;
        }
        }
    }
    return at;
}

bool FrameTracker::passesMessageLimit()
{
    // Control frames (close, ping, pong) sit between a message's frames and are no part of it.
    if (m_maxMessageBytes == 0 || m_control)
        return false;
    if (m_length <= m_maxMessageBytes && m_messageBytes <= m_maxMessageBytes - m_length) {
        m_messageBytes = m_final ? 0 : m_messageBytes + m_length;
        return false;
    }
    m_fault = Fault::MessageTooLarge;
    m_state = State::Failed;
    return true;
}

void FrameTracker::headerDone()
{
    if (m_masked) {
        m_bytesLeftInField = kMaskKeyBytes;
        m_state = State::MaskKey;
    } else {
        m_state = m_length > 0 ? State::Payload : State::FirstByte;
    }
}

} // namespace zthost::bridge
