// The protocol between the tasks of the appliance: names, addresses, message ids and the values of payload words. How a
// message is laid out on queues and pipes is in MsgObj.h; when which bytes travel, in docs/exchange.md.
#ifndef TEV_MESSAGING_PROTOCOL_H
#define TEV_MESSAGING_PROTOCOL_H

#include <cstdint>
#include <sys/types.h>

namespace protocol {

// ---- Tasks, the ids of their queues, which are their task ids, and the keys of the queues

inline constexpr char consoleTask[] = "tCliAppTask"; ///< its id is that of the queue it gets
inline constexpr char videoTask[] = "tVideoPhalTask";
inline constexpr char streamTask[] = "tStreamAppTask";
inline constexpr char adminTask[] = "tAdminAppTask";

constexpr int videoQueueId = 98307;
constexpr int streamQueueId = 229383;
constexpr int adminQueueId = 0;

constexpr key_t videoQueueKey = 153001;
constexpr key_t streamQueueKey = 153002;
constexpr key_t adminQueueKey = 153003;
constexpr key_t consoleQueueKey = 153191; ///< of the first shell; see shell/StartUp.cpp for further ones

/// The named pipe on which a task receives replies: its name and its id.
inline constexpr char replyPipeFormat[] = "/tmp/%s.%d";

constexpr int replyTimeoutMs = 3000; ///< how long the sender of a synchronous request waits for its reply

// ---- Messages. Requests are even, a response is its request's id plus one.

enum MessageId : uint16_t {
  setVideoModeReq = 100,
  setVideoModeResp = 101,
  getVideoResolutionReq = 102,
  getVideoResolutionResp = 103,
  setVideoResolutionReq = 104,
  setVideoResolutionResp = 105,
  streamControlReq = 106,
  streamControlResp = 107,
  adminControlReq = 108,
  adminControlResp = 109,
  takeSnapshotReq = 110,
  takeSnapshotResp = 111,
  setLoggingModeReq = 112, ///< has no response
  setAudioSourceReq = 120,
  setAudioSourceResp = 121,
};

// ---- Values of payload words

constexpr uint16_t statusUnset = 65535; ///< of a response that no service has filled

namespace videoMode {
constexpr uint16_t svideo = 1, composite = 2, component = 3, vga = 4, svga = 5, xga = 6, wxga = 7, dvi = 8, hdmi = 9;
}

namespace qualifier {
constexpr uint16_t progressive = 1, interlaced = 2;
}

namespace streamControl {
constexpr uint16_t start = 1, stop = 2;
}

/// A bit mask.
namespace streamType {
constexpr uint16_t audio = 1, video = 2, both = 3;
}

namespace audioSource {
constexpr uint16_t digital = 1, analog = 2;
}

namespace adminControl {
constexpr uint16_t reboot = 1, factoryConfig = 4, factoryFirmware = 5;
}

namespace logging {
constexpr uint16_t off = 0, on = 1;
constexpr uint16_t allComponents = 255;
} // namespace logging

namespace snapshot {
constexpr uint16_t firstSlot = 1, lastSlot = 16;
constexpr uint16_t smallestScale = 1, fullScale = 8; ///< eighths of the picture
} // namespace snapshot

} // namespace protocol

#endif
