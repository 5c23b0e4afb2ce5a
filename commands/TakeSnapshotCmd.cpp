#include "commands/TakeSnapshotCmd.h"

#include "commands/Console.h"
#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/TakeSnapshotReqMsg.h"

#include <iostream>

const int TakeSnapshotCmd::MAX_SLOT = protocol::snapshot::lastSlot;

namespace {

constexpr int defaultScale = 4;

void takeSnapshot(const ServiceProxies& proxies, int slot, int scale) {
  ServiceRequest<TakeSnapshotReqMsg> request(proxies);
  request->SetSlot(static_cast<unsigned short>(slot));
  request->SetScale(static_cast<unsigned short>(scale));
  if (const auto reply = request.exchange()) logReply("snap-cmd: got respmsg: ", *reply);
}

} // namespace

bool TakeSnapshotCmd::operator()(const ArgVec& args) {
  const ServiceProxies proxies(protocol::videoTask);
  if (args.size() == 1) {
    printWrongWords("error: insufficient args");
    printLine(std::cerr, std::string("usage: ") + getkey() + " " + getshort());
    return false;
  }
  using namespace protocol::snapshot;
  const int slot = wordToInt(args[1]);
  const int scale = args.size() == 3 ? wordToInt(args[2]) : defaultScale; // a longer line's scale does not count
  if (slot >= firstSlot && slot <= MAX_SLOT && scale >= smallestScale && scale <= fullScale) {
    takeSnapshot(proxies, slot, scale);
  } else {
    printWrongWords("error: bad args");
  }
  return false;
}

const char* TakeSnapshotCmd::getkey() { return "snap"; }

const char* TakeSnapshotCmd::getlong() {
  return "  syntax:  snap <slot> [<scale>]\n"
         "\n"
         "  description:\n"
         "    Takes a JPEG snapshot of the video stream,\n"
         "    scales it (if necessary) and places it in slot# <slot>.\n"
         "       'slot'  is an integer in the range of [1..16]\n"
         "       'scale' is an integer in the range of [1..8] (scale=8 is full-scale)\n"
         "\n"
         "  examples:\n"
         "    tev-cli> snap 3    ### takes a snapshot for slot# 3 in full-scale\n"
         "    tev-cli> snap 7 4  ### takes a snapshot for slot# 7 in half-scale\n";
}

const char* TakeSnapshotCmd::getshort() { return "<slot> [<scale>]"; }
