#pragma once

#include <QtGlobal>

namespace zthost::bridge {

// Follows the frame headers of one direction of a WebSocket byte stream without keeping any
// payload; reads untrusted bytes from any local process. Qt's reader accepts a client frame
// without a mask, which the protocol forbids: the bridge relays each client's bytes through
// this tracker, which reads the same stream from the same first byte as Qt's reader and so
// finds every frame header Qt will read.
class FrameTracker
{
public:
    enum class Fault { None, Unmasked, LengthTooLarge, MessageTooLarge };

    // `requireMask`: the stream comes from a client, whose every frame must be masked.
    // `maxMessageBytes`: a data message (all its frames) longer than this is a fault, found at
    // the header of the frame that would pass it; 0 for no limit.
    explicit FrameTracker(bool requireMask, quint64 maxMessageBytes = 0)
        : m_requireMask(requireMask), m_maxMessageBytes(maxMessageBytes)
    {
    }

    // Follows the next `size` bytes of the stream and returns how many it took: all of them,
    // or, on a fault, those before the faulty header's byte, or with `stopAtFrameEnd`, those up
    // to the end of the frame in progress. A fault is final.
    qint64 follow(const char *data, qint64 size, bool stopAtFrameEnd = false);

    Fault fault() const { return m_fault; }
    // Between two frames: a frame of another sender may be put here.
    bool atFrameBoundary() const { return m_state == State::FirstByte; }

private:
    enum class State { FirstByte, SecondByte, ExtendedLength, MaskKey, Payload, Failed };

    void headerDone();
    // True when the frame whose length was just read takes its message past the limit.
    bool passesMessageLimit();

    // The two extended lengths: 16 and 64 bits.
    static constexpr int kShortExtendedLengthBytes = 2;
    static constexpr int kLongExtendedLengthBytes = 8;
    static constexpr int kMaskKeyBytes = 4;
    static constexpr quint8 kMaskBit = 0x80;
    static constexpr quint8 kFinalBit = 0x80;
    static constexpr quint8 kControlOpcodeBit = 0x08;
    static constexpr quint8 kLengthTopBit = 0x80;
    static constexpr quint8 kLengthBits = 0x7f;
    static constexpr quint8 kShortExtendedLength = 126;
    static constexpr quint8 kLongExtendedLength = 127;

    bool m_requireMask;
    quint64 m_maxMessageBytes;
    Fault m_fault = Fault::None;
    // Of the frame in progress.
    bool m_final = false;
    bool m_control = false;
    // The data message's bytes in the frames before the one in progress.
    quint64 m_messageBytes = 0;
    State m_state = State::FirstByte;
    bool m_masked = false;
    int m_bytesLeftInField = 0;
    quint64 m_length = 0;
};

} // namespace zthost::bridge
