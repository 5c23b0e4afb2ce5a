// The settings of a component, kept in a text file.
#ifndef TEV_PLATFORM_CKRPROPERTY_H
#define TEV_PLATFORM_CKRPROPERTY_H

#include "platform/krLock.h"
#include "platform/krLog.h"

#include <atomic>
#include <cstdint>
#include <map>
#include <string>

namespace kr {
struct Place;
}

/// Settings by name, in the order of the names' bytes.
using KrPropMap = std::map<std::string, std::string, std::less<>>;

/// Loads the settings from a file, or stores them there; true for success. Called with the lock of the instance held,
/// so it must not wait for another thread that uses the instance.
using KrPropCallback = bool (*)(char* file, KrPropMap& settings);

/// Named string settings. There is one instance per file name, made by the first getInstance() and never destroyed.
/// Changes stay in memory until store(). All calls are safe from any thread, and finish their work before a
/// cancellation takes effect. None throws: what finds no memory fails with an error on the log, which is the logger
/// "comps.kr".
///
/// The file holds a line "name=value" for each setting. The name ends at the first "=", nothing is trimmed or escaped,
/// so a name must not contain "=", and neither a name nor a value a line feed or carriage return. Lines end with either
/// of these or a pair of both. A line without "=" is skipped, as is one that begins with a NUL byte. An empty line ends
/// the file. Of a line of more than 511 characters the rest is lost, with a warning on the log.
class CKrProperty {
public:
  /// The instance of that file name (null: "properties.txt"); the first call makes it and loads the file, with the
  /// given callbacks (null: loadFile, storeFile), which stay its own. It is empty if the file cannot be loaded. Null,
  /// with an error on the log, for a name of more than 255 characters and without memory.
  static CKrProperty* getInstance(const char* file = nullptr, KrPropCallback load = nullptr,
                                  KrPropCallback store = nullptr);

  /// Replaces the settings by those in a file (null: the instance's own). Changes that are not stored yet are stored
  /// there before; if that fails, they are lost.
  bool load(const char* file = nullptr);

  /// Stores the settings in a file (null: the instance's own) if they have changed since they were loaded or stored.
  /// False if that fails; they count as changed then.
  bool store(const char* file = nullptr);

  /// Copies a value, or `defaultText` (null: the empty text) if there is none of that name, to `buffer`: at most
  /// `size - 1` characters and a terminator, or all of it with a size of 0. Returns the buffer. A negative size leaves
  /// it as it is.
  char* getProperty(const char* name, char* buffer, const char* defaultText, int size);

  /// A value as a decimal number (as far as it begins with one, else 0; held within the 32 bits), or the default.
  int32_t getProperty(const char* name, int32_t defaultValue);

  /// Length of a value or of `defaultText`, without the terminator.
  unsigned int getLength(const char* name, const char* defaultText);

  /// Sets or adds a setting, in memory.
  void setProperty(const char* name, const char* value);
  void setProperty(const char* name, int32_t value);

  /// The callbacks for the text file. loadFile() empties the map before; storeFile() replaces the file, and is false if
  /// not every byte of it could be written.
  static bool loadFile(char* file, KrPropMap& settings);
  static bool storeFile(char* file, KrPropMap& settings);

private:
  using Instances = std::map<std::string, CKrProperty*, std::less<>>;

  CKrProperty(const char* file, KrPropCallback loader, KrPropCallback storer);
  static KrLogger* log();
  template <class Work>
  static auto guarded(const char* function, Work work);
  template <class Use>
  auto withValue(const char* name, const kr::Place& place, Use use);

  KrMutex* const _mutex; ///< guards all of the fields
  char _file[256] = "";
  KrPropMap _settings;
  bool _dirty = false;
  const KrPropCallback _load;
  const KrPropCallback _store;

  static Instances* _dbs;             ///< guarded by _dbsMutex; lives as long as the process
  static std::atomic<KrLogger*> _log; ///< "comps.kr", as it was last looked up
  static std::atomic<KrMutex*> _dbsMutex;
};

#endif
