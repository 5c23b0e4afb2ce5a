#include "messaging/SetAudioSourceRespMsg.h"

#include "messaging/Protocol.h"

const MsgLayout SetAudioSourceRespMsg::layout = {
    "SetAudioSourceRespMsg", protocol::setAudioSourceResp, PipeForm::native,
    /*restoresFlags*/ true,  /*rendersMtype*/ false,       {{"status", protocol::statusUnset}},
};
