#include "platform/krLog.h"

#include "platform/internal/Diagnostic.h"
#include "platform/internal/Failure.h"
#include "platform/internal/Mutex.h"
#include "platform/internal/MutexOnce.h"
#include "platform/internal/Uncancelled.h"
#include "platform/krMem.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string_view>

struct KrLogger {
  std::atomic<int> level;
  char name[KR_LOG_MAX_NAME + 1];
  char message[256]; ///< the message under way; this and the printers are guarded by `mutex`
  char formatter[KR_LOG_MAX_NAME + 1];
  KrMutex* mutex;
  KrLogPrinter* printers; ///< newest first; whoever holds either of its two mutexes may read
  KrLogger* next;
  KrLogger* sameBucket; ///< next in the index
};

static_assert(alignof(KrLogger) <= 8, "the alignment of heap blocks on 32-bit machines");

KrLogger* g_loggers = nullptr;
std::atomic<KrMutex*> g_listMutex{nullptr};

namespace {

constexpr char source[] = "common/krLog";

/// Where the calls lock, as the reports of long waits name it. The numbers are part of the reports' text: they never
/// change, wherever the calls are in this file. Calls without a number of their own have 0.
constexpr int noLine = 0;
constexpr int lineOfGetLogger = 257;
constexpr int lineOfSetPrinterLevel = 571;
constexpr int lineOfSetContextPrinterLevel = 606;
constexpr int lineOfDoLog = 772;
constexpr int lineOfRoot = 861;
constexpr int lineOfInsertPrinter = 951;
constexpr int lineOfDeletePrinter = 966;

/// The index beside the list: a lookup reads it without a lock. It only grows, until the reset.
std::atomic<KrLogger*> buckets[4096];

std::atomic<KrLogger*>& bucketOf(std::string_view name) {
  return buckets[std::hash<std::string_view>()(name) % std::size(buckets)];
}

/// The part of a name that counts.
std::string_view cut(const char* name) {
  return name != nullptr ? std::string_view(name, strnlen(name, KR_LOG_MAX_NAME)) : std::string_view("");
}

/// Copies what cut() returned, or a text of the same size, into a zeroed field.
void store(char (&field)[KR_LOG_MAX_NAME + 1], std::string_view text) {
  memcpy(field, text.data(), text.size());
  field[text.size()] = '\0';
}

KrLogger* find(std::string_view name) {
  KrLogger* logger = bucketOf(name).load(std::memory_order_acquire);
  while (logger != nullptr && logger->name != name)
    logger = logger->sameBucket;
  return logger;
}

/// Does `work` under g_listMutex with cancellation disabled. Without memory for the mutex, there is nothing to work on.
template <class Work>
auto withList(int line, const char* function, Work work) {
  return kr::uncancelled([&] {
    KrMutex* const mutex = kr::mutexOnce(g_listMutex);
    if (mutex == nullptr) return decltype(work())();
    const kr::Held held(mutex, source, line, function);
    return work();
  });
}

// ---- Printers; all of this is called under g_listMutex

KrLogPrinter makePrinter(int kind, const char* name, intptr_t context) {
  KrLogPrinter printer{};
  printer.kind = kind;
  printer.level = KR_LOG_DEBUG;
  printer.context = context;
  store(printer.name, cut(name));
  return printer;
}

/// The link that leads to the newest printer like `key`, or to null at the end of the list.
KrLogPrinter** linkTo(KrLogger* logger, const KrLogPrinter& key) {
  KrLogPrinter** link = &logger->printers;
  while (*link != nullptr && ((*link)->kind != key.kind || strcmp((*link)->name, key.name) != 0 ||
                              (key.kind == KR_LOG_CONTEXT && (*link)->context != key.context)))
    link = &(*link)->next;
  return link;
}

bool insertPrinter(KrLogger* logger, const KrLogPrinter& record) {
  void* const block = krMalloc(sizeof(KrLogPrinter));
  if (block == nullptr) return false;
  auto* const printer = new (block) KrLogPrinter(record);
  const kr::Held held(logger->mutex, source, lineOfInsertPrinter, "krLogInsertPrinter");
  printer->next = logger->printers;
  logger->printers = printer;
  return true;
}

void deletePrinter(KrLogger* logger, const KrLogPrinter& key) {
  KrLogPrinter* found = nullptr;
  {
    const kr::Held held(logger->mutex, source, lineOfDeletePrinter, "krLogDeletePrinter");
    KrLogPrinter** const link = linkTo(logger, key);
    found = *link;
    if (found != nullptr) *link = found->next;
  }
  krFree(found);
}

template <class Change>
void changeTree(KrLogger* top, int line, const char* function, Change change) {
  if (top == nullptr) return;
  withList(line, function, [&] {
    change(top);
    for (KrLogger* logger = g_loggers; logger != nullptr; logger = logger->next)
      if (isChild(top, logger)) change(logger);
    return 0;
  });
}

void addPrinter(KrLogger* top, const KrLogPrinter& printer) {
  // A logger for whose copy there is no memory goes without.
  changeTree(top, lineOfInsertPrinter, "krLogInsertPrinter",
             [&](KrLogger* logger) { (void)insertPrinter(logger, printer); });
}

void removePrinter(KrLogger* top, const KrLogPrinter& key) {
  changeTree(top, lineOfDeletePrinter, "krLogDeletePrinter", [&](KrLogger* logger) { deletePrinter(logger, key); });
}

int printerLevel(const KrLogger* logger, const KrLogPrinter& key) {
  if (logger == nullptr) return -1;
  return withList(noLine, __func__, [&] {
    const KrLogPrinter* const found = *linkTo(const_cast<KrLogger*>(logger), key);
    return found != nullptr ? found->level : -1;
  });
}

void setPrinterLevel(KrLogger* logger, const KrLogPrinter& key, int level, int line, const char* function) {
  if (logger == nullptr) return;
  withList(line, function, [&] {
    const kr::Held held(logger->mutex, source, line, function);
    KrLogPrinter* const found = *linkTo(logger, key);
    if (found != nullptr) found->level = level;
    return 0;
  });
}

// ---- Loggers; also under g_listMutex

void release(KrLogger* logger) {
  while (logger->printers != nullptr) {
    KrLogPrinter* const printer = logger->printers;
    logger->printers = printer->next;
    krFree(printer);
  }
  krMutexDestroy(logger->mutex);
  krFree(logger);
}

/// Makes a logger after the model of its parent (null for the root) and adds it to the list.
KrLogger* create(std::string_view name, const KrLogger* parent) {
  void* const block = krMalloc(sizeof(KrLogger));
  if (block == nullptr) return nullptr;
  auto* const logger = new (block) KrLogger{};
  logger->level = parent != nullptr ? parent->level.load() : KR_LOG_INFO;
  store(logger->name, name);
  logger->mutex = krMutexCreate();
  bool complete = logger->mutex != nullptr;
  if (parent != nullptr) {
    store(logger->formatter, parent->formatter);
    for (const KrLogPrinter* printer = parent->printers; printer != nullptr && complete; printer = printer->next)
      complete = insertPrinter(logger, *printer);
  }
  if (!complete) {
    release(logger);
    return nullptr;
  }
  logger->next = g_loggers;
  g_loggers = logger;
  auto& bucket = bucketOf(name);
  logger->sameBucket = bucket.load(std::memory_order_relaxed);
  bucket.store(logger, std::memory_order_release);
  return logger;
}

struct Release {
  void operator()(char* text) const { free(text); }
};
using Listing = std::unique_ptr<char, Release>;

/// What krLogList prints, the caller's to free; null without memory for it.
char* listAll() {
  char* text = nullptr;
  size_t size = 0;
  FILE* const out = open_memstream(&text, &size);
  if (out == nullptr) return nullptr;
  // Without memory, these and the closing fail, and the text is short.
  for (const KrLogger* logger = g_loggers; logger != nullptr; logger = logger->next) {
    (void)fprintf(out, " - '%.20s' level = %d ", logger->name, krLogGetLevel(logger));
    for (const KrLogPrinter* printer = logger->printers; printer != nullptr; printer = printer->next) {
      if (printer->kind == KR_LOG_CONTEXT)
        (void)fprintf(out, " -- '%.20s %x' level = %d", printer->name, static_cast<unsigned>(printer->context),
                      printer->level);
      else
        (void)fprintf(out, " -- '%.20s' level = %d", printer->name, printer->level);
    }
    (void)fputc('\n', out);
  }
  (void)fclose(out);
  return text;
}

} // namespace

KrLogger* getLogger(const char* name) {
  return kr::uncancelledIfAsynchronous([name]() -> KrLogger* {
    KrLogger* const found = find(cut(name));
    if (found != nullptr || !cut(name).empty()) return found;
    return withList(lineOfRoot, "getLogger", [] {
      KrLogger* const root = find("");
      return root != nullptr ? root : create("", nullptr);
    });
  });
}

KrLogger* getParent(const char* name) {
  return kr::uncancelledIfAsynchronous([name] {
    std::string_view path = cut(name);
    for (;;) {
      const size_t dot = path.rfind('.');
      if (dot == std::string_view::npos || dot == 0) return getLogger("");
      path = path.substr(0, dot);
      KrLogger* const found = find(path);
      if (found != nullptr) return found;
    }
  });
}

bool isChild(const KrLogger* ancestor, const KrLogger* logger) {
  if (logger == nullptr || logger->name[0] == '\0') return false;
  if (ancestor == nullptr || ancestor->name[0] == '\0') return true;
  const size_t length = strlen(ancestor->name);
  return strncmp(logger->name, ancestor->name, length) == 0 && logger->name[length] == '.';
}

KrLogger* krLogGetLogger(const char* name) {
  return kr::uncancelledIfAsynchronous([name]() -> KrLogger* {
    KrLogger* const found = getLogger(name);
    if (found != nullptr || cut(name).empty()) return found;
    return withList(lineOfGetLogger, "krLogGetLogger", [name]() -> KrLogger* {
      KrLogger* const made = find(cut(name)); // by another thread meanwhile
      if (made != nullptr) return made;
      const KrLogger* const parent = getParent(name);
      return parent != nullptr ? create(cut(name), parent) : nullptr;
    });
  });
}

int doLog(KrLogger* logger, int level, const char* format, va_list arguments) {
  if (logger == nullptr) return kr::failWith(KR_ERR_INVALID);
  return kr::uncancelledIfAsynchronous([&](int cancelState) {
    static constexpr kr::Place here{source, lineOfDoLog, "doLog", ""};
    if (kr::lockMutex(logger->mutex, here, cancelState) != 0) return -1;
    // The other threads may be cancelled where a printer waits.
    kr::OnCancel onCancel{[logger] { kr::unlockMutex(logger->mutex); }};
    // An argument that cannot be converted ends the message where it stands.
    (void)vsnprintf(logger->message, sizeof logger->message, format, arguments);
    const bool toConsole = logger->printers == nullptr;
    char text[sizeof logger->message];
    if (toConsole) memcpy(text, logger->message, sizeof text);
    for (const KrLogPrinter* printer = logger->printers; printer != nullptr; printer = printer->next) {
      if (level > printer->level) continue;
      if (printer->kind == KR_LOG_CONTEXT)
        printer->contextPrint(printer->context, logger->message);
      else
        printer->print(logger->message);
    }
    onCancel.armed = false;
    kr::unlockMutex(logger->mutex);
    // The console may not take it for long.
    if (toConsole) kr::say(cancelState, stdout, "%s\n\r\n\n", text);
    return 0;
  });
}

#define KR_LOG_CALL(function, messageLevel)                                                                            \
  void function(KrLogger* logger, const char* format, ...) {                                                           \
    if (krLogGetLevel(logger) < (messageLevel)) return;                                                                \
    va_list arguments;                                                                                                 \
    va_start(arguments, format);                                                                                       \
    (void)doLog(logger, messageLevel, format, arguments);                                                              \
    va_end(arguments);                                                                                                 \
  }

KR_LOG_CALL(krFatal, KR_LOG_FATAL)
KR_LOG_CALL(krError, KR_LOG_ERROR)
KR_LOG_CALL(krWarn, KR_LOG_WARN)
KR_LOG_CALL(krInfo, KR_LOG_INFO)
KR_LOG_CALL(krDebug, KR_LOG_DEBUG)

int krLogGetLevel(const KrLogger* logger) {
  return logger != nullptr ? logger->level.load(std::memory_order_relaxed) : -1;
}

void krLogSetLevel(KrLogger* logger, int level) {
  if (logger != nullptr) logger->level.store(level, std::memory_order_relaxed);
}

void krLogSetLevelByName(const char* name, int level) {
  kr::uncancelledIfAsynchronous([=] { krLogSetLevel(find(cut(name)), level); });
}

const char* krLogGetFormatter(const KrLogger* logger) { return logger != nullptr ? logger->formatter : ""; }

void krLogSetFormatter(KrLogger* logger, const char* text) {
  if (logger == nullptr) return;
  withList(noLine, __func__, [=] {
    store(logger->formatter, cut(text));
    return 0;
  });
}

void krLogAddPrinter(KrLogger* logger, const char* name, KrLogPrint print) {
  KrLogPrinter printer = makePrinter(KR_LOG_PLAIN, name, 0);
  printer.print = print;
  addPrinter(logger, printer);
}

void krLogAddContextPrinter(KrLogger* logger, const char* name, intptr_t context, KrLogContextPrint print) {
  KrLogPrinter printer = makePrinter(KR_LOG_CONTEXT, name, context);
  printer.contextPrint = print;
  addPrinter(logger, printer);
}

void krLogRemovePrinter(KrLogger* logger, const char* name) {
  removePrinter(logger, makePrinter(KR_LOG_PLAIN, name, 0));
}

void krLogRemoveContextPrinter(KrLogger* logger, const char* name, intptr_t context) {
  removePrinter(logger, makePrinter(KR_LOG_CONTEXT, name, context));
}

int krLogGetPrinterLevel(const KrLogger* logger, const char* name) {
  return printerLevel(logger, makePrinter(KR_LOG_PLAIN, name, 0));
}

void krLogSetPrinterLevel(KrLogger* logger, const char* name, int level) {
  setPrinterLevel(logger, makePrinter(KR_LOG_PLAIN, name, 0), level, lineOfSetPrinterLevel, "krLogSetPrinterLevel");
}

int krLogGetContextPrinterLevel(const KrLogger* logger, const char* name, intptr_t context) {
  return printerLevel(logger, makePrinter(KR_LOG_CONTEXT, name, context));
}

void krLogSetContextPrinterLevel(KrLogger* logger, const char* name, intptr_t context, int level) {
  setPrinterLevel(logger, makePrinter(KR_LOG_CONTEXT, name, context), level, lineOfSetContextPrinterLevel,
                  "krLogSetContextPrinterLevel");
}

void krLogInsertPrinter(KrLogger* logger, const KrLogPrinter* printer) {
  if (logger == nullptr || printer == nullptr) return;
  withList(lineOfInsertPrinter, "krLogInsertPrinter", [=] { return insertPrinter(logger, *printer); });
}

void krLogDeletePrinter(KrLogger* logger, const KrLogPrinter* key) {
  if (logger == nullptr || key == nullptr) return;
  withList(lineOfDeletePrinter, "krLogDeletePrinter", [=] {
    deletePrinter(logger, *key);
    return 0;
  });
}

int krLogGetLoggerCount() {
  return withList(noLine, __func__, [] {
    int count = 0;
    for (const KrLogger* logger = g_loggers; logger != nullptr; logger = logger->next)
      ++count;
    return count;
  });
}

const char* krLogGetLoggerName(int index) {
  const KrLogger* const found = withList(noLine, __func__, [index] {
    const KrLogger* logger = index >= 0 ? g_loggers : nullptr;
    for (int i = 0; i < index && logger != nullptr; ++i)
      logger = logger->next;
    return logger;
  });
  return found != nullptr ? found->name : "";
}

void krLogList() {
  kr::uncancelled([](int cancelState) {
    const Listing listing(withList(noLine, "krLogList", listAll));
    // The console may not take it for long.
    if (listing != nullptr) kr::say(cancelState, stdout, "%s", listing.get());
  });
}

void krLogReset() {
  withList(noLine, __func__, [] {
    for (auto& bucket : buckets)
      bucket.store(nullptr, std::memory_order_relaxed);
    while (g_loggers != nullptr) {
      KrLogger* const logger = g_loggers;
      g_loggers = logger->next;
      release(logger);
    }
    return 0;
  });
}
