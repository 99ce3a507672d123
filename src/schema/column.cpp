#include "sqldb/column.h"

#include <cstring>
#include <ostream>
#include <utility>

#include "schema/integer_column.h"

namespace sqldb {

SQLColumnBase::SQLColumnBase(SQLTableClass* table, const std::string& name, std::string sqlType, std::uint32_t size,
                             bool canBeNull, bool isUnique, bool isPrimaryKey, const std::string& collation)
    : fTable(table),
      fName(name),
      fSqlType(std::move(sqlType)),
      fCollation(collation),
      fCanBeNull(canBeNull),
      fIsUnique(isUnique),
      fIsPrimaryKey(isPrimaryKey),
      fSize(size) {}

SQLColumnBase::~SQLColumnBase() = default;

void SQLColumnBase::AssignTo(void*, sqlite3_stmt*, int) const {}

std::string SQLColumnBase::IAmAKindOf() const { return "SQLColumnBase"; }

std::string SQLColumnBase::GetSpecAsString() const {
  std::string spec = fSqlType;
  if (!fCanBeNull) spec += " NOT NULL";
  if (fIsUnique) spec += " UNIQUE";
  if (fIsPrimaryKey) spec += " PRIMARY KEY";
  if (!fCollation.empty()) spec += " COLLATE " + fCollation;
  return spec;
}

template <>
void SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>::AssignTo(void* destination, sqlite3_stmt* statement,
                                                                             int columnIndex) const {
  const std::uint32_t value = IntegerOf(statement, columnIndex);
  std::memcpy(destination, &value, sizeof value);
}

template class SQLColumnClass<std::uint32_t, 4, ColumnTraits<std::uint32_t>>;

}  // namespace sqldb

std::string ColumnTraits<std::uint32_t>::SQLColumnTypeString() { return "INTEGER"; }

AddColumnDefToQuery::AddColumnDefToQuery(std::ostream& stream) : fStream(stream) {}

void AddColumnDefToQuery::operator()(boost::shared_ptr<sqldb::SQLColumnBase> column) {
  if (!fFirst) fStream << ",";
  fFirst = false;
  fStream << " " << column->fName << " " << column->GetSpecAsString();
}

PushColumn::PushColumn(std::vector<boost::shared_ptr<sqldb::SQLColumnBase>>& columns) : fColumns(columns) {}

void PushColumn::operator()(const std::pair<const std::string, boost::shared_ptr<sqldb::SQLColumnBase>>& entry) {
  fColumns.push_back(entry.second);
}

bool LessSerial(boost::shared_ptr<sqldb::SQLColumnBase> a, boost::shared_ptr<sqldb::SQLColumnBase> b) {
  return a->fSerial < b->fSerial;
}
