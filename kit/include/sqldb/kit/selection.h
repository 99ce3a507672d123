#ifndef SQLDB_KIT_SELECTION_H
#define SQLDB_KIT_SELECTION_H

// The rows of a table as a range of records:
//
//   for (const Part& part : parts.Select(price < 1.0).OrderBy(name).Limit(10)) Use(part);
//
// Each begin() runs the query anew. A row is read when the loop comes to it, so the table should not be changed
// meanwhile, and the file stays locked for writers until the loop ends; Rows() takes all rows at once.

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>

#include "sqldb/cursor.h"
#include "sqldb/database.h"
#include "sqldb/kit/column.h"
#include "sqldb/kit/failure.h"
#include "sqldb/kit/field.h"
#include "sqldb/select.h"
#include "sqldb/table.h"

namespace sqldb::kit {

/// One entry of an order.
struct Order {
  /// A column, or any expression.
  std::string name;
  /// From the smallest value to the largest, NULL first.
  bool isAscending = true;
};

/// From the smallest value to the largest, NULL first.
template <typename T>
Order Ascending(const ColumnName<T>& column) {
  return Order{column.Name(), true};
}
/// From the largest value to the smallest, NULL last.
template <typename T>
Order Descending(const ColumnName<T>& column) {
  return Order{column.Name(), false};
}

/// What a select reads a record from.
template <typename Record>
struct RecordSource {
  /// The core's table.
  boost::shared_ptr<SQLTableClass> table;
  /// One for each field.
  std::vector<boost::shared_ptr<SQLColumnBase>> columns;
  /// Where the fields are in a record.
  OffsetSpec offsets;
};

/// A query that yields records. Copies are independent. The table's database must be open while rows are read.
/// REQUIRES: Record can be constructed without arguments, and its table object lives.
template <typename Record>
class Selection {
 public:
  /// See Table::Select.
  Selection(boost::shared_ptr<const RecordSource<Record>> source, Term term)
      : fSource(std::move(source)), fTerm(std::move(term)) {}

  /// Orders by `column`, ascending, after the orders given before.
  template <typename T>
  Selection OrderBy(const ColumnName<T>& column) && {
    return std::move(*this).OrderBy(Ascending(column));
  }
  /// Orders by `order`, after the orders given before.
  Selection OrderBy(Order order) && {
    fOrder.push_back(std::move(order));
    return std::move(*this);
  }
  /// At most `limit` rows; 0 for all.
  Selection Limit(std::uint32_t limit) && {
    fLimit = limit;
    return std::move(*this);
  }
  /// Skips the first `offset` rows.
  Selection Offset(std::uint32_t offset) && {
    fOffset = offset;
    return std::move(*this);
  }

  /// Reads one row after the other; see begin.
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = Record;
    using difference_type = std::ptrdiff_t;
    using pointer = const Record*;
    using reference = const Record&;

    /// The end.
    Iterator() = default;

    reference operator*() const { return fRows->fRecord; }
    pointer operator->() const { return &fRows->fRecord; }
    Iterator& operator++() {
      Advance();
      return *this;
    }
    void operator++(int) { Advance(); }

    friend bool operator==(const Iterator& a, const Iterator& b) { return a.fRows == b.fRows; }
    friend bool operator!=(const Iterator& a, const Iterator& b) { return !(a == b); }

   private:
    friend class Selection;

    struct Rows {
      Rows(SQLDatabase& database, const OffsetSpec& offsets)
          : fDatabase(database), fCursor(boost::make_shared<SQLStepCursor<Record>>(&database, offsets)) {}

      SQLDatabase& fDatabase;
      boost::shared_ptr<SQLStepCursor<Record>> fCursor;
      Record fRecord{};
    };

    explicit Iterator(boost::shared_ptr<Rows> rows) : fRows(std::move(rows)) { Advance(); }

    void Advance() {
      auto rows = std::move(fRows);
      bool isAtEnd = true;
      try {
        isAtEnd = rows->fCursor->Step(rows->fRecord) != 0;
      } catch (...) {
        // Only now, so that a row costs nothing. SQLite tells what was wrong once the statement is finalized.
        Run(rows->fDatabase, [&rows] {
          rows->fCursor.reset();
          throw;
        });
      }
      if (!isAtEnd) fRows = std::move(rows);
    }

    boost::shared_ptr<Rows> fRows;
  };

  /// Runs the query and reads its first row. Waits for a busy file as SQLStepCursor::Step does, but not while SQLite
  /// reads the schema. Throws Error, here and while rows are read, or what a value's Type throws; an iterator that has
  /// thrown is the end.
  Iterator begin() const {
    SQLDatabase& database = fSource->table->fDatabase;
    const auto rows = boost::make_shared<typename Iterator::Rows>(database, fSource->offsets);
    Run(database, [&] {
      const boost::shared_ptr<SQLSelectClass> select = database.NewSelect(fSource->table, fLimit);
      select->fColumns = fSource->columns;
      select->fTerm = fTerm;
      for (const Order& order : fOrder) {
        select->fOrder.push_back(
            OrderItem{detail::OnlyNamed(order.name), static_cast<std::uint8_t>(order.isAscending)});
      }
      select->fOffset = fOffset;
      select->PrepareSelect(rows->fCursor);
    });
    return Iterator(rows);
  }
  /// Behind the last row.
  Iterator end() const { return Iterator(); }

  /// All rows, in order.
  std::vector<Record> Rows() const { return std::vector<Record>(begin(), end()); }

  /// The first row; none if there is no row.
  std::optional<Record> First() const {
    Selection first = *this;
    first.fLimit = 1;
    const Iterator row = first.begin();
    return row == first.end() ? std::nullopt : std::optional<Record>(*row);
  }

 private:
  boost::shared_ptr<const RecordSource<Record>> fSource;
  Term fTerm;
  std::vector<Order> fOrder;
  std::uint32_t fLimit = 0;
  std::uint32_t fOffset = 0;
};

}  // namespace sqldb::kit

#endif  // SQLDB_KIT_SELECTION_H
