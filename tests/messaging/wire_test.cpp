// The bytes of all messages, on real queues and pipes, and the way back.

#include "tests/messaging/Fixture.h"

#include "log/tevlog.h"
#include "messaging/Messages.h"
#include "messaging/internal/MsgQueue.h"
#include "tests/Threads.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <unistd.h>
#include <vector>

namespace {

using MsgPtr = std::unique_ptr<MsgObj>;

// One message class: a message from 5 to 7 with its fields set, and what it must look like everywhere.
struct Row {
  std::string name;
  unsigned answer; ///< message id of the response, 0 for none
  std::function<MsgPtr()> make;
  std::function<void(tev::tevlog&, const MsgObj&)> render;
  unsigned int size;
  std::string onQueue; ///< kernel's type: text
  std::string onPipe;
  bool restoresFlags;
  std::string mtype, fields; ///< in the trace log
};

template <class Message, class Fill>
Row row(const char* name, unsigned answer, Fill fill, unsigned size, const char* onQueue, const char* onPipe,
        bool restoresFlags, const char* mtype, const char* fields) {
  auto make = [fill] {
    auto message = std::make_unique<Message>(5, 7);
    fill(*message);
    return MsgPtr(std::move(message));
  };
  auto render = [](tev::tevlog& log, const MsgObj& message) { log << static_cast<const Message&>(message); };
  return {name, answer, make, render, size, onQueue, onPipe, restoresFlags, mtype, fields};
}

// The message with the payload 1, 2, 3, ...
template <class Message>
Message numbered() {
  Message message;
  for (size_t i = 0; i < MsgImage::wordsMax; ++i)
    message.setWord(i, static_cast<uint16_t>(i + 1));
  return message;
}

// clang-format off
const std::vector<Row>& catalogue() {
  static const std::vector<Row> rows = {
    row<SetVideoModeReqMsg>("SetVideoModeReqMsg", 101, [](auto& m) { m.SetMode(9); }, 20, "5006400: 00 64 00 00 00 00 00 05 00 00 00 07 00 09 00 00 00 00 00 00", "05 00 64 00 64 00 00 00 05 00 00 00 07 00 00 00 09 00 00 00", true, "", "   mode    = 9\n"),
    row<SetVideoModeRespMsg>("SetVideoModeRespMsg", 0, [](auto& m) { m.SetStatus(258); }, 20, "5006500: 00 65 00 00 00 00 00 05 00 00 00 07 01 02 00 00 00 00 00 00", "05 00 65 00 65 00 00 00 05 00 00 00 07 00 00 00 02 01 00 00", true, "", "   status  = 258\n"),
    row<GetVideoResolutionReqMsg>("GetVideoResolutionReqMsg", 103, [](auto& m) { (void)m; }, 16, "5006600: 00 66 00 00 00 00 00 05 00 00 00 07 00 00 00 00", "empty", true, "", ""),
    row<GetVideoResolutionRespMsg>("GetVideoResolutionRespMsg", 0, [](auto& m) { m.SetStatus(0); m.SetHorizontal(1280); m.SetVertical(720); m.SetQualifier(2); m.SetHertz(30); m.SetSdpStd(258); }, 28, "5006700: 00 67 00 00 00 00 00 05 00 00 00 07 00 00 05 00 02 d0 00 02 00 1e 01 02 00 00 00 00", "05 00 67 00 67 00 00 00 05 00 00 00 07 00 00 00 00 00 00 05 d0 02 02 00 1e 00 02 01", false, "", "   status  = 0\n   horizontal = 1280\n   vertical   = 720\n   qualifier  = 2\n   hertz      = 30\n   sdp_std    = 258\n"),
    row<SetVideoResolutionReqMsg>("SetVideoResolutionReqMsg", 105, [](auto& m) { m.SetHorizontal(1280); m.SetVertical(720); m.SetQualifier(2); m.SetHertz(30); }, 24, "5006800: 00 68 00 00 00 00 00 05 00 00 00 07 05 00 02 d0 00 02 00 1e 00 00 00 00", "05 00 68 00 68 00 00 00 05 00 00 00 07 00 00 00 00 05 d0 02 02 00 1e 00", true, "", "   horizontal = 1280\n   vertical   = 720\n   qualifier  = 2\n   hertz      = 30\n"),
    row<SetVideoResolutionRespMsg>("SetVideoResolutionRespMsg", 0, [](auto& m) { m.SetStatus(258); }, 20, "5006900: 00 69 00 00 00 00 00 05 00 00 00 07 01 02 00 00 00 00 00 00", "05 00 69 00 69 00 00 00 05 00 00 00 07 00 00 00 02 01 00 00", false, "", "   status  = 258\n"),
    row<StreamControlReqMsg>("StreamControlReqMsg", 107, [](auto& m) { m.SetControl(2); m.SetType(3); }, 20, "5006a00: 00 6a 00 00 00 00 00 05 00 00 00 07 00 02 00 03 00 00 00 00", "empty", true, "", "   control = 2\n   type    = 3\n"),
    row<StreamControlRespMsg>("StreamControlRespMsg", 0, [](auto& m) { m.SetStatus(258); }, 20, "5006b00: 00 6b 00 00 00 00 00 05 00 00 00 07 01 02 00 00 00 00 00 00", "05 00 6b 00 6b 00 00 00 05 00 00 00 07 00 00 00 02 01 00 00", false, "", "   status  = 258\n"),
    row<AdminControlReqMsg>("AdminControlReqMsg", 109, [](auto& m) { m.SetArg1(258); m.SetArg2(2); m.SetArg3(3); m.SetArg4(4); }, 28, "5006c00: 00 6c 00 00 00 00 00 05 00 00 00 07 00 02 01 02 00 02 00 03 00 04 00 00 00 00 00 00", "00 6c 00 05 00 6c 00 00 00 00 00 05 00 00 00 07 00 02 01 02 00 02 00 03 00 04 00 00", true, "   mtype   = 0x6c8005\n", "   control = 2\n   arg1    = 258\n   arg2    = 2\n   arg3    = 3\n   arg4    = 4\n"),
    row<AdminControlRespMsg>("AdminControlRespMsg", 0, [](auto& m) { m.SetStatus(258); }, 20, "5006d00: 00 6d 00 00 00 00 00 05 00 00 00 07 01 02 00 00 00 00 00 00", "00 6d 00 05 00 6d 00 00 00 00 00 05 00 00 00 07 01 02 00 00", false, "   mtype   = 0x6d8005\n", "   status  = 258\n"),
    row<TakeSnapshotReqMsg>("TakeSnapshotReqMsg", 111, [](auto& m) { m.SetSlot(7); m.SetScale(8); }, 20, "5006e00: 00 6e 00 00 00 00 00 05 00 00 00 07 00 07 00 08 00 00 00 00", "empty", true, "   mtype   = 0x6e8005\n", "   slot    = 7\n   scale   = 8\n"),
    row<TakeSnapshotRespMsg>("TakeSnapshotRespMsg", 0, [](auto& m) { m.SetStatus(258); }, 20, "5006f00: 00 6f 00 00 00 00 00 05 00 00 00 07 01 02 00 00 00 00 00 00", "05 00 6f 00 6f 00 00 00 05 00 00 00 07 00 00 00 02 01 00 00", false, "   mtype   = 0x6f8005\n", "   status  = 258\n"),
    row<SetLoggingModeReqMsg>("SetLoggingModeReqMsg", 0, [](auto& m) { m.SetOnOff(1); m.SetComponent(255); }, 20, "5007000: 00 70 00 00 00 00 00 05 00 00 00 07 00 01 00 ff 00 00 00 00", "05 00 70 00 70 00 00 00 05 00 00 00 07 00 00 00 01 00 ff 00", true, "", "   onoff   = 1\n   component = 255\n"),
    row<SetAudioSourceReqMsg>("SetAudioSourceReqMsg", 121, [](auto& m) { m.SetAudioSource(2); }, 20, "5007800: 00 78 00 00 00 00 00 05 00 00 00 07 00 02 00 00 00 00 00 00", "05 00 78 00 78 00 00 00 05 00 00 00 07 00 00 00 02 00 00 00", true, "", "   audiosrc = 2\n"),
    row<SetAudioSourceRespMsg>("SetAudioSourceRespMsg", 0, [](auto& m) { m.SetStatus(258); }, 20, "5007900: 00 79 00 00 00 00 00 05 00 00 00 07 01 02 00 00 00 00 00 00", "05 00 79 00 79 00 00 00 05 00 00 00 07 00 00 00 02 01 00 00", true, "", "   status  = 258\n"),
  };
  return rows;
}
// clang-format on

std::vector<unsigned char> queueForm(const MsgObj& message, int queue) {
  const_cast<MsgObj&>(message).stream(*std::make_unique<MsgQOutStream>(queue));
  std::vector<unsigned char> buffer(msgTypeSize + msgTextMax);
  EXPECT_EQ(receiveFromQueue(queue, buffer.data()), static_cast<ssize_t>(message.size()));
  return buffer;
}

class Wire : public Messaging {
protected:
  void SetUp() override {
    Messaging::SetUp();
    if (IsSkipped()) return;
    queue = msgget(IPC_PRIVATE, 0600);
    ASSERT_GE(queue, 0);
    ASSERT_EQ(pipe2(pipe, O_NONBLOCK), 0);
  }
  int queue = -1;
  int pipe[2] = {-1, -1};
};

} // namespace

TEST_F(Wire, EveryMessageHasItsBytesAndItsRendering) {
  for (const Row& row : catalogue()) {
    SCOPED_TRACE(row.name);
    const MsgPtr message = row.make();
    EXPECT_EQ(message->size(), row.size);

    MsgQOutStream toQueue(queue);
    EXPECT_EQ(&message->stream(toQueue), &toQueue);
    EXPECT_EQ(takeFromQueue(queue), row.onQueue);
    EXPECT_EQ(trace(), "");

    PipeOutStream toPipe(pipe[1]);
    EXPECT_EQ(&message->stream(toPipe), &toPipe);
    EXPECT_EQ(takeFromPipe(pipe[0]), row.onPipe);
    EXPECT_EQ(trace(),
              row.onPipe != "empty" ? "" : "operator<<(PipeOutStream& pipeos, const " + row.name + "& msg) - TBD\n");

    message->SetSync();
    row.render(tev::log, *message);
    EXPECT_EQ(trace(), row.name + ":\n" + row.mtype + "   msgType = " + std::to_string(message->GetMsgType()) +
                           "\n   srcTid  = 5\n   dstTid  = 7\n   size    = " + std::to_string(row.size) + "\n" +
                           row.fields);

    const MsgPtr response(message->CreateResponse());
    EXPECT_EQ(response ? response->GetMsgType() : 0, row.answer);
    if (response == nullptr) continue;
    EXPECT_EQ(response->word(0), row.answer == 109 ? 3 : 65535);
  }
}

TEST_F(Wire, EveryFieldHasItsGetter) {
  using Words = std::vector<int>;
  const auto mode = numbered<SetVideoModeReqMsg>();
  EXPECT_EQ(Words{mode.GetMode()}, Words{1});
  const auto shown = numbered<GetVideoResolutionRespMsg>();
  EXPECT_EQ((Words{shown.GetStatus(), shown.GetHorizontal(), shown.GetVertical(), shown.GetQualifier(),
                   shown.GetHertz(), shown.GetSdpStd()}),
            (Words{1, 2, 3, 4, 5, 6}));
  const auto resolution = numbered<SetVideoResolutionReqMsg>();
  EXPECT_EQ(
      (Words{resolution.GetHorizontal(), resolution.GetVertical(), resolution.GetQualifier(), resolution.GetHertz()}),
      (Words{1, 2, 3, 4}));
  const auto stream = numbered<StreamControlReqMsg>();
  EXPECT_EQ((Words{stream.GetControl(), stream.GetType()}), (Words{1, 2}));
  const auto admin = numbered<AdminControlReqMsg>();
  EXPECT_EQ((Words{admin.GetControl(), admin.GetArg1(), admin.GetArg2(), admin.GetArg3(), admin.GetArg4()}),
            (Words{1, 2, 3, 4, 5}));
  const auto snapshot = numbered<TakeSnapshotReqMsg>();
  EXPECT_EQ((Words{snapshot.GetSlot(), snapshot.GetScale()}), (Words{1, 2}));
  const auto logging = numbered<SetLoggingModeReqMsg>();
  EXPECT_EQ((Words{logging.GetOnOff(), logging.GetComponent()}), (Words{1, 2}));
  EXPECT_EQ(numbered<SetAudioSourceReqMsg>().GetAudioSource(), 1);
}

TEST_F(Wire, WhatIsDecodedIsWhatWasSent) {
  for (const Row& row : catalogue()) {
    SCOPED_TRACE(row.name);
    const MsgPtr sent = row.make();
    sent->SetSync();
    sent->SetRemote();
    const auto buffer = queueForm(*sent, queue);
    const MsgPtr prototype = row.make();
    const MsgPtr received(prototype->Create(buffer.data()));
    ASSERT_NE(received, nullptr);
    EXPECT_EQ(received->IsSyncMsg(), row.restoresFlags);
    EXPECT_EQ(received->IsRemoteMsg(), row.restoresFlags || received->IsRespMsg());
    if (!row.restoresFlags) received->SetSync();
    EXPECT_EQ(hex(received->image(), row.size), hex(sent->image(), row.size));

    auto other = buffer;
    other[5] ^= 0x80;
    EXPECT_EQ(prototype->Create(other.data()), nullptr) << "another message id";
  }
}

TEST_F(Wire, FlagsShareTheTypeWord) {
  SetVideoModeReqMsg request(5, 7);
  EXPECT_EQ(request.GetMtype(), 0x00640005u);
  request.SetSync();
  request.SetRemote();
  EXPECT_EQ(request.GetMtype(), 0x00658005u);
  request.ClearSync();
  request.ClearRemote();
  EXPECT_EQ(request.GetMtype(), 0x00640005u);
  EXPECT_TRUE(SetVideoModeRespMsg(5, 7).IsRemoteMsg()) << "bit 16 is also the lowest bit of an odd type";
  EXPECT_TRUE(SetVideoModeReqMsg(98307, 7).IsSyncMsg()) << "bit 15 is also in that source id";
}

TEST_F(Wire, TwoDecodersTraceOnTheErrorStream) {
  const auto admin = queueForm(AdminControlRespMsg(1, 2), queue);
  const auto snapshot = queueForm(TakeSnapshotRespMsg(1, 2), queue);
  const auto traced = [](auto prototype, const auto& bytes, bool decodes) {
    return reported([&] { EXPECT_EQ(MsgPtr(prototype.Create(bytes.data())) != nullptr, decodes); });
  };
  EXPECT_EQ(traced(AdminControlRespMsg(), admin, true), "AdminControlReqMsg::Create(): msgtype=109\n"
                                                        "KIP_ADMIN_CNTRL_RESP_MSG_ID:status = 65535\n");
  EXPECT_EQ(traced(AdminControlRespMsg(), snapshot, false), "AdminControlReqMsg::Create(): msgtype=111\n");
  EXPECT_EQ(traced(TakeSnapshotRespMsg(), snapshot, true), "TakeSnapshotReqMsg::Create(): msgtype=111\n");
  EXPECT_EQ(traced(TakeSnapshotRespMsg(), admin, false), "TakeSnapshotReqMsg::Create(): msgtype=109\n");
}

// The names that no command lets through; all others are in the sessions.
TEST_F(Wire, UnknownNamesBecomeTheDefault) {
  EXPECT_EQ(SetVideoModeReqMsg::MapString2Mode("HDMI"), 9);
  EXPECT_EQ(SetVideoModeReqMsg::MapString2Mode(""), 9);
  EXPECT_EQ(SetAudioSourceReqMsg::MapString2AudioSource("Analog"), 1);
}
