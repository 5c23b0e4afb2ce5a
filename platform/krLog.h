// The logger tree.
#ifndef TEV_PLATFORM_KRLOG_H
#define TEV_PLATFORM_KRLOG_H

#include <cstdarg>
#include <cstdint>

constexpr int KR_LOG_OFF = 0;
constexpr int KR_LOG_FATAL = 1;
constexpr int KR_LOG_ERROR = 2;
constexpr int KR_LOG_WARN = 3;
constexpr int KR_LOG_INFO = 4;
constexpr int KR_LOG_DEBUG = 5;

struct KrLogger;

KrLogger* krLogGetLogger(const char* name);
void krFatal(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krError(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krWarn(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krInfo(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krDebug(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));

#endif
