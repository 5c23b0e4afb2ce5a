// Endpoints: their queues, pipes and table, sending from them, waiting for replies, ending them.

#include "tests/messaging/Fixture.h"

#include "messaging/CommObj.h"
#include "messaging/ProxyCommObj.h"
#include "messaging/SetVideoModeReqMsg.h"
#include "messaging/SetVideoModeRespMsg.h"
#include "messaging/internal/FloodGate.h"
#include "messaging/internal/MsgQueue.h"
#include "tests/Threads.h"

#include <atomic>
#include <chrono>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;

std::atomic<int> refusal; // errno of every msgrcv, 0 for none
std::atomic<int> refused;

bool queueExists(int id) {
  struct msqid_ds status;
  return msgctl(id, IPC_STAT, &status) == 0;
}

// 0 for a queue that is gone.
unsigned long messagesIn(int queueId) {
  struct msqid_ds status = {};
  return msgctl(queueId, IPC_STAT, &status) == 0 ? status.msg_qnum : 0;
}

// A queue without a key, with room for so many bytes of text.
int newQueue(msglen_t room = 1000) {
  const int id = msgget(IPC_PRIVATE, 0600);
  struct msqid_ds queue;
  EXPECT_EQ(msgctl(id, IPC_STAT, &queue), 0);
  queue.msg_qbytes = room;
  EXPECT_EQ(msgctl(id, IPC_SET, &queue), 0);
  return id;
}

template <class Message>
Message* toAnotherProcess(unsigned long source, int queue) {
  auto* message = new Message(source, static_cast<unsigned long>(queue));
  message->SetRemote();
  return message;
}

// A sixteenth message, whose handler counts.
class CountedMsg : public MsgOf<CountedMsg> {
public:
  static const MsgLayout layout;
  static std::atomic<int> handled, alive, lastWord;

  using MsgOf::MsgOf;
  CountedMsg() { ++alive; }
  CountedMsg(unsigned long src, unsigned long dst) : MsgOf(src, dst) { ++alive; }
  ~CountedMsg() override { --alive; }
  int InvokeHandler(CommObj*) override {
    lastWord = word(0);
    return ++handled;
  }
  MsgObj* CreateResponse() override { return nullptr; }
};
const MsgLayout CountedMsg::layout = {"CountedMsg", 200, PipeForm::native, true, false, {{"count", 77}}};
std::atomic<int> CountedMsg::handled, CountedMsg::alive, CountedMsg::lastWord;

// Makes no messages.
class BarrenMsg : public CountedMsg {
public:
  using CountedMsg::CountedMsg;
  MsgObj* Create(const void*) override { return nullptr; }
};

class Endpoint : public Messaging {
protected:
  void TearDown() override { CommObj::StopAll(); }

  static void put(const CommObj& endpoint, const std::string& bytes) {
    ASSERT_EQ(write(endpoint.GetPipeFd(), bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }
};

} // namespace

extern "C" ssize_t msgrcv(int queue, void* message, size_t size, long type, int flags) {
  static const auto systems = reinterpret_cast<decltype(&msgrcv)>(dlsym(RTLD_NEXT, "msgrcv"));
  if (refusal == 0) return systems(queue, message, size, type, flags);
  ++refused;
  errno = refusal;
  return -1;
}

// What becomes of queue and pipe, and what an endpoint without a queue does, is in the sessions of the shell's task.
TEST_F(Endpoint, HasAQueueAPipeAndAPlaceInTheTables) {
  EXPECT_EQ(CommObj::NextMsgQKey(), 87655);
  CommObj::SetKey(153190);
  auto* cli = new CommObj("tCliAppTask");
  const std::string id = std::to_string(cli->GetTaskId());
  EXPECT_EQ(trace(), "Creating Task: tCliAppTask(" + id + ") with msgqid: " + id + "\n");
  auto* other = new CommObj("a name of thirty characters ok");
  const std::string otherId = std::to_string(other->GetTaskId());
  EXPECT_EQ(trace(), "Creating Task: a name of thirty charac(" + otherId + ") with msgqid: " + otherId + "\n");
  EXPECT_EQ(msgget(153191, 0), cli->GetMsgQId());
  EXPECT_EQ(msgget(153192, 0), other->GetMsgQId());
  EXPECT_EQ(cli->GetPipeName(), "/tmp/tCliAppTask." + id);

  EXPECT_EQ(CommObj::TaskId2CommObj(cli->GetTaskId()), cli);
  EXPECT_EQ(CommObj::TaskId2CommObj(4711), nullptr);
  EXPECT_EQ(CommObj::TaskName2TaskId("a name of thirty charac"), other->GetTaskId());
  EXPECT_EQ(CommObj::TaskName2Handle("tCliAppTask"), cli);
  EXPECT_EQ(trace(), "");
  EXPECT_EQ(CommObj::TaskName2TaskId("tcliAppTask"), 0u);
  EXPECT_EQ(trace(), "CommObj::TaskName2TaskId(...) - did not find task: tcliAppTask\n");
  EXPECT_EQ(CommObj::TaskName2Handle("x"), nullptr);
  EXPECT_EQ(trace(), "CommObj::TaskName2TaskId(...) - did not find task: x\n");

  const std::pair<const char*, unsigned long> proxies[] = {{"tVideoPhalTask", 98307},
                                                           {"tVideoPhalT", 0},
                                                           {"tVideoPhalTaxx", 98307},
                                                           {"tStreamAppTask", 229383},
                                                           {"tAdminAppTask", 0},
                                                           {"tClix", cli->GetTaskId()},
                                                           {"tCl", 0},
                                                           {"", 0}};
  for (const auto& [name, tid] : proxies)
    EXPECT_EQ(ProxyCommObj(name).Tid(), tid) << name;
}

// Every row of the table by which a message is sent.
TEST_F(Endpoint, SendsWhereIdsFlagsAndKindSay) {
  auto* a = new CommObj("a");
  auto* b = new CommObj("b");
  const int far = newQueue();
  const unsigned long A = a->GetTaskId(), B = b->GetTaskId(), F = static_cast<unsigned long>(far), stranger = 4711;
  const std::string notSent = "MsgObj::send() - not calling pTargetCommObj->receive(...)\n";
  struct {
    const char* what;
    unsigned long src, dst;
    bool request, sync, remote;
    int landsIn; // 0 nowhere, 1 b's queue, 2 b's pipe, 3 the far queue
    std::string trace;
  } const rows[] = {
      {"local request", A, B, true, false, false, 1, ""},
      {"local request, remote flag", A, B, true, false, true, 1, ""},
      {"local asynchronous response", A, B, false, false, false, 1, ""},
      {"local synchronous response", A, B, false, true, false, 2, ""},
      {"far request", A, F, true, false, true, 3, ""},
      {"far asynchronous response", A, F, false, false, true, 3, ""},
      {"far request without the remote flag", A, F, true, false, false, 0, notSent},
      {"from a stranger", stranger, B, true, false, true, 0, notSent},
      {"from a stranger, synchronous", stranger, F, true, true, true, 0, notSent},
  };
  (void)trace();
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    MsgObj* message = row.request ? static_cast<MsgObj*>(new SetVideoModeReqMsg(row.src, row.dst))
                                  : static_cast<MsgObj*>(new SetVideoModeRespMsg(row.src, row.dst));
    if (row.sync) message->SetSync();
    row.remote ? message->SetRemote() : message->ClearRemote();
    EXPECT_EQ(message->Send(), nullptr);
    EXPECT_EQ(trace(), row.trace);
    EXPECT_EQ(takeFromQueue(b->GetMsgQId()) != "empty", row.landsIn == 1);
    EXPECT_EQ(takeFromPipe(b->GetPipeFd()) != "empty", row.landsIn == 2);
    EXPECT_EQ(takeFromQueue(far) != "empty", row.landsIn == 3);
  }
  EXPECT_EQ(b->ReceiveAsync(stranger, std::make_unique<SetVideoModeReqMsg>(1, 2).get(), 20), 0);
  EXPECT_EQ(takeFromQueue(b->GetMsgQId()), "empty") << "only senders of this process are delivered";

  MsgQOutStream out(far);
  ProxyCommObj proxy(out);
  EXPECT_EQ(proxy.Receive(std::make_unique<SetVideoModeReqMsg>(A, F).get()), 0);
  EXPECT_NE(takeFromQueue(far), "empty");
}

TEST_F(Endpoint, WaitsForRoomInAFullQueue) {
  const unsigned long source = (new CommObj("a"))->GetTaskId();
  const int far = newQueue(50); // two messages
  std::thread sender([&] {
    for (int i = 0; i < 10; ++i)
      (void)toAnotherProcess<SetVideoModeReqMsg>(source, far)->Send();
  });
  int received = 0;
  waitUntil([&] { return takeFromQueue(far) != "empty" && ++received == 10; });
  sender.join();
}

// Within the process, as across processes: lock, drain, request on the queue, reply on the pipe.
TEST_F(Endpoint, ExchangesLocally) {
  auto* asking = new CommObj("asking");
  auto* asked = new CommObj("asked");
  auto* request = new SetVideoModeReqMsg(asking->GetTaskId(), asked->GetTaskId());
  request->SetSync();
  asking->SyncLock();
  put(*asking, "ten stale!");
  std::unique_ptr<MsgObj> reply;
  std::thread requester([&] { reply.reset(request->Send()); });
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(messagesIn(asked->GetMsgQId()), 0u) << "another exchange has the lock";
  asking->SyncUnLock();
  waitUntil([&] { return messagesIn(asked->GetMsgQId()) == 1; });
  const SetVideoModeRespMsg answer(9, 5, 4);
  put(*asking, std::string(static_cast<const char*>(answer.image()), answer.size()));
  requester.join();
  ASSERT_NE(reply, nullptr);
  EXPECT_EQ(hex(reply->image(), reply->size()), hex(answer.image(), answer.size()));
}

TEST_F(Endpoint, RepliesToTheConsolesPipeOnly) {
  auto* service = new CommObj("service");
  const unsigned long console = service->GetTaskId() + 1000;
  const std::string pipeName = "/tmp/tCliAppTask." + std::to_string(console);
  auto reply = [&](int closed = -1) { // returns what is printed
    auto* message = new SetVideoModeRespMsg(service->GetTaskId(), console, 3);
    message->SetSync();
    return reported([&] {
      (void)close(closed);
      EXPECT_EQ(message->Send(), nullptr);
    });
  };
  EXPECT_EQ(reply(), "bad pipefd!? pipefd=-1, errno=2, No such file or directory\n");
  std::ofstream("/tmp/victim") << "kept";
  ASSERT_EQ(symlink("/tmp/victim", pipeName.c_str()), 0);
  EXPECT_EQ(reply(), "bad pipefd!? pipefd=-1, errno=40, Too many levels of symbolic links\n");
  ASSERT_EQ(rename("/tmp/victim", pipeName.c_str()), 0);
  EXPECT_EQ(reply(), "bad pipefd!? pipefd=-1, errno=22, Invalid argument\n");
  EXPECT_EQ(contents(pipeName), "kept");

  ASSERT_EQ(unlink(pipeName.c_str()), 0);
  ASSERT_EQ(mkfifo(pipeName.c_str(), 0600), 0);
  const int pipe = open(pipeName.c_str(), O_RDWR | O_NONBLOCK);
  const auto before = openFiles();
  EXPECT_EQ(reply(), "");
  EXPECT_EQ(openFiles(), before);
  SetVideoModeRespMsg sent(service->GetTaskId(), console, 3);
  sent.SetSync();
  EXPECT_EQ(takeFromPipe(pipe), hex(sent.image(), sent.size()));
  EXPECT_EQ(reply(STDIN_FILENO).substr(0, 22), "bad pipefd!? pipefd=0,") << "the descriptor 0 counts as none";
  EXPECT_EQ(takeFromPipe(pipe), "empty");
  close(pipe);
}

// What comes in place of a reply is in the sessions with faulty services, and in the trial of the exchange.
TEST_F(Endpoint, WaitsForNoReplyWhereNoneCanCome) {
  auto* cli = new CommObj("tCliAppTask");
  (void)trace();
  CountedMsg request(cli->GetTaskId(), 7); // has no reply class
  EXPECT_EQ(cli->ReadReplyMsg(&request), nullptr);
  EXPECT_EQ(trace(), "pRespMsg==0\nCommObj::ReadReplyMsg(...) - returning pRespMsg = 0\n\n");
  class LargeMsg : public CountedMsg { // of more bytes than an image has
  public:
    unsigned int size() const override { return 400; }
    MsgObj* CreateResponse() override { return new LargeMsg; }
  } large;
  put(*cli, std::string(400, 'x'));
  EXPECT_EQ(cli->ReadReplyMsg(&large), nullptr);
  EXPECT_EQ(trace().substr(0, 60), "couldn't get all the expected data, size=400, left=400\nCommO");
  (void)close(cli->GetPipeFd());
  EXPECT_EQ(cli->ReadReplyMsg(std::make_unique<SetVideoModeReqMsg>(1, 2).get()), nullptr);
  EXPECT_EQ(trace(), "CommObj::ReadReplyMsg(): select(...) error: errno= 9\n"
                     "CommObj::ReadReplyMsg(...) - returning pRespMsg = 0\n\n");
}

TEST_F(Endpoint, ReceivesWhatItHasPrototypesFor) {
  static CountedMsg prototype{Exemplar()};
  static BarrenMsg duplicate{Exemplar()};
  EXPECT_EQ(trace(), "MsgObj::MsgObj(anExemplar) - adding msgid: 200\n"
                     "MsgObj::MsgObj(anExemplar) - duplicate encountered!!!\n");
  auto* endpoint = new CommObj("receiver");
  endpoint->go(50, 64000);
  const int queue = endpoint->GetMsgQId();
  auto send = [queue](const std::string& text) {
    struct {
      long type;
      char text[1024];
    } message = {1, {}};
    std::memcpy(message.text, text.data(), text.size());
    ASSERT_EQ(msgsnd(queue, &message, text.size(), 0), 0);
  };
  const std::string counted("\0\xc8\0\0\0\0\0\5\0\0\0\7\1\2\0\0\0\0\0\0", 20);
  send(std::string(1000, 'x'));       // longer than any message
  send(std::string("\0\x64\0\0", 4)); // no prototype
  send("");                           // not even an id
  send(counted);
  ASSERT_NO_FATAL_FAILURE(waitUntil([] { return CountedMsg::handled == 1; }));
  EXPECT_EQ(CountedMsg::lastWord, 0x0102);
  send(counted.substr(0, 12)); // the payload is missing, and must not be that of the message before
  waitUntil([] { return CountedMsg::handled == 2; });
  EXPECT_EQ(CountedMsg::lastWord, 0);
  EXPECT_EQ(endpoint->GetPid(), static_cast<uint16_t>(getpid()));
  waitUntil([] { return CountedMsg::alive == 0; }); // handled messages are deleted
  const std::string id = std::to_string(queue);
  const std::string log = trace();
  EXPECT_EQ(log.substr(log.find('\n') + 1), "CommObj::run() - dropping an oversized message from msgQ: " + id +
                                                "\nMsgObj::Make(): returning 0 for creation request of msgid: 100\n"
                                                "MsgObj::Make(): returning 0 for creation request of msgid: 0\n");
  ASSERT_EQ(msgctl(queue, IPC_RMID, nullptr), 0);
  waitUntil([&] { return trace() == "CommObj::run() - msgQ is gone: " + id + "\n"; });
}

TEST_F(Endpoint, PausesWhenItCannotReceive) {
  static CountedMsg prototype{Exemplar()};
  auto* endpoint = new CommObj("receiver");
  refusal = EACCES;
  (void)trace();
  const auto start = std::chrono::steady_clock::now();
  endpoint->go(50, 64000);
  waitUntil([] { return refused >= 2; });
  EXPECT_GE(std::chrono::steady_clock::now() - start, 1s);
  refusal = 0;
  const std::string line = "CommObj::run() - cannot receive from msgQ: " + std::to_string(endpoint->GetMsgQId());
  EXPECT_EQ(trace().substr(0, line.size() + 12), line + ", errno= 13\n");
  MsgQOutStream out(endpoint->GetMsgQId());
  CountedMsg(5, 7).stream(out);
  waitUntil([] { return CountedMsg::handled == 1; });
}

// Of messages without a use only so many get a line that a flood does not fill the memory.
TEST_F(Endpoint, LogsTheBeginningOfAFlood) {
  auto* endpoint = new CommObj("flooded");
  endpoint->go(50, 64000);
  (void)trace();
  MsgQOutStream out(endpoint->GetMsgQId());
  for (int i = 0; i < 11'000; ++i)
    SetVideoModeReqMsg(5, 7).stream(out);
  waitUntil([&] { return messagesIn(endpoint->GetMsgQId()) == 0; });
  const std::string lines = trace();
  EXPECT_GE(std::count(lines.begin(), lines.end(), '\n'), FloodGate::burst);
  EXPECT_LT(std::count(lines.begin(), lines.end(), '\n'), 11'000);
  std::this_thread::sleep_for(1100ms);
  SetVideoModeReqMsg(5, 7).stream(out);
  std::string last;
  waitUntil([&] { return (last += trace()).find("msgid: 100\n") != std::string::npos; });
  EXPECT_TRUE(matches(last, "CommObj::run\\(\\) - messages dropped without a line: [0-9]+\n.*\n"));
}

// A handler that waits for room in a full queue does not keep the endpoints alive.
TEST_F(Endpoint, StopsWhileAHandlerSends) {
  static std::atomic<int> blockedIn{-1};
  class SendingMsg : public CountedMsg {
  public:
    using CountedMsg::CountedMsg;
    MsgObj* Create(const void*) override { return new SendingMsg(0, 0); }
    int InvokeHandler(CommObj* receiver) override {
      for (blockedIn = newQueue(50);;)
        delete toAnotherProcess<CountedMsg>(receiver->GetTaskId(), blockedIn)->Send();
    }
  };
  static SendingMsg prototype{Exemplar()};
  auto* sending = new CommObj("sending");
  sending->go(50, 64000);
  (new CommObj("other"))->go(50, 64000);
  MsgQOutStream out(sending->GetMsgQId());
  CountedMsg(5, 7).stream(out);
  waitUntil([] { return messagesIn(blockedIn) == 2; }); // and the next one waits, now or soon
  CommObj::StopAll();
  EXPECT_EQ(CountedMsg::alive, 0) << "the messages that were being sent and handled are gone";
}

// However the flood and the end meet, the thread is gone before its endpoint, and leaves no lock behind.
TEST_F(Endpoint, StopsInTheMiddleOfAFlood) {
  static CountedMsg prototype{Exemplar()};
  for (int round = 0; round < 60; ++round) {
    CommObj::SetKey(200000);
    auto* endpoint = new CommObj("flooded");
    const int queue = endpoint->GetMsgQId();
    endpoint->go(50, 64000);
    std::atomic<bool> flooding{true};
    std::thread flooder([&] {
      for (MsgQOutStream out(queue); flooding;) {
        CountedMsg(5, 7).stream(out);
        SetVideoModeReqMsg(5, 7).stream(out); // unknown: written to the trace log
      }
    });
    usleep(static_cast<useconds_t>(round * 200));
    CommObj::StopAll();
    flooding = false;
    flooder.join();
    ASSERT_FALSE(queueExists(queue));
    tev::log << "free" << tev::endl;
  }
}
