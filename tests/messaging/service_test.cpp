// Services: their queues, what their handlers get and send, their end.

#include "tests/messaging/Fixture.h"

#include "messaging/CommObj.h"
#include "messaging/Messages.h"
#include "messaging/Protocol.h"
#include "messaging/Service.h"
#include "tests/Threads.h"

#include <atomic>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr int id = 2 * 32768 + 5; // bit 15 is clear
constexpr key_t key = 4711;
constexpr unsigned long console = 1030;

void chooseNextId(int next) { std::ofstream("/proc/sys/kernel/msg_next_id") << next; }

// A request of the console's, in the service's queue.
template <class Request>
Request& sent(Request&& request, bool sync) {
  request.SetRemote();
  if (sync) request.SetSync();
  MsgQOutStream out(static_cast<int>(request.GetDstTid()));
  request.stream(out);
  return request;
}

class Services : public Messaging {};

} // namespace

TEST_F(Services, HaveTheirFixedQueueOrSayWhyNot) {
  for (const int wanted : {protocol::videoQueueId, protocol::streamQueueId, id}) {
    const Service service("tTask", wanted, key);
    EXPECT_EQ(service.Failure(), 0);
    EXPECT_EQ(msgget(key, 0), wanted);
    EXPECT_EQ(service.GetTaskId(), static_cast<unsigned long>(wanted));
    EXPECT_EQ(Service("tOther", wanted + 1, key + 1).Failure(), EBUSY) << "one in a process";
  }
  EXPECT_EQ(msgget(key, 0), -1) << "removed at the end";
  EXPECT_EQ(Service("tTask", id, IPC_PRIVATE).Failure(), EINVAL);

  ASSERT_GE(msgget(key, IPC_CREAT | 0600), 0);
  EXPECT_EQ(Service("tTask", id, key).Failure(), EEXIST) << "the key belongs to another id";
  chooseNextId(id);
  ASSERT_EQ(msgget(key + 1, IPC_CREAT | 0600), id);
  EXPECT_EQ(Service("tTask", id, key + 2).Failure(), EEXIST) << "the id belongs to another key";
  EXPECT_EQ(msgget(key + 2, 0), -1) << "what was made instead is removed";
  errno = 0;
  EXPECT_EQ(Service("tTask", id, key + 2).Run(), -1);
  EXPECT_EQ(errno, EEXIST);

  if (seteuid(65534) != 0) GTEST_SKIP() << "no other user here";
  EXPECT_EQ(Service("tTask", id, key + 1).Failure(), EACCES) << "another user's queue";
  EXPECT_NE(Service("tTask", id + 32768, key + 2).Failure(), 0) << "may not choose an id";
  ASSERT_EQ(seteuid(0), 0);
}

TEST_F(Services, GoOnWithTheQueueThatAnEarlierProcessLeft) {
  for (const int left : {id, 0}) { // the id 0 is a task's like any other
    SCOPED_TRACE(left);
    (void)msgctl(0, IPC_RMID, nullptr);
    chooseNextId(left);
    ASSERT_EQ(msgget(key, IPC_CREAT | 0600), left);
    sent(SetLoggingModeReqMsg(console, static_cast<unsigned long>(left)), false);
    Service service("tTask", left, key);
    int handled = 0;
    service.Handle<SetLoggingModeReqMsg>([&handled](const SetLoggingModeReqMsg&) {
      ++handled;
      (void)raise(SIGTERM);
    });
    EXPECT_EQ(service.Run(), 0);
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(msgget(key, 0), -1);
  }
}

TEST_F(Services, AnswerTheConsoleOnItsPipeAndOthersOnTheirQueues) {
  const std::string pipeName = "/tmp/tCliAppTask." + std::to_string(console);
  ASSERT_EQ(mkfifo(pipeName.c_str(), 0600), 0);
  const int pipe = open(pipeName.c_str(), O_RDWR | O_NONBLOCK);
  const int other = msgget(IPC_PRIVATE, 0600);
  Service service("tTask", id, key);
  service.Handle<StreamControlReqMsg>([](const StreamControlReqMsg&) { FAIL() << "replaced below"; });
  service.Handle<StreamControlReqMsg>([](const StreamControlReqMsg& request, StreamControlRespMsg& response) {
    if (request.GetControl() == 9) throw std::runtime_error("no such control");
    response.SetStatus(request.GetType());
  });
  service.Handle<TakeSnapshotReqMsg>([&service](const TakeSnapshotReqMsg& request) {
    if (request.GetSlot() == 7) (void)service.MakeResponse(request).release()->Send();
    (void)raise(SIGTERM);
    EXPECT_TRUE(service.Ending());
  });
  StreamControlReqMsg request(console, id);
  request.SetControl(9);
  sent(request, true);
  request.SetControl(2);
  request.SetType(3);
  sent(request, true);
  sent(StreamControlReqMsg(static_cast<unsigned long>(other), id), false);
  sent(SetVideoModeReqMsg(console, id), true); // has no handler
  TakeSnapshotReqMsg snapshot(console, id);
  snapshot.SetSlot(7);
  sent(snapshot, true);
  sent(request, true); // in the queue when SIGTERM arrives
  EXPECT_EQ(trace().find("duplicate"), std::string::npos);
  EXPECT_EQ(service.Run(), 0);

  StreamControlRespMsg stream(id, console, 3);
  TakeSnapshotRespMsg taken(id, console);
  std::string replies;
  for (MsgObj* const reply :
       {static_cast<MsgObj*>(&stream), static_cast<MsgObj*>(&taken), static_cast<MsgObj*>(&stream)}) {
    reply->SetSync();
    replies += (replies.empty() ? "" : " ") + hex(reply->image(), reply->size());
  }
  EXPECT_EQ(takeFromPipe(pipe), replies);
  EXPECT_EQ(takeFromQueue(other).substr(9, 5), "00 6b");
  const std::string log = trace();
  EXPECT_NE(log.find("error: no such control\n"), log.npos);
  EXPECT_NE(log.find("returning 0 for creation request of msgid: 100\n"), log.npos);
  close(pipe);
}

// Whether the signal finds the service waiting, on its way to wait, or with a queue that has no room.
TEST_F(Services, EndAtTheSignal) {
  for (const int requests : {0, 1, 1000}) {
    SCOPED_TRACE(requests);
    Service service("tTask", id, key);
    const std::string pipeName = "/tmp/tTask." + std::to_string(id);
    EXPECT_EQ(access(pipeName.c_str(), F_OK), 0);
    std::atomic<int> handled{0};
    service.Handle<SetLoggingModeReqMsg>([&handled](const SetLoggingModeReqMsg&) { ++handled; });
    int queued = 0;
    struct msqid_ds queue {};
    while (queued < requests && msgctl(id, IPC_STAT, &queue) == 0 && queue.msg_cbytes + 20 <= queue.msg_qbytes) {
      sent(SetLoggingModeReqMsg(console, id), false);
      ++queued;
    }
    std::thread ender;
    if (requests > 1)
      (void)raise(SIGTERM); // before Run()
    else
      ender = std::thread([&] {
        waitUntil([&] { return handled == queued; });
        (void)raise(SIGTERM); // on this thread: the call that waits for a message is not interrupted
      });
    EXPECT_EQ(service.Run(), 0);
    if (ender.joinable()) ender.join();
    EXPECT_EQ(handled, queued);
    EXPECT_EQ(msgget(key, 0), -1);
    EXPECT_EQ(access(pipeName.c_str(), F_OK), -1);
  }
  struct sigaction now {};
  ASSERT_EQ(sigaction(SIGTERM, nullptr, &now), 0);
  EXPECT_EQ(now.sa_handler, SIG_DFL);
}

TEST_F(Services, EndWithTheirQueue) {
  Service service("tTask", id, key);
  ASSERT_EQ(msgctl(id, IPC_RMID, nullptr), 0);
  EXPECT_EQ(service.Run(), -1);
  EXPECT_EQ(errno, EIDRM);
}
