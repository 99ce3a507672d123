#include "record_values.h"

#include <new>
#include <string>

#include "sqldb/kit/error.h"

namespace sqldb::kit::detail {

void ThrowNoMemory() { throw std::bad_alloc(); }

void EmplaceText(std::optional<std::string>& text, const char* begin, std::size_t size) { text.emplace(begin, size); }

void BindByCodec(sqlite3_stmt* statement, int parameter, const FieldEntry& field, const void* member) {
  try {
    field.bind(Target{statement, parameter, true}, member);
  } catch (const ConversionError& error) {
    throw ConversionError("column " + std::string(field.name) + ": " + std::string(error.Message()),
                          error.ExtendedCode());
  }
}

}  // namespace sqldb::kit::detail
