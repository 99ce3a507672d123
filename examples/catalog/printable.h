#ifndef CATALOG_PRINTABLE_H
#define CATALOG_PRINTABLE_H

// A file name may hold line feeds, escape sequences, characters that turn the direction of the text, and bytes that are
// no characters at all. What is shown to people holds none of these.

#include <stdexcept>
#include <string>

namespace catalog {

/// The text on one line of valid UTF-8. A backslash is doubled; a line feed, tab and carriage return become \n, \t and
/// \r; every other byte of a control character, those for bidirectional text among them, and every byte that is not
/// UTF-8 becomes \xHH. The original can be told from it.
std::string Printable(const std::string& text);

/// A failure that the user can mend, in words for the user: printable already.
class Failure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace catalog

#endif  // CATALOG_PRINTABLE_H
