// Words for the system shell.
#ifndef TEV_PLATFORM_SHELLQUOTE_H
#define TEV_PLATFORM_SHELLQUOTE_H

#include <string>

/// `word` in a form that the system shell reads as exactly that one word, interpreting nothing in it. A word of
/// letters, digits and @%+=:,./_- stands as it is; any other, the empty one too, is put in single quotes. Throws
/// std::bad_alloc.
std::string krShellQuote(const char* word);

#endif
