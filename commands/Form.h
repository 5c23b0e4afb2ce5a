// The words that a command takes, as data, for programs that check, list or complete them. The console has none of it.
#ifndef TEV_COMMANDS_FORM_H
#define TEV_COMMANDS_FORM_H

#include <cstddef>

/// One way to call a command. Every command class has a table of them, `static constexpr Form forms[]`.
struct Form {
  enum Effect : unsigned char { reads, changes };

  /// What may follow the key: places with a blank between them, none if empty. A place is one of several words
  /// ("on|off"), any word ("<address>") or an integer within a range ("<1..16>").
  const char* words;
  Effect effect; ///< whether the command then only reads, or changes something
};

/// A table of them, of any length.
class Forms {
public:
  template <size_t Count>
  constexpr Forms(const Form (&forms)[Count]) : _first(forms), _end(forms + Count) {} // NOLINT(google-explicit-*)

  constexpr const Form* begin() const { return _first; }
  constexpr const Form* end() const { return _end; }

private:
  const Form* _first;
  const Form* _end;
};

#endif
