// The library's own error numbers, beside those of the system.
#ifndef TEV_PLATFORM_KRERROR_H
#define TEV_PLATFORM_KRERROR_H

constexpr int KR_ERR_PRIORITY = 202;  ///< priority out of range
constexpr int KR_ERR_TIMEOUT = 203;   ///< a timed wait ran out
constexpr int KR_ERR_NO_MEMORY = 204; ///< no block for the object, or no free slot in it
constexpr int KR_ERR_INVALID = 205;   ///< null handle, or the object is busy or being deleted

#endif
