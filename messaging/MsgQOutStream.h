#ifndef TEV_MESSAGING_MSGQOUTSTREAM_H
#define TEV_MESSAGING_MSGQOUTSTREAM_H

/// Names a System V message queue as the place that messages are written to. A small copyable value; owns nothing.
class MsgQOutStream {
public:
  explicit MsgQOutStream(int queueId) : _queueId(queueId) {}
  MsgQOutStream(const MsgQOutStream&) = default;
  MsgQOutStream& operator=(const MsgQOutStream&) = default;
  virtual ~MsgQOutStream() = default;

  int GetMsgQId() const { return _queueId; }

private:
  int _queueId;
};

#endif
