#include "support/fixtures.h"

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <vector>

namespace support {

namespace {

// SQLite keeps the module after the connection that loaded it has gone.
void LoadModule(const char* path) {
  const CallRecorder::Pause pause;
  sqlite3* connection = nullptr;
  if (sqlite3_open(":memory:", &connection) != SQLITE_OK) throw std::runtime_error("cannot open a database in memory");
  sqlite3_enable_load_extension(connection, 1);
  const int result = sqlite3_load_extension(connection, path, nullptr, nullptr);
  sqlite3_close(connection);
  if (result != SQLITE_OK) throw std::runtime_error(std::string("cannot load ") + path);
}

}  // namespace

OtherConnection::OtherConnection(const std::string& path) {
  CallRecorder::Pause pause;
  if (sqlite3_open(path.c_str(), &fConnection) != SQLITE_OK) throw std::runtime_error("cannot open " + path);
}

OtherConnection::~OtherConnection() {
  CallRecorder::Pause pause;
  EXPECT_EQ(sqlite3_close(fConnection), SQLITE_OK);
}

std::vector<std::string> OtherConnection::Run(const std::string& sql) { return RowsOf(fConnection, sql); }

std::vector<std::string> RowsOf(sqlite3* connection, const std::string& sql) {
  CallRecorder::Pause pause;
  std::vector<std::string> rows;
  const auto collect = [](void* list, int count, char** values, char**) {
    std::string row;
    for (int i = 0; i < count; ++i) {
      if (i != 0) row += "|";
      row += values[i] != nullptr ? values[i] : "NULL";
    }
    static_cast<std::vector<std::string>*>(list)->push_back(row);
    return 0;
  };
  char* message = nullptr;
  EXPECT_EQ(sqlite3_exec(connection, sql.c_str(), collect, &rows, &message), SQLITE_OK) << sql << ": " << message;
  sqlite3_free(message);
  return rows;
}

int FinalizeLeftovers(sqlite3* connection) {
  CallRecorder::Pause pause;
  int count = 0;
  while (sqlite3_stmt* const statement = sqlite3_next_stmt(connection, nullptr)) {
    sqlite3_finalize(statement);
    ++count;
  }
  return count;
}

std::string DatabaseTest::DatabasePath() const {
  std::string path = fFolder.Path("test.db");
  if (const char* const elsewhere = std::getenv("SQLDB_TEST_DATABASES")) {
    static const bool isLoaded = (LoadModule(std::getenv("SQLDB_TEST_MODULE")), true);
    static_cast<void>(isLoaded);
    const std::string name = std::filesystem::path(path).parent_path().filename().string();
    path = elsewhere;
    path.replace(path.find('%'), 1, name);
  }
  return path;
}

DatabaseTest::DatabaseTest() : fDatabase(DatabasePath(), false) {
  CallRecorder::Pause pause;
  fDatabase.Open();
}

DatabaseTest::~DatabaseTest() {
  CallRecorder::Pause pause;
  if (!fDatabase.fIsOpen) return;
  FinalizeLeftovers(fDatabase.fConnection);
  EXPECT_EQ(sqlite3_close(fDatabase.fConnection), SQLITE_OK);
  fDatabase.fIsOpen = false;
}

boost::shared_ptr<sqldb::SQLTableClass> DatabaseTest::MakeTable(const std::string& name,
                                                                const std::vector<std::string>& columns) {
  CallRecorder::Pause pause;
  const auto table = fDatabase.NewTable(name);
  for (const std::string& column : columns) table->AddColumn(MakeColumn(column));
  table->Create();
  return table;
}

boost::shared_ptr<sqldb::SQLColumnBase> MakeColumn(const std::string& name) {
  return boost::shared_ptr<sqldb::SQLColumnBase>(new IntegerColumn(nullptr, name, true, false, false, ""));
}

boost::shared_ptr<sqldb::SQLTermBase> MakeTerm(const std::string& text) {
  return boost::shared_ptr<sqldb::SQLTermBase>(new TextTerm(text));
}

boost::shared_ptr<sqldb::SQLValueBase> MakeValue(const std::string& text) {
  return boost::shared_ptr<sqldb::SQLValueBase>(new TextValue(text));
}

BoundInteger::BoundInteger(std::int64_t value, CallRecorder* recorder) : fValue(value), fRecorder(recorder) {
  RememberParameterName();
}

std::ostream& BoundInteger::Print(std::ostream& stream) const { return stream << GetParameterName(); }

void BoundInteger::BindingOpportunity(sqlite3_stmt* statement) const {
  if (fRecorder != nullptr) fRecorder->Note("bind " + GetParameterName());
  if (statement == nullptr) return;
  const int index = sqlite3_bind_parameter_index(statement, GetParameterName().c_str());
  if (index != 0) sqlite3_bind_int64(statement, index, fValue);
}

ClogCapture::ClogCapture() : fOriginal(std::clog.rdbuf(fText.rdbuf())) {}

ClogCapture::~ClogCapture() { std::clog.rdbuf(fOriginal); }

}  // namespace support
