#include "messaging/SetAudioSourceRespMsg.h"

const MsgLayout SetAudioSourceRespMsg::layout = {
    "SetAudioSourceRespMsg",    121, PipeForm::native, /*restoresFlags*/ true, /*rendersMtype*/ false,
    {{"   status  = ", 65535}},
};

SetAudioSourceRespMsg::SetAudioSourceRespMsg(unsigned long srcTid, unsigned long dstTid, unsigned short status)
    : MsgOf(srcTid, dstTid) {
  setWord(0, status);
}
