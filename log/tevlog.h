#ifndef TEV_LOG_TEVLOG_H
#define TEV_LOG_TEVLOG_H
#endif
