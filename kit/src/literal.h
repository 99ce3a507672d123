#ifndef SQLDB_KIT_SRC_LITERAL_H
#define SQLDB_KIT_SRC_LITERAL_H

// Values as SQL, where SQLite takes no parameters.

#include <cstdint>
#include <string>
#include <string_view>

#include "sqldb/kit/codec.h"

namespace sqldb::kit::detail {

// Writes each value as the literal that evaluates to exactly it.
class LiteralWriter : public ValueSink {
 public:
  // REQUIRES: `sql` outlives the object.
  explicit LiteralWriter(std::string& sql) : fSql(sql) {}

  void TakeNull() override;
  void TakeInteger(std::int64_t value) override;
  // REQUIRES: not NaN.
  void TakeReal(double value) override;
  void TakeText(std::string_view text) override;
  void TakeBlob(std::string_view bytes) override;

 private:
  std::string& fSql;
};

}  // namespace sqldb::kit::detail

#endif  // SQLDB_KIT_SRC_LITERAL_H
