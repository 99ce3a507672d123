#ifndef CATALOG_LITERALS_H
#define CATALOG_LITERALS_H

// Text that is printed into SQL rather than bound to it: all of a term, and the values of an update.

#include <string>

namespace catalog {

/// An SQL expression for exactly these bytes as text: quotes are doubled, and a zero byte, which would end the
/// statement, makes the whole text hexadecimal.
std::string Quoted(const std::string& text);

}  // namespace catalog

#endif  // CATALOG_LITERALS_H
