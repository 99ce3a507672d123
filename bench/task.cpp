#include "task.h"

namespace bench {

std::vector<Entry> StatementEntries() {
  std::vector<Entry> entries;
  AddInsert(entries);
  AddReplace(entries);
  AddUpdate(entries);
  AddDelete(entries);
  AddScan(entries);
  AddCallbackScan(entries);
  AddRecordQueries(entries);
  AddSelect(entries);
  return entries;
}

std::vector<Entry> AllEntries() {
  std::vector<Entry> entries = StatementEntries();
  AddEncoding(entries);
  return entries;
}

}  // namespace bench
