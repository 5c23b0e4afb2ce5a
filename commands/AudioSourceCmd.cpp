#include "commands/AudioSourceCmd.h"

#include "commands/Console.h"
#include "commands/Report.h"
#include "commands/ServiceRequest.h"
#include "commands/Words.h"
#include "messaging/SetAudioSourceReqMsg.h"

#include <iostream>

bool AudioSourceCmd::operator()(const ArgVec& args) {
  const ServiceProxies proxies(protocol::videoTask);
  if (isQuery(args)) {
    Report::present->notThere("the current source"); // no message asks for it
    printLine(std::cerr, "audio-source: get - TBD");
  } else if (args.size() == 2 && isOneOf(args[1], "digital|analog")) {
    ServiceRequest<SetAudioSourceReqMsg> request(proxies);
    request->SetAudioSource(SetAudioSourceReqMsg::MapString2AudioSource(args[1]));
    request.exchange();
  } else {
    printIncorrectParameters(getkey(), getshort());
  }
  return false;
}

const char* AudioSourceCmd::getkey() { return "audio-source"; }

const char* AudioSourceCmd::getlong() {
  return "  syntax:  audio-source <digital|analog|status|?>\n"
         "\n"
         "  description:\n"
         "    GETs/SETs the current audio source.\n"
         "\n"
         "  examples:\n"
         "    tev-cli> audio-source         ### displays the current audio source.\n"
         "    tev-cli> audio-source   ?     ### displays the current audio source.\n"
         "    tev-cli> audio-source status  ### displays the current audio source.\n"
         "    tev-cli> audio-source digital ### sets the audio source to digital.\n"
         "\n";
}

const char* AudioSourceCmd::getshort() { return "<digital|analog|status|?>"; }
