#ifndef TEV_MESSAGING_MSGQOUTSTREAM_H
#define TEV_MESSAGING_MSGQOUTSTREAM_H

/// Names a System V message queue as the place that messages are written to, and knows how the last write ended. A
/// small copyable value; owns nothing.
class MsgQOutStream {
public:
  explicit MsgQOutStream(int queueId) : _queueId(queueId) {}
  MsgQOutStream(const MsgQOutStream&) = default;
  MsgQOutStream& operator=(const MsgQOutStream&) = default;
  virtual ~MsgQOutStream() = default;

  int GetMsgQId() const { return _queueId; }

  /// 0, or msgsnd's errno if the last message could not be written.
  int GetFailure() const { return _failure; }
  void SetFailure(int reason) { _failure = reason; }

private:
  int _queueId;
  int _failure = 0;
};

#endif
