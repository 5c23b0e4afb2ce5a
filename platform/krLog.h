// The logger tree.
//
// Components log through named loggers. Names are dotted paths: "a.b" descends from "a", and everything from the root,
// whose name is empty. A logger has a level, which decides at the call whether a message passes, and printers,
// functions with a level of their own that receive the text. A new logger takes its level, formatter text and printers
// from its nearest existing ancestor; later changes of a level stay with one logger, while printers are added to and
// removed from all descendants as well. A logger without printers writes to standard output.
//
// Names are cut at 256 characters, messages at 255. A null name stands for the root's. With a null logger, the calls do
// nothing. A handle is valid until krLogReset.
//
// All calls are safe from any thread, also from one that may be cancelled: the cancellation waits until the call is
// through, but takes effect while a message waits for the printers of another one, and while the console takes nothing.
// Changes to the tree and to printers hold g_listMutex and, for a printer list, also its logger's mutex, taken
// in this order. A message holds only its logger's mutex, also while the printers run. So a printer must not log
// through the logger that calls it, nor create loggers or change or list printers; it may look up other, existing
// loggers (that takes no lock) and log through them.
#ifndef TEV_PLATFORM_KRLOG_H
#define TEV_PLATFORM_KRLOG_H

#include <atomic>
#include <cstdarg>
#include <cstdint>

struct KrMutex;

/// A message of level m passes a logger or printer of level L when m <= L.
constexpr int KR_LOG_OFF = 0;
constexpr int KR_LOG_FATAL = 1;
constexpr int KR_LOG_ERROR = 2;
constexpr int KR_LOG_WARN = 3;
constexpr int KR_LOG_INFO = 4;  ///< level of the root
constexpr int KR_LOG_DEBUG = 5; ///< level of a new printer

constexpr int KR_LOG_MAX_NAME = 256;

/// Both get the message, valid during the call, and must not be null. The text carries no line feed of its own.
using KrLogPrint = void (*)(const char* message);
using KrLogContextPrint = void (*)(intptr_t context, const char* message);

constexpr int KR_LOG_PLAIN = 0;
constexpr int KR_LOG_CONTEXT = 1;

/// A printer. Its name, and for a context printer also the context, identifies it within a logger.
struct KrLogPrinter {
  int kind; ///< KR_LOG_PLAIN or KR_LOG_CONTEXT
  int level;
  intptr_t context; ///< for a context printer's function; 0 for a plain one
  KrLogPrint print;
  KrLogContextPrint contextPrint;
  char name[KR_LOG_MAX_NAME + 1];
  KrLogPrinter* next;
};

struct KrLogger;

extern KrLogger* g_loggers;               ///< all loggers, newest first
extern std::atomic<KrMutex*> g_listMutex; ///< guards the list and all printer lists; null until the first lookup

/// The logger of that name, made if there is none (its ancestors are not). Two threads that ask for the same new name
/// get the same logger. Null when there is no memory.
KrLogger* krLogGetLogger(const char* name);

/// Log a message of the level in the name. A plain text with "%" in it needs the format "%s".
void krFatal(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krError(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krWarn(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krInfo(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));
void krDebug(KrLogger* logger, const char* format, ...) __attribute__((format(printf, 2, 3)));

/// What they call once a message has passed the logger's level: formats it and calls the printers, newest first, whose
/// level it passes too. 0, or -1 for a null logger (errno KR_ERR_INVALID).
int doLog(KrLogger* logger, int level, const char* format, va_list arguments) __attribute__((format(printf, 3, 0)));

/// -1 for a null logger. Setting by name changes nothing if there is no logger of that name.
int krLogGetLevel(const KrLogger* logger);
void krLogSetLevel(KrLogger* logger, int level);
void krLogSetLevelByName(const char* name, int level);

/// A text of at most 256 characters that is kept for the caller and inherited; messages are not changed by it. What the
/// getter returns belongs to the logger and changes with the next setting; "" for a null logger.
const char* krLogGetFormatter(const KrLogger* logger);
void krLogSetFormatter(KrLogger* logger, const char* text);

/// Adds a printer of level KR_LOG_DEBUG to the logger and to every existing descendant. Names may repeat.
void krLogAddPrinter(KrLogger* logger, const char* name, KrLogPrint print);
void krLogAddContextPrinter(KrLogger* logger, const char* name, intptr_t context, KrLogContextPrint print);

/// Removes the newest such printer from the logger, and from every existing descendant.
void krLogRemovePrinter(KrLogger* logger, const char* name);
void krLogRemoveContextPrinter(KrLogger* logger, const char* name, intptr_t context);

/// The level of the newest such printer of this logger alone; -1 if there is none.
int krLogGetPrinterLevel(const KrLogger* logger, const char* name);
void krLogSetPrinterLevel(KrLogger* logger, const char* name, int level);
int krLogGetContextPrinterLevel(const KrLogger* logger, const char* name, intptr_t context);
void krLogSetContextPrinterLevel(KrLogger* logger, const char* name, intptr_t context, int level);

/// Add a copy of a printer to this logger alone, and remove the newest one with the record's kind, name and context.
void krLogInsertPrinter(KrLogger* logger, const KrLogPrinter* printer);
void krLogDeletePrinter(KrLogger* logger, const KrLogPrinter* key);

/// Number of loggers, the root included, and the name of one (0 is the newest; "" beyond the oldest). The name is valid
/// until krLogReset.
int krLogGetLoggerCount();
const char* krLogGetLoggerName(int index);

/// Prints all loggers, newest first, each with its printers on one line, to standard output. Without memory for the
/// text it is cut or missing.
void krLogList();

/// Releases all loggers and printers. No other thread may be using a logger, and no handle is valid afterwards.
void krLogReset();

/// The parts that a lookup is made of: the logger of exactly that name (null if there is none; the root is made), the
/// nearest existing ancestor of a name, and whether a logger descends from another (from the root and from null, every
/// logger does but the root itself).
KrLogger* getLogger(const char* name);
KrLogger* getParent(const char* name);
bool isChild(const KrLogger* ancestor, const KrLogger* logger);

#endif
