// A thread that is an object.
#ifndef TEV_PLATFORM_CKRTHREAD_H
#define TEV_PLATFORM_CKRTHREAD_H

#include "platform/kr.h"
#include "platform/krLog.h"

#endif
