#include "platform/CKrProperty.h"

#include "platform/internal/Diagnostic.h"
#include "platform/internal/Mutex.h"
#include "platform/internal/MutexOnce.h"
#include "platform/internal/Uncancelled.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>

CKrProperty::Instances* CKrProperty::_dbs = nullptr;
std::atomic<KrLogger*> CKrProperty::_log{nullptr};
std::atomic<KrMutex*> CKrProperty::_dbsMutex{nullptr};

namespace {

using kr::orEmpty;

constexpr char source[] = "common/CKrProperty";

/// Where the calls lock, as the reports of long waits name it. Line and text are part of the reports: they never
/// change, wherever the calls are in this file.
constexpr kr::Place getInstancePlace{source, 105,
                                     "static CKrProperty* CKrProperty::getInstance(char*, bool (*)(char*, KrPropMap&), "
                                     "bool (*)(char*, KrPropMap&))",
                                     ""};
constexpr kr::Place loadPlace{source, 143, "bool CKrProperty::load(char*)", ""};
constexpr kr::Place storePlace{source, 174, "bool CKrProperty::store(char*)", ""};
constexpr kr::Place setPropertyPlace{source, 227, "void CKrProperty::setProperty(const char*, const char*)", ""};
constexpr kr::Place getTextPlace{source, 269, "char* CKrProperty::getProperty(const char*, char*, const char*, int)",
                                 ""};
constexpr kr::Place getNumberPlace{source, 320, "int32 CKrProperty::getProperty(const char*, int32)", ""};
constexpr kr::Place getLengthPlace{source, 354, "unsigned int CKrProperty::getLength(const char*, const char*)", ""};

struct CloseFile {
  void operator()(FILE* file) const { (void)fclose(file); } // after reading; a writer closes before
};
using OpenFile = std::unique_ptr<FILE, CloseFile>;

/// Reads a line without its terminator, cut to what fits. Sets `*cut` if something did not. Returns its length, 0 for
/// an empty line as at the end of the file.
size_t readLine(FILE* file, char (&line)[512], bool* cut) {
  size_t length = 0;
  *cut = false;
  int c = getc(file);
  for (; c != EOF && c != '\r' && c != '\n'; c = getc(file)) {
    if (length < sizeof line - 1)
      line[length++] = static_cast<char>(c);
    else
      *cut = true;
  }
  line[length] = '\0';
  // The other character of a pair belongs to the terminator.
  const int next = c != EOF ? getc(file) : EOF;
  if (next != EOF && (next == c || (next != '\r' && next != '\n'))) (void)ungetc(next, file);
  return length;
}

} // namespace

KrLogger* CKrProperty::log() {
  // A handle does not outlive a reset of the loggers.
  KrLogger* const logger = krLogGetLogger("comps.kr");
  _log = logger;
  return logger;
}

/// Does `work` with cancellation disabled, and reports on the log what it throws.
template <class Work>
auto CKrProperty::guarded(const char* function, Work work) {
  return kr::uncancelled([&] {
    try {
      return work();
    } catch (const std::exception& error) {
      krError(log(), "CKrProperty::%s: error, %s", function, error.what());
    } catch (...) { // no cancellation: it is disabled
      krError(log(), "CKrProperty::%s: error, unknown exception", function);
    }
    return decltype(work())();
  });
}

CKrProperty* CKrProperty::getInstance(const char* file, KrPropCallback load, KrPropCallback store) {
  if (file == nullptr) file = "properties.txt";
  return guarded("getInstance", [=]() -> CKrProperty* {
    KrMutex* const mutex = kr::mutexOnce(_dbsMutex);
    if (mutex == nullptr) throw std::bad_alloc();
    const kr::Held held(mutex, getInstancePlace);
    if (strlen(file) >= sizeof _file) {
      krError(log(), "CKrProperty::getInstance: error, file name of more than 255 characters");
      return nullptr;
    }
    if (_dbs == nullptr) _dbs = new Instances;
    CKrProperty*& instance = (*_dbs)[file];
    if (instance == nullptr) {
      instance = new CKrProperty(file, load, store);
      krInfo(log(), "Loading property file '%s'", file);
      (void)instance->load(); // an instance without a file is empty
      instance->_dirty = false;
    }
    return instance;
  });
}

CKrProperty::CKrProperty(const char* file, KrPropCallback loader, KrPropCallback storer)
    : _mutex(krMutexCreate()), _load(loader != nullptr ? loader : loadFile),
      _store(storer != nullptr ? storer : storeFile) {
  if (_mutex == nullptr) throw std::bad_alloc();
  strncpy(_file, file, sizeof _file - 1);
}

bool CKrProperty::load(const char* file) {
  return guarded("load", [=] {
    const kr::Held held(_mutex, loadPlace);
    std::string name(file != nullptr ? file : _file);
    if (_dirty) (void)store(name.c_str());
    return _load(name.data(), _settings);
  });
}

bool CKrProperty::store(const char* file) {
  return guarded("store", [=] {
    const kr::Held held(_mutex, storePlace);
    if (!_dirty) return true;
    std::string name(file != nullptr ? file : _file);
    const bool stored = _store(name.data(), _settings);
    if (stored) _dirty = false;
    return stored;
  });
}

bool CKrProperty::loadFile(char* file, KrPropMap& settings) {
  return guarded("loadFile", [&] {
    settings.clear();
    const OpenFile open(fopen(file, "re"));
    if (open == nullptr) {
      krWarn(log(), "CKrProperty::loadFile Unable to open '%s'", file);
      return false;
    }
    char line[512];
    bool cut = false;
    while (readLine(open.get(), line, &cut) > 0) {
      if (cut) krWarn(log(), "CKrProperty::loadFile Line of more than 511 characters cut in '%s'", file);
      char* const equals = strchr(line, '='); // a line of NUL bytes, as a power cut leaves them, has none
      if (equals == nullptr) continue;
      *equals = '\0';
      settings[line] = equals + 1;
    }
    if (ferror(open.get()) == 0) return true;
    krWarn(log(), "CKrProperty::loadFile Unable to read '%s'", file);
    return false;
  });
}

bool CKrProperty::storeFile(char* file, KrPropMap& settings) {
  return kr::uncancelled([&] {
    FILE* const open = fopen(file, "we");
    if (open == nullptr) return false;
    for (const auto& [name, value] : settings)
      (void)fprintf(open, "%s=%s\n", name.c_str(), value.c_str()); // a failure stays with the stream
    const bool written = ferror(open) == 0;
    return fclose(open) == 0 && written;
  });
}

void CKrProperty::setProperty(const char* name, const char* value) {
  if (name == nullptr || value == nullptr) {
    krError(log(), "CKrProperty::setProperty: error, null parameter");
    return;
  }
  guarded("setProperty", [=] {
    const kr::Held held(_mutex, setPropertyPlace);
    const auto found = _settings.find(name);
    if (found == _settings.end())
      _settings.emplace(name, value);
    else if (found->second != value)
      found->second = std::string(value);
    else
      return;
    _dirty = true;
  });
}

void CKrProperty::setProperty(const char* name, int32_t value) {
  char text[12];
  (void)snprintf(text, sizeof text, "%d", value);
  setProperty(name, text);
}

template <class Use>
auto CKrProperty::withValue(const char* name, const kr::Place& place, Use use) {
  return kr::uncancelled([&] {
    const kr::Held held(_mutex, place);
    const auto found = _settings.find(name);
    return use(found != _settings.end() ? found->second.c_str() : nullptr);
  });
}

char* CKrProperty::getProperty(const char* name, char* buffer, const char* defaultText, int size) {
  if (name == nullptr || buffer == nullptr) {
    krError(log(), "CKrProperty::getProperty: error, null parameter");
    return buffer;
  }
  return withValue(name, getTextPlace, [=](const char* value) {
    const char* const text = value != nullptr ? value : orEmpty(defaultText);
    if (size < 0) return buffer;
    size_t length = strlen(text);
    if (size > 0) length = std::min(length, static_cast<size_t>(size) - 1);
    memmove(buffer, text, length); // the default may be what the buffer holds
    buffer[length] = '\0';
    return buffer;
  });
}

int32_t CKrProperty::getProperty(const char* name, int32_t defaultValue) {
  if (name == nullptr) {
    krError(log(), "CKrProperty::getProperty: error, null parameter");
    return 0;
  }
  return withValue(name, getNumberPlace, [=](const char* value) {
    if (value == nullptr) return defaultValue;
    const long number = strtol(value, nullptr, 10);
    return static_cast<int32_t>(std::clamp<long>(number, INT32_MIN, INT32_MAX));
  });
}

unsigned int CKrProperty::getLength(const char* name, const char* defaultText) {
  if (name == nullptr) {
    krError(log(), "CKrProperty::getLength: error, null parameter");
    return 0;
  }
  return withValue(name, getLengthPlace, [=](const char* value) {
    return static_cast<unsigned int>(strlen(value != nullptr ? value : orEmpty(defaultText)));
  });
}
