// kr: the platform services library. This header gathers its plain functions; krMem.h, krLog.h, CKrThread.h and
// CKrProperty.h stand beside it.
//
// Conventions of the whole library: a call that can fail returns -1 (or a null handle) and leaves its reason in errno,
// either the system's own number or one of the KR_ERR_ values of krLock.h. Nothing throws. Handles are blocks of the
// tracked heap (krMem.h), made and released only by their own create and destroy calls.
#ifndef TEV_PLATFORM_KR_H
#define TEV_PLATFORM_KR_H

#include "platform/krFile.h"
#include "platform/krLock.h"
#include "platform/krThread.h"
#include "platform/krTime.h"

#endif
