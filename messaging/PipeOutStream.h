#ifndef TEV_MESSAGING_PIPEOUTSTREAM_H
#define TEV_MESSAGING_PIPEOUTSTREAM_H

/// Names a pipe descriptor as the place that messages are written to. A small copyable value; owns nothing.
class PipeOutStream {
public:
  explicit PipeOutStream(int fd) : _fd(fd) {}
  PipeOutStream(const PipeOutStream&) = default;
  PipeOutStream& operator=(const PipeOutStream&) = default;
  virtual ~PipeOutStream() = default;

  int GetFd() const { return _fd; }

private:
  int _fd;
};

#endif
