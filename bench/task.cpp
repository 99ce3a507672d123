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

std::vector<Entry> EncodingEntries() {
  std::vector<Entry> entries;
  AddEncoding(entries);
  return entries;
}

}  // namespace bench
