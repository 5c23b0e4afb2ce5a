// kr: the platform services library. This header includes its plain functions; heap, loggers, thread objects and
// property stores have headers of their own (krMem.h, krLog.h, CKrThread.h, CKrProperty.h).
//
// Conventions of the whole library: a call that can fail returns -1 (or a null handle) and leaves its reason in errno,
// either the system's own number or one of the KR_ERR_ values of krError.h. Nothing throws. Handles are blocks of the
// tracked heap (krMem.h), made and released only by their own create and destroy calls.
#ifndef TEV_PLATFORM_KR_H
#define TEV_PLATFORM_KR_H

#include "platform/krError.h"
#include "platform/krFile.h"
#include "platform/krLock.h"
#include "platform/krNet.h"
#include "platform/krPrint.h"
#include "platform/krThread.h"
#include "platform/krThreadId.h"
#include "platform/krTime.h"

#endif
