#ifndef CATALOG_TERMS_H
#define CATALOG_TERMS_H

// The conditions that the catalogue asks with. A term prints code, so everything in it is quoted by literals.h.

#include <cstdint>
#include <string>

#include <boost/shared_ptr.hpp>

#include "columns.h"
#include "sqldb/term.h"

namespace catalog {

using Term = boost::shared_ptr<sqldb::SQLTermBase>;

/// No row at all.
Term Never();

/// The column holds exactly this text.
Term Equal(const Column& column, const std::string& text);

/// The column's number is larger.
Term Larger(const Column& column, std::int64_t number);

/// The bytes occur in the column's text. They are compared as bytes: "A" is not "a", "%" is no wildcard, and neither
/// side need be valid UTF-8.
Term Contains(const Column& column, const std::string& bytes);

/// The column holds a path below `folder`, an absolute path without a "/" at its end unless it is "/" itself. A range
/// of the column's index, so that "/a/bc" is not taken to be below "/a/b".
Term Below(const Column& column, const std::string& folder);

/// Both conditions. One that is empty is left out.
Term And(const Term& left, const Term& right);

/// One or both of the conditions. REQUIRES: neither is empty.
Term Or(const Term& left, const Term& right);

/// The first and the end (exclusive) of the texts that are paths below `folder`.
std::string FirstBelow(const std::string& folder);
std::string EndBelow(const std::string& folder);

}  // namespace catalog

#endif  // CATALOG_TERMS_H
